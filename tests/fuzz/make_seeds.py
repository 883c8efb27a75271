"""Writes first corpora of the fuzz targets, most of them made from the golden frames.

make_seeds.py FOLDER: a folder per target below FOLDER.
"""

import pathlib
import re
import shutil
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
VECTORS = ROOT / "tests" / "vectors" / "frames.txt"
LONGEST_SEED = 20000
BLOCK = 16384


def framed(text):
    """The text between STX and ETX, with its checksum."""
    total = sum(text) % 256
    return b"\x02" + text + bytes([4 if total == 3 else total]) + b"\x03"


def golden_frames():
    """Yields direction, verdict and bytes of each golden frame."""
    for line in VECTORS.read_text(encoding="utf-8").splitlines():
        words = line.split("#", 1)[0].split()
        if not words:
            continue
        data = b""
        for word in words[2:]:
            byte, _, times = word.partition("*")
            data += bytes([int(byte, 16)]) * int(times or 1)
        if len(data) <= LONGEST_SEED:
            yield words[0], words[1], data


def default_configuration():
    """The lines that the library writes when there is no SAT.ini, but for the time-outs."""
    source = (ROOT / "src" / "api" / "default_configuration.cpp").read_text(encoding="utf-8")
    block = source.split("kDefaultFile[] = {", 1)[1].split("};", 1)[0]
    lines = [eval(text) for text in re.findall(r'"(?:[^"\\]|\\.)*"', block)]  # pylint: disable=eval-used
    return ("\n".join(lines) + "\n").encode()


def masking_seeds():
    """Commands, replies and messages with 0xFE where a secret is to stand."""
    frames = [b"EnviarDadosVenda|000042|\xfe|<CFe>\xfe</CFe>", b"TrocarCodigoDeAtivacao|000042|\xfe|1|\xfe|\xfe",
              b"CancelarUltimaVenda|000042|\xfe|CFe\xfe|\xfe", b"AtivarSAT|000042|1|\xfe|\xfe|35", b"\xfe|000042|\xfe",
              b"000042|06000|0000|\xfe|1|\xfe|\xfe|20260301120000|\xfe|10.00|\xfe|\xfe", b"000042|\xfe|\xfe",
              b"000042|10000|Resposta com Sucesso|||\xfe|DHCP|\xfe|\xfe|\xfe|\xfe|\xfe|\xfe|CONECTADO|ALTO|1 Gbytes|\xfe"]
    yield from frames
    table = (ROOT / "tools" / "masking" / "trace_lines.cpp").read_text(encoding="utf-8")
    formats = re.findall(r'TraceLine\{\s*"((?:[^"\\]|\\.)*)"', re.sub(r'"\s*"', "", table))
    for number, text in enumerate(formats):
        message = text.encode().decode("unicode_escape").encode("latin-1")
        message = re.sub(rb"%0?\d*l?[dux]", b"1", message).replace(b"%08X", b"0000000A").replace(b"%02X", b"41")
        message = message.replace(b"%s", b"\x02" + frames[number % len(frames)] if number % 2 else b"\xfe").replace(b"%c", b"|")
        yield b"[0100] [../src/api/TALVEX] [Communicate]" + message
    yield b"20260301120000 PC->SAT >> [<02>ExtrairLogs|000042|\xfe<41><03>]OK:a\n"


def seeds():
    """Yields target and seed."""
    ack, nak = b"\x06", b"\x15"
    for direction, _, frame in golden_frames():
        text = frame[1:-2]
        yield "dissector", frame
        yield "protocol_log", frame
        yield "emulator_frame", frame
        yield "message", b"\x2aConsultarSAT\n" + text
        yield "base64", text
        if direction == "response":
            for mode in (0x00, 0x1C, 0x15, 0x1E):
                yield "receive", bytes([mode]) + ack + frame
            yield "receive", b"\x1c" + nak + ack + frame[:-2] + b"\xffA" + frame[-2:]
            yield "receive", b"\x04Z" + ack + b"ZZ" + frame[:-1] + b"\x00\x03" + frame
    for reading in (b"\x1c\x02\x15", b"\x1c\x02\x06\x06", b"\x1c\x02\x03", b"\x1c\x02", b"\x1c" + nak * 4, b"\x1c",
                    b"\x1c\xffI\x06", b"\x1c\xffB\xffB\x06\xffI\xffZ\xffS\x02AB\xffA\x83\x03"):
        yield "receive", reading
    for blocks in (2, 3):
        text = b"000042|08000|" + bytes(97 + at % 23 for at in range((blocks - 1) * BLOCK + 500))
        reply = framed(text)
        for mode in (0x04, 0x0C, 0x1C, 0x1D):
            yield "receive", bytes([mode]) + ack + reply
        damaged = reply[:-2] + bytes([reply[-2] ^ 0x40]) + reply[-1:]
        yield "receive", b"\x0c" + ack + damaged + reply
        yield "receive", b"\x0c" + ack + reply[:BLOCK] + b"\xffA\xffS\xffB" + reply[BLOCK:]
        yield "receive", b"\x0c" + ack + reply[:BLOCK - 1] + b"\xffA" + reply[BLOCK - 1:]
        yield "receive", b"\x0c" + ack + reply[:BLOCK] + b"\xffI" + reply[BLOCK:]
    yield "receive", b"\x0c" + ack + framed(b"a" * (BLOCK - 3))
    yield "receive", b"\x0c" + ack + framed(b"a" * (2 * BLOCK - 3))
    for text in masking_seeds():
        yield "masking", text
    configuration = default_configuration()
    yield "configuration", configuration
    yield "configuration", configuration.replace(b"[SERIAL_PORT_CONFIG]", b"[SERIAL_PORT_CONFIG]\nFixarPorta=/dev/ttyACM0")
    yield "configuration", configuration.replace(b"LogMode=1", b"LogMode=5")
    yield "configuration", configuration.replace(b"=", b"= " + b"9" * 130)
    for names in (b"LOG\nLogMode\n5\n", b"LOG\nNew\nvalue\n", b"NEW\nItem\nvalue\n", b"SAT_TIMEOUT\nAtivarSAT\n\n",
                  b"ARVOLEN\nEnable\n" + b"1" * 200 + b"\n"):
        yield "ini", names + configuration
        yield "ini", names + configuration.replace(b"\n", b"\r\n")
        yield "ini", names + b"[LOG]\nLogMode=1"
    for number in (b"11222333000181", b"11.222.333/0001-81", b"12345678909", b"123.456.789-09", b"99999999999917",
                   b"1234", b"123.456.789-0", b"11.222.333/0001-811", b"abc"):
        yield "taxpayer", number
    for text in (b"QUJD", b"QUI=", b"QQ==", b"Q===", b"====", b"QUJ", b"\xff\x80AB"):
        yield "base64", text
    for sale in sorted((ROOT / "examples").rglob("*.xml")):
        yield "emulator_xml", sale.read_bytes()
        yield "hub_xml", sale.read_bytes()
    yield "hub_xml", b"000000|06000|0000|x|||PENGZT48L0NGZT4=|20260301102030|CFe" + b"1" * 44 + b"|10.00||QR"
    for body in (b'{"dadosVenda": "PENGZS8+", "numeroSessao": 1, "tentativa": 2, "paciencia": 3, "espera": 4}',
                 b'{"dadosCancelamento": "PENGZS8+", "chaveConsulta": "CFe%s"}' % (b"1" * 44),
                 b'{"decisao": "issued", "chaveConsulta": "x", "motivo": "y"}', b"/v1/recibos?de=2026-03-01&caixa=a%20b"):
        yield "hub_json", body
    yield "hub_toml", (b'state = "/x"\n[listen]\nhttp = ["127.0.0.1:0"]\nsocket = "/y"\n[[device]]\nserial = "1"\n')
    for message in (b'{"call": "ConsultarSAT", "session": 1, "values": ["QQ=="]}', b'{"lock_serial": "1"}',
                    b'{"is": "reply", "text": "QQ==", "port_changed": false}'):
        yield "hub_messages", message


def main():
    folder = pathlib.Path(sys.argv[1])
    shutil.rmtree(folder, ignore_errors=True)
    counts = {}
    for target, seed in seeds():
        counts[target] = counts.get(target, 0) + 1
        target_folder = folder / target
        target_folder.mkdir(parents=True, exist_ok=True)
        (target_folder / f"seed{counts[target]:03}").write_bytes(seed)
    for target, count in sorted(counts.items()):
        print(f"{target}: {count} seeds")


if __name__ == "__main__":
    main()
