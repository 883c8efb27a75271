"""Markers in every field of every function, reply and quirk: no output that is meant for others holds one of them."""

import base64
import itertools
import json
import os
import re
import signal
import subprocess
import sys
import tarfile
import time
import urllib.parse

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "satctl"))

import support  # noqa: E402
from scripted_device import ACK, ScriptedDevice, frame  # noqa: E402
from support import CODE, EMULATOR, SALE, SatctlTest  # noqa: E402

DAY = time.strftime("%Y%m%d", time.gmtime(time.time() - 3 * 3600))
API = "[0100] [../src/api/TALVEX] "
UTILS = "[0100] [../src/olk_sat_utils/olk_sat_utils] "
LONG_ALARM = 1500  # seconds for one test, which runs every view over thousands of cases
VIEWS = [view + layout for view in ((), ("--frames",), ("--calls",)) for layout in ((), ("--json",))]

COMMANDS = {
    "AtivarSAT": ["1", CODE, "11222333000181", "35"],
    "ComunicarCertificadoICPBRASIL": [CODE, "-----BEGIN CERTIFICATE-----"],
    "EnviarDadosVenda": [CODE, "<CFe></CFe>"],
    "CancelarUltimaVenda": [CODE, "CFe35260311222333000181599000000010000011234564", "<CFeCanc/>"],
    "ConsultarSAT": [],
    "TesteFimAFim": [CODE, "<CFe></CFe>"],
    "ConsultarStatusOperacional": [CODE],
    "ConsultarNumeroSessao": [CODE, "000042"],
    "ConfigurarInterfaceDeRede": [CODE, "<config></config>"],
    "AssociarAssinatura": [CODE, "1122233300018111222333000181", "QUJD"],
    "AtualizarSoftwareSAT": [CODE],
    "ExtrairLogs": [CODE],
    "BloquearSAT": [CODE],
    "DesbloquearSAT": [CODE],
    "TrocarCodigoDeAtivacao": [CODE, "1", "novo-codigo", "novo-codigo"],
    "ConsultarUltimaSessaoFiscal": [CODE],
}
RECEIPT = ["QUJD", "20260301120000", "CFe35260311222333000181599000000010000011234564", "10.00", "", "QUJD"]
STATUS = ("900000001|DHCP|192.168.1.50|02:53:41:54:00:01|255.255.255.0|192.168.1.1|192.168.1.1|0.0.0.0|CONECTADO|ALTO|"
          "1 Gbytes|12 Mbytes|20260301120000|010000|000008|||||20260301120000|20260101|20310101|0").split("|")
REPLIES = [["000042", "06000", "0000", "Emitido com sucesso", "", "", *RECEIPT],
           ["000042", "06001", "Codigo de ativacao invalido", "", ""],  # without the alert code
           ["000042", "07000", "0000", "Cupom cancelado com sucesso", "", "", *RECEIPT],
           ["000042", "04000", "SAT Ativado Corretamente", "", "", "QUJD"],
           ["000042", "09000", "Emitido com sucesso", "", "", *RECEIPT[:2], "000001", RECEIPT[2]],
           ["000042", "10000", "Resposta com Sucesso", "", "", *STATUS],
           ["000042", "15000", "Transferencia completa", "", "", "QUJD"],
           ["000042", "08000", "SAT em operacao", "", "", "further"],
           ["000042", "99099", "Comando desconhecido", "", ""],
           ["000042", "no code", "at all"], ["no reply"], ["SAT Erro[-02003]Lnx SAT  Dev[/dev/x] ocupado L[2305] F[Communicate]"]]


# Fields that hold no marker.
PLAIN = {field for fields in [*REPLIES, *([name, *values] for name, values in COMMANDS.items())] for field in fields}


def cpf(number, right=True):
    digits = [int(c) for c in "%09d" % number]
    for _ in range(2):
        rest = sum(d * w for d, w in zip(digits, range(len(digits) + 1, 1, -1))) * 10 % 11 % 10
        digits.append(rest if right else (rest + 3) % 10)
    return "".join(map(str, digits))


class Marker:
    """A word and a number that stand nowhere else, and the forms in which they are hidden in a field."""

    count = itertools.count(1)

    def __init__(self):
        number = next(self.count)
        letters = "".join(chr(97 + number // 26 ** place % 26) for place in (3, 2, 1, 0))
        self.word = "zQ" + letters + "Wvk7"
        self.cpf = cpf(529_000_000 + number, number % 2 == 0)
        self.cnpj = "88%08d%04d" % (number, 7000 + number % 1000)

    def forms(self):
        word, digits, company = self.word, self.cpf, self.cnpj
        xml = "<dest><CPF>%s</CPF><xNome>%s</xNome></dest>" % (digits, word)
        wrapped = base64.encodebytes((xml * 3).encode()).decode()
        yield from (word, digits, company, "%s.%s.%s-%s" % (digits[:3], digits[3:6], digits[6:9], digits[9:]),
                    " ".join(digits), "%s.%s.%s/%s-%s" % (company[:2], company[2:5], company[5:8], company[8:12], company[12:]),
                    xml, "<![CDATA[%s]]>" % word, "".join("&#%d;" % ord(c) for c in word),
                    "".join("&#x%x;" % ord(c) for c in digits), "".join("\\u%04x" % ord(c) for c in word),
                    word.encode().hex(), base64.b64encode(xml.encode()).decode(), wrapped, wrapped.replace("\n", "\r\n"),
                    word + "]", "]" + word + "[", "<" + word, word + "<41><03>]OK:a", "\x02" + word, word + "\x03",
                    digits + ".00", "0000" + digits, "CFe" + digits * 4, word + "\n", word + "\n" + word,
                    "\n[09:00:00.000]ERR " + API + "[Communicate]" + word, "x" * 1200 + word)

    def fields(self, fields):
        """The fields with a form in each place, and with a form behind a separator that belongs to the field."""
        for place in range(len(fields)):
            for form in self.forms():
                yield fields[:place] + [form] + fields[place + 1:]
            yield fields[:place] + [self.word + "|" + self.cpf] + fields[place + 1:]


def searched_forms(marker):
    """In what an output might hold it; each a regular way to write it."""
    for text in (marker.word, marker.cpf, marker.cnpj):
        data = text.encode()
        yield text
        for shift in range(3):
            coded = base64.b64encode(b"\0" * shift + data).decode().rstrip("=")
            yield coded[(4 if shift else 0):len(coded) - 1]  # without what the neighbours decide
        yield data.hex()
        yield "".join("%%%02x" % byte for byte in data)
        yield "".join("&#%d;" % byte for byte in data)
        yield "".join("&#x%x;" % byte for byte in data)
        yield "".join("\\u%04x" % byte for byte in data)


def readings(output):
    """What a patient reader could make of an output."""
    joined = re.sub(r"\\r|\\n|\\x0[ad]|\s", "", output)
    return [output, joined, output.lower(), re.sub(r"[^0-9a-zA-Z\n]", "", output).lower(),
            "\n".join(re.sub(r"[^0-9]", "", line) for line in output.split("\n")),
            bytes(int(byte, 16) for byte in re.findall(r"\[([0-9A-Fa-f]{2})h\]", output)).decode("latin-1"),
            urllib.parse.unquote(output, errors="replace")]


class MarkerTest(SatctlTest):
    def setUp(self):
        super().setUp()
        signal.alarm(LONG_ALARM)
        self.write_ini(log_mode=5)
        self.markers = []

    def marker(self):
        self.markers.append(Marker())
        return self.markers[-1]

    def assert_clean(self, outputs, *more):
        """No marker, and none of the further texts, in any output."""
        wanted = set(more)
        for marker in self.markers:
            for form in searched_forms(marker):
                wanted |= {form, form.lower()}
        self.write("wanted.txt", "\n".join(sorted(wanted)) + "\n")
        type(self).searched = (getattr(self, "searched", (0, 0))[0] + len(wanted), len(outputs))
        for name, output in outputs.items():
            path = self.write("output.txt", "\n".join(readings(output)).encode("utf-8", "surrogateescape"))
            found = subprocess.run(["grep", "-aoF", "-m", "1", "-f", self.path("wanted.txt"), path], capture_output=True,
                                   check=False, env={"LC_ALL": "C", "PATH": os.environ["PATH"]})
            self.assertEqual(found.returncode, 1, "%s shows %r" % (name, found.stdout[:200]))

    def log_outputs(self, *arguments):
        outputs = {}
        for view in VIEWS:
            outputs["log " + " ".join(view)] = self.run_satctl("log", *view, *arguments).out
        outputs["log in Portuguese"] = self.run_satctl("log", "--calls", *arguments, LANG="pt_BR.UTF-8").out
        return outputs

    def followed(self):
        """What "log -f" shows of the logs as they are and of a record that comes behind them."""
        last = "[09:59:59.000]ERR [0001] [../src/api/TALVEX] [ConsultarSAT] rc[000000]ER\n"
        process = subprocess.Popen(self.command("log", "-f", "-n", "100000"), stdout=subprocess.PIPE,
                                   env=support.environment())
        try:
            output = process.stdout.readline()  # it has begun
            with open(self.path("Log/%s_SAT_api.log" % DAY), "a", encoding="utf-8") as log:
                log.write(last)
            while b":59:59" not in output:
                line = process.stdout.readline()
                self.assertTrue(line, "it ended by itself")
                output += line
        finally:
            process.kill()
            process.communicate()
        return {"log -f": output.decode("utf-8", "surrogateescape")}

    def bundle(self):
        self.run_satctl("doctor", "--bundle", self.path("b.tar.gz"), expected=None, TZ="UTC3")
        with tarfile.open(self.path("b.tar.gz")) as bundle:
            return {"bundle " + member.name: bundle.extractfile(member).read().decode("utf-8", "surrogateescape")
                    for member in bundle.getmembers() if member.isfile()}

    def outputs(self):
        return {**self.log_outputs(), **self.bundle()}

    def run_satctl(self, *arguments, expected=support.SUCCESS, **keywords):
        if expected is not None:
            return super().run_satctl(*arguments, expected=expected, **keywords)
        keywords.setdefault("SAT_CODIGO", CODE)
        done = subprocess.run(self.command(*arguments), capture_output=True, timeout=support.ONE_RUN, check=False,
                              env=support.environment(**keywords))
        self.assertNotEqual(done.returncode, support.SANITIZER_EXIT, done.stderr)
        done.out, done.err = (text.decode("utf-8", "surrogateescape") for text in (done.stdout, done.stderr))
        return done

    def write_logs(self, trace, frames):
        lines = "".join("[09:00:00.000]%s %s\n" % (("ERR", "INF")[number % 2], text) for number, text in enumerate(trace))
        self.write("Log/%s_SAT_api.log" % DAY, lines.encode("utf-8", "surrogateescape"))
        self.write("Log/%s_SAT_ProtocolLog.txt" % DAY, "".join("%s090000 %s\n" % (DAY, text) for text in frames).encode())


def trace_of_command(text):
    length = len(text)
    yield API + "[lSerialWriteBufL]Lnx\n\t >> Sent[%04d] hC[00000004h]\n\t >> PC->SAT Sent[%05d:\x02%s]" % (length, length, text)
    yield API + "[lSerialWriteBufL]Lnx\n\t >> Sent[%04d] hC[00000004h]\n\t >> PC->SAT Sent[%05d:\x02%sK\x03]" % (length, length, text)
    yield (API + "[lSerialWriteBufL]Win: OK:hC[00000004h]Sent ulTxPktSz[%05d]BIG \n\t PC->SAT >>   pusTxPkt[%03d:\x02%s"
           "...**BIGPKG SLL-SAT**....%s]" % (length, length, text[:900], text[-100:]))
    yield API + "[ConsultarUltimaSessaoFiscal] rc[000000]WR\n\t >> SAT_Cmd[%05d:\x02%s\x03]" % (length, text)
    yield UTILS + "[SAT_API_CmdPktParcer]--- >> P01 pSatCmdPkt=[%08d:%s]CALLOC FAIL!!!" % (length, text)
    yield UTILS + "[SAT_API_CalcCkeckSum] ucCheckSum[7Ch]=PIPE iBufLen[%02d]\n\t   pBuf[%04d:%s] ucCheckSum[|]" % (length, length, text)
    fields = text.split("|")
    for place, field in enumerate(fields, 1):
        if field in PLAIN and place > 2:
            continue
        tail = {1: "Sat:NomeDoComando", 2: "SAT:numeroSessao(AC-RND)", len(fields): "LastParam"}.get(place, "")
        yield UTILS + "[SAT_API_CmdPktParcer]--- >> P%02d=[%08d:%s]%s" % (place, len(field), field, tail)
        yield UTILS + "[SAT_APP_CmdParcer]--- >> P%02d  ------------[%08d:%s]" % (place, len(field), field)


def trace_of_reply(text):
    length = len(text)
    yield API + "[cSerialReadBufW]Lnx Rcvd\n\t << SAT->SO  Recv[%04d:<STX>%sK\x03]" % (length, text)
    yield API + "[cSerialReadBufW]Lnx Rcvd BIG_RSP_PKT[%04d]\n\t << SAT->SO  Recv[%04d:<STX>%s....***BIG_RSP_PKT***....%s]" % (
        length, length, text[:900], text[-100:])
    yield API + "[cSerialReadBufW]Lnx Rcvd\n\t <<  SO->PC   Rsp[%05d:%s]" % (length, text)
    yield API + "[ConsultarSAT] rc[-02003]ER\n\t << SAT_Rsp[%05d:%s]" % (length, text)
    yield UTILS + "[SAT_APP_RspParcer]--- rc[-01101]APP:ER\n\t << E01 << API_ERR_MSG[%08d:%s]" % (length, text)
    for place, field in enumerate(text.split("|"), 1):
        if field in PLAIN:
            continue
        yield UTILS + "[SAT_API_RspPktParcer]--- << R%02d=[%08d:%s]" % (place, len(field), field)
        yield UTILS + "[SAT_API_RspPktParcer]BIG << R%02d=[%08d:%s]" % (place, len(field), field[:100])
        for name in ("  numeroSessao", "         EEEEE", "      mensagem", "           cod", " mensagemSEFAZ"):
            yield UTILS + "[SAT_APP_RspParcer]--- << R%02d%s[%08d:%s]" % (place, name, len(field), field)


def logged(text, sent):
    if sent:
        yield from ("PC->SAT >> [<02>%s<41><03>]OK:a" % text, "PC->SAT >> [%s]InvalidSatPkg" % text,
                    "PC->SAT >> [<02>%s<00><03>]WR:CKSUM=00h" % text)
    yield from ("SAT->PC << [<02>%s<--><03>]WR:d" % text, "SAT->PC << [%s<00><03>]WR:CKSUM=0x00--" % text[:-1],
                "SAT->PC << [<02>%s<41><03>]OK:c" % text, "SAT->PC << [%s]WR:CKS=0x00" % text)


class Commands(MarkerTest):
    def test_of_every_function_and_of_unknown_ones(self):
        cases = 0
        names = list(COMMANDS) + ["Inventada"]
        for part in range(4):
            self.markers, trace, frames = [], [], []
            for name in names[part::4]:
                fields = [name, "000042", *COMMANDS.get(name, [CODE, "x"])]
                for text in map("|".join, self.marker().fields(fields)):
                    trace += trace_of_command(text)
                    frames += logged(text, True)
                    cases += 1
            self.write_logs(trace, frames)
            self.assert_clean(self.outputs(), CODE, "novo-codigo")
        self.assertGreater(cases, 1500)
        print("%d commands with a marker" % cases)

    def test_a_log_that_is_named_like_a_code(self):
        self.write_logs([], logged("ExtrairLogs|000042|" + CODE, True))
        os.rename(self.path("Log/%s_SAT_api.log" % DAY), self.path("Log/%s_%s.log" % (DAY, CODE)))
        self.write("Log/%s_%s.log" % (DAY, CODE), "[09:00:00.000]INF " + API + "[findSat]x\n")
        bundle = self.bundle()
        self.assertTrue(any(re.search(r"/log-\d\.txt$", name) for name in bundle), list(bundle))
        self.assert_clean({**bundle, "names": "\n".join(bundle)}, CODE)

    def test_network_settings(self):
        settings = ("<config><tipoInter>WIFI</tipoInter><SSID>{}</SSID><seg>WPA</seg><codigo>{}</codigo><tipoLan>IPFIX</tipoLan>"
                    "<lanIP>{}</lanIP><usuario>{}</usuario><senha>{}</senha><proxy>1</proxy><proxy_ip>{}</proxy_ip>"
                    "<proxy_user>{}</proxy_user><proxy_senha>{}</proxy_senha></config>")
        text = "ConfigurarInterfaceDeRede|000042|%s|%s" % (CODE, settings.format(*(self.marker().word for _ in range(8))))
        self.write_logs(trace_of_command(text), logged(text, True))
        self.assert_clean({**self.outputs(), **self.followed()}, CODE)


class Replies(MarkerTest):
    def test_of_every_layout(self):
        cases = 0
        for part in range(4):
            self.markers, trace, frames = [], [], []
            for fields in REPLIES[part::4]:
                for text in map("|".join, self.marker().fields(fields)):
                    trace += trace_of_reply(text)
                    frames += logged(text, False)
                    cases += 1
            self.write_logs(trace, frames)
            self.assert_clean(self.outputs())
        self.assertGreater(cases, 2000)
        print("%d replies with a marker" % cases)

    def test_frames_that_are_none(self):
        trace, frames = [], []
        for form in self.marker().forms():
            frames += logged(form, True)
            trace += [form, API + form, API + "[" + form + "]", API + "[findSat]" + form, "[%s] x" % form]
        self.write_logs(trace, frames)
        self.assert_clean(self.outputs())

    def test_numbers_that_stand_for_session_or_date(self):
        company, number = self.marker().cnpj, self.marker().cpf[:9]
        self.write_logs([UTILS + "[SAT_APP_RspParcer]--- << R01  numeroSessao[00000009:%s] Cmd:Rsp[000042:%s]WR:MissMatch!!!"
                         % (number, number)], ["SAT->PC << [<02>a|b\n%s PC->SAT >> [c<41><03>]OK:a" % company])
        self.assert_clean(self.outputs(), number, company)


class Quirks(MarkerTest):
    PROFILES = ("busy-extra-field", "crlf-base64", "cfe-prefix", "bare-key", "short-list", "state-words", "empty-dates",
                "zero-dates", "total-15-digits")

    def test_of_every_profile(self):
        marker = self.marker()
        sale = (SALE.read_text(encoding="utf-8").replace("12345678909", cpf(529_888_777))
                .replace("</dest>", "<xNome>%s</xNome></dest>" % marker.word))
        self.assertIn(marker.word, sale)
        self.write("sale.xml", sale)
        for profile in self.PROFILES:
            with self.subTest(profile):
                with support.Emulator(self.folder, "--activated", "--activation-code", CODE, "--profile", profile,
                                      "--record", self.path("day.txt"), "--mask"):
                    self.run_satctl("enviar-dados-venda", "--sessao", "10", "--dados", "@" + self.path("sale.xml"))
                    for number, command in enumerate(("consultar-status-operacional", "extrair-logs", "consultar-ultima-sessao-fiscal",
                                                      "consultar-sat"), 11):
                        self.run_satctl(command, "--sessao", str(number))
                    self.run_satctl("consultar-numero-sessao", "--sessao", "20", "--numero", "10")
                    self.run_satctl("teste-fim-a-fim", "--sessao", "21", "--dados", "@" + self.path("sale.xml"))
        self.assertIn(marker.word, "".join(self.read("Log/" + name) for name in os.listdir(self.path("Log"))))
        outputs = {**self.outputs(), "recording": self.read("day.txt")}
        self.assert_clean(outputs, CODE, cpf(529_888_777), "12345678909", "11222333000181", "192.168.1.50", "02:53:41")
        # Every message of the library was known.
        unknown = [line for line in outputs["log "].splitlines() if re.search(r"\]\*\d+\*$|  \*\d+\*$", line)]
        self.assertEqual(unknown, [])


class Echoes(MarkerTest):
    """A device that sends back what it gets, byte by byte or whole."""

    def converse(self, answer, *arguments):
        device = ScriptedDevice(self.path("sat0"), lambda command: b"")
        device.serve = lambda: self.serve(device, answer)
        device.thread = __import__("threading").Thread(target=device.serve)
        with device:
            self.run_satctl(*arguments, expected=None)
        os.unlink(self.path("sat0"))

    @staticmethod
    def serve(device, answer):
        import select
        received, told = b"", False
        while True:
            ready, _, _ = select.select([device.master, device.stop_reader], [], [])
            if device.stop_reader in ready:
                return
            received += os.read(device.master, 65536)
            if b"\x03" in received and not told:
                told = True
                os.write(device.master, answer(received[1:-2]))

    def test_nothing_of_a_command_comes_back(self):
        self.write_ini(log_mode=5, more="ExtrairLogs=1\nConsultarStatusOperacional=1\n")
        for answer in (lambda text: text + ACK + frame(b"000001|10000|ok||"),
                       lambda text: ACK + text + frame(b"000001|10000|ok||"),
                       lambda text: ACK + frame(text),
                       lambda text: ACK + frame(b"000001|10000|" + text + b"||"),
                       lambda text: ACK + frame(b"000001|10001|codigo " + text.split(b"|")[2] + b" invalido||"),
                       lambda text: ACK + b"\x02" + text + frame(text)):
            self.converse(answer, "consultar-status-operacional", "--sessao", "1")
        logs = "".join(self.read("Log/" + name) for name in os.listdir(self.path("Log")))
        self.assertIn(CODE, logs)
        self.assertIn("Rcvd[%02Xh]" % ord(CODE[0]), logs)
        self.assert_clean({**self.outputs(), **self.followed()}, CODE)


class Utilities(MarkerTest):
    def test_taxpayers_numbers_that_are_checked(self):
        marker, outside = self.marker(), os.getcwd()
        self.addCleanup(os.chdir, outside)
        os.chdir(self.folder)
        company = marker.cnpj
        for number in (marker.cpf, "%s.%s.%s-%s" % (marker.cpf[:3], marker.cpf[3:6], marker.cpf[6:9], marker.cpf[9:])):
            self.run_satctl("cpf", number, expected=None)
        for number in (company, "%s.%s.%s/%s-%s" % (company[:2], company[2:5], company[5:8], company[8:12], company[12:])):
            self.run_satctl("cnpj", number, expected=None)
        lines = []
        for number in (marker.cpf, marker.cpf[:9], company, "x" + marker.cpf):
            for text in (" rc[-03010]ER -------   CPF[%02d:%s]too short", " rc[-03011]ER Formated CPF[%02d:%s]INVALID!!!",
                         " rc[-03016]ER \n\t          CPF[%02d:%s]VERYFY:FAIL\n\t     iCkDigit[02]\n\t iCalcCkDigit[05]Calc",
                         " rc[000000]OK CNPJ[%02d:%s]VERYFY:SUCCESS!!!", " rc[-03017]ER pCPF[%02d:%s]Invalid Len Expected 11"):
                lines.append("[0100] OLK_Check_CPF" + text % (len(number), number))
        self.write_logs(lines, [])
        self.assert_clean(self.outputs())

    def test_values_of_a_hosts_own(self):
        trace = []
        for form in self.marker().forms():
            trace += ["[0100] OLK_SetIniFileValue rc[-00301]ER:INI_FILE_ERR_NOT_FOUND fopen() Fail pIniFileName[%s] pSession[%s] "
                      "pItem[%s] pNewValue[%s]" % (form, form, form, form),
                      "[0100] OLK_DeleteFile rc[000000]WR   pFileName[%s] File do not Exist! >> return 0" % form,
                      UTILS + "[SAT_Get_IBGH_UF_Code]--- rc[-001]ER:pStateName[%s]NOT_FOUND!!!" % form,
                      "[0100] OLK_SetIniFileLogMode"[:6] + " [../src/olk_utils/olk_utils] [OLK_Base64_Test01] rc[00000]OK: "
                      "Base64DataOut[%03d:%s]" % (len(form), form)]
        self.write_logs(trace, [])
        self.assert_clean(self.outputs())


class OwnCalls(MarkerTest):
    def test_show_the_reply_as_it_is_without_the_activation_code(self):
        for place in range(2, 12):
            fields = list(REPLIES[0])
            fields[place] = "eco %s Ana" % CODE
            with ScriptedDevice(self.path("sat0"), lambda _, fields=fields: "|".join(fields).encode()):
                for layout in ((), ("--json",), ("--raw",)):
                    shown = self.run_satctl(*layout, "enviar-dados-venda", "--sessao", "42", "--dados", "<CFe/>", expected=None)
                    self.assertNotIn(CODE, shown.out + shown.err, (place, layout))
                    if layout == ("--raw",):
                        self.assertIn("eco ******** Ana", shown.out)
            os.unlink(self.path("sat0"))

    def test_show_no_code_of_a_stored_reply(self):
        fields = list(REPLIES[0])
        fields[0], fields[3] = "000042", "eco %s Ana" % CODE
        with ScriptedDevice(self.path("sat0"), lambda _: "|".join(fields).encode()):
            for layout in ((), ("--json",), ("--raw",)):
                shown = self.run_satctl(*layout, "recuperar", "--sessao", "42", expected=None)
                self.assertIn("eco ******** Ana" if layout == ("--raw",) else "", shown.out)
                self.assertNotIn(CODE, shown.out + shown.err, layout)

    def test_show_no_code_in_the_place_of_a_document(self):
        fields, code = list(REPLIES[0]), "codigo8642"
        fields[6] = code
        with ScriptedDevice(self.path("sat0"), lambda _: "|".join(fields).encode()):
            shown = self.run_satctl("--raw", "enviar-dados-venda", "--sessao", "42", "--dados", "<CFe/>", expected=None,
                                    SAT_CODIGO=code)
        self.assertIn("||********|", shown.out)

    def test_show_everything_else(self):
        marker = self.marker()
        fields = list(REPLIES[0])
        fields[3], fields[10] = marker.word, marker.cpf
        with ScriptedDevice(self.path("sat0"), lambda _: "|".join(fields).encode()):
            shown = json.loads(self.run_satctl("--json", "enviar-dados-venda", "--sessao", "42", "--dados", "<CFe/>",
                                               expected=None).out)
        self.assertEqual(shown["fields"]["mensagem"], marker.word)
        self.assertEqual(shown["fields"]["CPFCNPJValue"], marker.cpf)


class Recordings(MarkerTest):
    @staticmethod
    def escaped(data):
        return "".join(chr(byte) if 0x20 < byte < 0x7F and byte != 0x5C else "\\x%02x" % byte for byte in data)

    @staticmethod
    def unescaped(text):
        data = re.sub(r"\\(x[0-9a-f]{2}|\\)", lambda m: chr(int(m[1][1:], 16)) if m[1] != "\\" else "\\", text)
        return data.encode("latin-1")

    def masked(self, records):
        self.write("day.txt", "".join("0.%06d %s %s\n" % (number, side, self.escaped(data))
                                      for number, (side, data) in enumerate(records)))
        subprocess.run([EMULATOR, "--mask-file", self.path("day.txt"), self.path("masked.txt")], check=True,
                       timeout=support.ONE_RUN, env=support.environment())
        return self.read("masked.txt")

    def test_of_every_command_and_reply(self):
        records = []
        for name in [*COMMANDS, "Inventada"]:
            for text in map("|".join, self.marker().fields([name, "000042", *COMMANDS.get(name, [CODE, "x"])])):
                records.append(("PC->SAT", frame(text.encode())))
        for fields in REPLIES:
            for text in map("|".join, self.marker().fields(fields)):
                records.append(("SAT->PC", frame(text.encode())))
        masked = self.masked(records)
        self.assert_clean({"masked recording": masked, "its bytes": self.unescaped(masked).decode("latin-1")}, CODE, "novo-codigo")
        lines = [line.split(" ", 2) for line in masked.splitlines() if not line.startswith("#")]
        self.assertEqual(len(lines), len(records))
        for (side, data), line in zip(records, lines):
            shown = self.unescaped(line[2])
            self.assertEqual((side, len(data)), (line[1], len(shown)))
            if b"\x03" not in data[:-2] and b"\x02" not in data[1:]:
                self.assertEqual(shown, frame(shown[1:-2]))

    def test_complaints_quote_nothing(self):
        self.write("day.txt", "0.1 PC->SAT \\x02ExtrairLogs|\n000001 %s x\n" % CODE)
        done = subprocess.run([EMULATOR, "--mask-file", self.path("day.txt"), self.path("masked.txt")], capture_output=True,
                              text=True, check=False, timeout=support.ONE_RUN, env=support.environment())
        self.assertNotEqual(done.returncode, 0)
        self.assertIn("line 2", done.stderr)
        self.assertNotIn(CODE, done.stdout + done.stderr)
        self.write("state.json", '{"format": 1, "activation_code": "%s' % CODE)
        done = subprocess.run([EMULATOR, "--state", self.path("state.json")], capture_output=True, text=True, check=False,
                              timeout=support.ONE_RUN, env=support.environment())
        self.assertNotEqual(done.returncode, 0)
        self.assertIn("state.json is not understood", done.stderr)
        self.assertNotIn(CODE, done.stdout + done.stderr)

    def test_outside_of_frames_and_of_frames_that_broke_off(self):
        marker = self.marker()
        whole = frame(("ExtrairLogs|000001|" + CODE).encode())
        masked = self.masked([("PC->SAT", marker.word.encode() + ACK + whole[:-4] + whole), ("SAT->PC", whole[1:]),
                              ("SAT->PC", b"\x02" + marker.cpf.encode())])
        self.assert_clean({"masked recording": masked}, CODE, CODE[:-2])


class Time(MarkerTest):
    """Twice the input takes twice the time."""

    def seconds(self, text):
        trace = [line for line in itertools.islice(trace_of_command(text), 8)]
        self.write_logs(trace, list(logged(text, True)))
        started = time.monotonic()
        for view in (("log",), ("log", "--calls"), ("log", "--frames"), ("doctor", "--bundle", self.path("b.tar.gz"))):
            self.run_satctl(*view, expected=None, TZ="UTC3")
        self.masked_recording(text)
        return time.monotonic() - started

    def masked_recording(self, text):
        self.write("day.txt", "0.1 PC->SAT %s\n" % Recordings.escaped(frame(text.encode())))
        subprocess.run([EMULATOR, "--mask-file", self.path("day.txt"), self.path("masked.txt")], check=True,
                       timeout=support.ONE_RUN, env=support.environment())

    def test_is_a_straight_line_in_the_input(self):
        for unit in ("<infCpl>", "1", "QUJD", "]n[09:00:00.000]ERR STEP-05b", "|", "\n", "a b "):
            with self.subTest(unit):
                small = self.seconds("EnviarDadosVenda|000042|%s|%s" % (CODE, unit * (250_000 // len(unit))))
                large = self.seconds("EnviarDadosVenda|000042|%s|%s" % (CODE, unit * (1_000_000 // len(unit))))
                print("%-10r %.2f s, four times as much %.2f s" % (unit, small, large))
                self.assertLess(large, 9 * small + 1)

    def test_a_line_of_five_million_bytes_and_eighty_thousand_open_elements(self):
        self.assertLess(self.seconds("EnviarDadosVenda|000042|%s|%s" % (CODE, "<infCpl>" * 80_000 + "x" * 4_400_000)), 60)

    def test_many_codes(self):
        frames = ["PC->SAT >> [<02>ExtrairLogs|%06d|codigo%0*d<41><03>]OK:a" % (n, n % 40, n) for n in range(40_000)]
        self.write_logs([], frames)
        started = time.monotonic()
        self.run_satctl("log")
        self.assertLess(time.monotonic() - started, 20)


if __name__ == "__main__":
    support.main()
