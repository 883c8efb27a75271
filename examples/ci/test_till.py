"""Tests of a till, as they could be yours: the driver library against an emulated device.

    TALVEX_LIBRARY=build/libtalvex.so SAT_EMULATOR=build/bin/sat-emulator pytest examples/ci
"""

import ctypes
import os
import pathlib
import subprocess
import sys

import pytest

CODE = b"12345678"
HERE = pathlib.Path(__file__).parent
SALE = (HERE.parent / "venda.xml").read_bytes()


@pytest.fixture
def till(sat, tmp_path, monkeypatch):
    """The library in a folder of its own, as every test wants it."""
    return load(sat, tmp_path, monkeypatch)


def load(device, folder, monkeypatch):
    monkeypatch.chdir(folder)
    device.write_sat_ini(folder)
    library = ctypes.CDLL(os.environ.get("TALVEX_LIBRARY", "libtalvex.so.2"))

    def call(function, *arguments):
        entry = getattr(library, function)
        entry.restype = ctypes.c_char_p
        return entry(*arguments).decode().split("|")

    return call


def test_a_sale_gives_a_receipt(till):
    fields = till("EnviarDadosVenda", 1, CODE, SALE)
    assert fields[:3] == ["000001", "06000", "0000"]
    assert fields[8].startswith("CFe35")
    assert fields[9] == "126.84"


def test_a_till_meets_the_device_that_it_expects(sat_factory, tmp_path):
    """The sample till in Python, with the replies of replies.txt."""
    device = sat_factory("--replies", str(HERE / "replies.txt"), "--clock", "2026-03-01T10:00:00")
    device.write_sat_ini(tmp_path)
    shown = subprocess.run([sys.executable, HERE.parent / "python" / "venda.py",
                            os.environ.get("TALVEX_LIBRARY", "libtalvex.so.2"), CODE, HERE.parent / "venda.xml"],
                           cwd=tmp_path, capture_output=True, text=True, timeout=30)
    assert shown.returncode == 0, shown.stdout + shown.stderr
    for line in ("NSERIE            000123456", "mensagem          Emitido com sucesso + conteudo notas",
                 "timeStamp         20260301100000", "valorTotalCFe     10.00"):
        assert "  " + line + "\n" in shown.stdout


def test_what_the_device_calls_busy_may_be_sold(sat_factory, tmp_path, monkeypatch):
    # The first sale is issued, though its reply says "in process"; the second one is not carried out.
    device = sat_factory("--activated", "--fault", "on EnviarDadosVenda nth=1 do carry-out-return 06098",
                         "--fault", "on EnviarDadosVenda nth=2 do processing 1")
    till = load(device, tmp_path, monkeypatch)
    assert till("EnviarDadosVenda", 1, CODE, SALE)[:2] == ["000001", "06098"]
    sold = till("ConsultarNumeroSessao", 2, CODE, 1)
    assert sold[:2] == ["000001", "06000"]

    assert till("EnviarDadosVenda", 3, CODE, SALE)[:2] == ["000003", "06098"]
    assert till("ConsultarNumeroSessao", 4, CODE, 3)[1] == "11003"
    last = till("ConsultarUltimaSessaoFiscal", 5, CODE)
    assert last[8] == sold[8], "still the last receipt, so nothing was issued"
    assert till("EnviarDadosVenda", 6, CODE, SALE)[1] == "06000"


def test_a_lost_reply_is_found_again(sat_factory, tmp_path, monkeypatch):
    device = sat_factory("--activated", "--fault", "on EnviarDadosVenda nth=1 do wrong-checksum 3")
    till = load(device, tmp_path, monkeypatch)
    assert till("EnviarDadosVenda", 1, CODE, SALE)[0].startswith("SAT Erro[-02005]")
    assert till("ConsultarNumeroSessao", 2, CODE, 1)[1] == "06000"
