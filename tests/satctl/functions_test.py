"""Every function of the standard, against the emulator."""

import base64
import json
import os
import shutil
import stat

import support
from scripted_device import ScriptedDevice
from support import CODE, NOT_WRITTEN, REFUSED, SALE, SUCCESS, USAGE, SatctlTest

CNPJ = "11222333000181"
SOFTWARE_HOUSE = "12345678000195"
SIGNATURE = base64.b64encode(bytes(range(256))).decode()
NETWORK = "<config><tipoInter>ETHE</tipoInter><tipoLan>DHCP</tipoLan><proxy>0</proxy></config>"
CERTIFICATE = "-----BEGIN CERTIFICATE-----\nMIIB\n-----END CERTIFICATE-----\n"

SALE_FIELDS = ["numeroSessao", "EEEEE", "CCCC", "mensagem", "cod", "mensagemSEFAZ", "timeStamp", "chaveConsulta",
               "valorTotalCFe", "CPFCNPJValue", "assinaturaQRCODE"]
PLAIN_FIELDS = ["numeroSessao", "EEEEE", "mensagem", "cod", "mensagemSEFAZ"]


def sign_of(xml):
    return xml.split("<signAC>")[1].split("</signAC>")[0]


def cancellation(key):
    return ('<CFeCanc><infCFe chCanc="%s"><ide><CNPJ>%s</CNPJ><signAC>%s</signAC><numeroCaixa>001</numeroCaixa></ide>'
            "<emit/><dest/><total/></infCFe></CFeCanc>" % (key, SOFTWARE_HOUSE, sign_of(SALE.read_text())))


class EveryFunction(SatctlTest):
    def check(self, function, return_code, *arguments, fields=None, **keywords):
        reply = self.json(function, *arguments, **keywords)
        self.assertEqual(reply["EEEEE"], return_code)
        self.assertEqual(reply["fields"]["EEEEE"], return_code)
        self.assertEqual(int(reply["fields"]["numeroSessao"]), reply["session"])
        self.assertEqual(reply["exitStatus"], SUCCESS)
        self.assertEqual(list(reply["fields"]), fields or PLAIN_FIELDS)
        return reply

    def test_ativar_sat(self):
        self.start_emulator(activated=False)
        reply = self.check("ativar-sat", "04000", "--subcomando", "1", "--cnpj", CNPJ, "--uf", "SP",
                           "--save-xml", self.path("pedido.pem"))
        self.assertEqual(reply["function"], "AtivarSAT")
        self.assertEqual(reply["document"]["field"], "CSR")
        self.assertIn("BEGIN CERTIFICATE REQUEST", self.read("pedido.pem"))

    def test_icp_brasil_activation_and_certificate(self):
        self.start_emulator(activated=False)
        self.check("ativar-sat", "04006", "--subcomando", "2", "--cnpj", CNPJ, "--uf", "35",
                   fields=PLAIN_FIELDS)
        self.check("comunicar-certificado-icp-brasil", "05000", "--certificado",
                   "@" + self.write("certificado.pem", CERTIFICATE))

    def test_consultar_sat_under_both_names(self):
        self.start_emulator()
        for name in ("consultar-sat", "ConsultarSAT"):
            self.assertEqual(self.check(name, "08000")["EEEEEMessage"], "SAT em operacao")

    def test_sale_query_and_cancellation(self):
        self.start_emulator()
        sale = self.check("enviar-dados-venda", "06000", "--dados", "@%s" % SALE, "--sessao", "700001",
                          "--save-xml", self.path("cfe.xml"), fields=SALE_FIELDS)
        self.assertEqual(sale["session"], 700001)
        self.assertEqual(sale["CCCC"], "0000")
        self.assertEqual(sale["document"]["savedTo"], self.path("cfe.xml"))
        self.assertIn("<CFe", self.read("cfe.xml"))
        self.assertNotIn("arquivoCFeBase64", sale["fields"])
        self.assertEqual(len(sale["fields"]["assinaturaQRCODE"]), 344)
        key = sale["fields"]["chaveConsulta"]

        stored = self.json("consultar-numero-sessao", "--numero", "700001")
        self.assertEqual(stored["fields"], sale["fields"])
        last = self.json("consultar-ultima-sessao-fiscal")
        self.assertEqual(last["fields"], sale["fields"])

        cancelled = self.check("cancelar-ultima-venda", "07000", "--chave", key, "--dados",
                               "@" + self.write("canc.xml", cancellation(key)), fields=SALE_FIELDS)
        self.assertNotEqual(cancelled["fields"]["chaveConsulta"], key)

    def test_teste_fim_a_fim_from_standard_input(self):
        self.start_emulator()
        reply = self.check("teste-fim-a-fim", "09000", "--dados", "-", stdin=SALE.read_bytes(),
                           fields=PLAIN_FIELDS + ["timeStamp", "numDocFiscal", "chaveConsulta"])
        self.assertEqual(reply["document"]["field"], "arquivoCFeBase64")

    def test_consultar_status_operacional(self):
        self.start_emulator()
        reply = self.json("consultar-status-operacional")
        self.assertEqual(len(reply["fields"]), 28)
        self.assertEqual(reply["fields"]["NSERIE"], "900000001")
        self.assertEqual(list(reply["fields"])[-1], "ESTADO_OPERACAO")

    def test_configurar_interface_de_rede(self):
        self.start_emulator()
        self.check("configurar-interface-de-rede", "12000", "--configuracao", NETWORK)

    def test_associar_assinatura(self):
        self.start_emulator()
        self.check("associar-assinatura", "13000", "--cnpj", SOFTWARE_HOUSE + CNPJ, "--assinatura",
                   "@" + self.write("ac.txt", SIGNATURE))

    def test_atualizar_software_sat(self):
        self.start_emulator()
        self.check("atualizar-software-sat", "14000")

    def test_extrair_logs_saves_them(self):
        self.start_emulator()
        self.run_satctl("consultar-sat")
        reply = self.check("extrair-logs", "15000", "--save-xml", self.path("sat.log"))
        self.assertEqual(reply["document"]["field"], "arquivoLog")
        self.assertRegex(self.read("sat.log"), r"(?m)^\d{14}\|")

    def test_bloquear_and_desbloquear(self):
        self.start_emulator()
        self.check("bloquear-sat", "16000")
        self.check("desbloquear-sat", "17000")

    def test_trocar_codigo_de_ativacao(self):
        self.start_emulator()
        new = self.write("novo", "outro-codigo-1\n")
        self.check("trocar-codigo-de-ativacao", "18000", "--opcao", "1", "--novo-codigo", "@" + new,
                   "--confirmacao", "@" + new)
        self.check("extrair-logs", "15000", code="outro-codigo-1")

    def test_versao_dll_talvex(self):
        for name in ("versao-dll-talvex", "VersaoDllTalvex"):
            self.assertEqual(self.run_satctl(name).out, "TALVEX DLL Ver. 02.00\n")
        version = self.json("versao-dll-talvex")
        self.assertEqual(version, {"version": "TALVEX DLL Ver. 02.00", "library": os.path.realpath(support.LIBRARY)})


class Arguments(SatctlTest):
    def test_code_as_option_file_and_standard_input(self):
        self.start_emulator()
        with_line_end = "@" + self.write("codigo", CODE + "\n")
        for source, stdin in ((CODE, None), (with_line_end, None), ("-", CODE.encode() + b"\n")):
            self.run_satctl("consultar-status-operacional", "--codigo", source, stdin=stdin, code=None)

    def test_option_wins_over_the_variable(self):
        self.start_emulator()
        self.run_satctl("extrair-logs", "--codigo", CODE, code="errado-errado")
        self.run_satctl("extrair-logs", code="errado-errado", expected=REFUSED)

    def test_usage_errors_end_with_2_before_the_device_is_touched(self):
        self.write_ini()
        sale = "@%s" % SALE
        cases = [
            ((), "a command is missing"),
            (("frobnicate",), "there is no command frobnicate"),
            (("consultar-sat", "--frobnicate"), "unexpected argument: --frobnicate"),
            (("enviar-dados-venda",), "--dados is required"),
            (("enviar-dados-venda", "--dados", "@/nonexistent"), "@/nonexistent: cannot be read: No such file"),
            (("enviar-dados-venda", "--dados", "<a\x03b"), "the bytes 00 and 03 cannot be sent"),
            (("enviar-dados-venda", "--dados", "-", "--codigo", "-"), "only one argument can come from standard input"),
            (("enviar-dados-venda", "--dados", sale, "--save-xml", "/nonexistent/x"), "cannot be written"),
            (("enviar-dados-venda", "--dados", sale, "--save-xml", "/tmp"), "/tmp cannot be written: Is a directory"),
            (("cancelar-ultima-venda", "--chave", "a|b", "--dados", "x"), '"|" separates the fields'),
            (("consultar-sat", "--sessao", "1000000"), "is not in the range"),
            (("consultar-sat", "--sessao", "-1"), "is not in the range"),
            (("consultar-sat", "--sessao", "x"), "is not in the range"),
            (("consultar-numero-sessao", "--numero", "1234567"), "a number from 0 to 999999 is needed"),
            (("ativar-sat", "--subcomando", "um", "--cnpj", "1", "--uf", "SP"), "a number is needed"),
            (("ativar-sat", "--subcomando", "1", "--cnpj", "1", "--uf", "XX"), "no such state"),
            (("recuperar",), "--sessao is required"),
            (("recuperar", "--sessao", "1", "--antes", "35" * 22), "--antes: an access key is needed"),
            (("recuperar", "--sessao", "1", "--save-xml", "/tmp"), "/tmp cannot be written: Is a directory"),
            (("--dir", "/nonexistent", "consultar-sat"), "cannot be entered"),
            (("--library", "/nonexistent.so", "consultar-sat"), "The library cannot be loaded"),
        ]
        for arguments, message in cases:
            with self.subTest(arguments):
                self.assertIn(message, self.run_satctl(*arguments, expected=USAGE).err)
        self.assertFalse(os.path.exists(self.path("SAT.conf")))

    def test_an_error_points_to_the_help_of_its_command(self):
        for arguments, command in (((), "satctl"), (("ini",), "satctl ini"), (("ini", "set", "LOG"), "satctl ini set")):
            self.assertIn("\n%s --help shows the usage." % command, self.run_satctl(*arguments, expected=USAGE).err)

    def test_missing_code(self):
        self.write_ini()
        done = self.run_satctl("extrair-logs", code=None, expected=USAGE)
        self.assertIn("SAT_CODIGO", done.err)
        self.assertEqual(done.out, "")

    def test_drawn_session_numbers_differ(self):
        self.start_emulator()
        drawn = {self.json("consultar-sat")["session"] for _ in range(4)}
        self.assertGreater(len(drawn), 1)
        self.assertTrue(all(0 < session < 100000 for session in drawn))

    DOCUMENTS = [
        (("enviar-dados-venda",), "--dados", "venda.xml", "<CFe/>"),
        (("teste-fim-a-fim",), "--dados", "venda.xml", "<CFe/>"),
        (("cancelar-ultima-venda", "--chave", "CFe35"), "--dados", "canc.xml", "<CFeCanc/>"),
        (("configurar-interface-de-rede",), "--configuracao", "rede.xml", "<config/>"),
        (("comunicar-certificado-icp-brasil",), "--certificado", "cert.pem", CERTIFICATE),
        (("associar-assinatura", "--cnpj", "1"), "--assinatura", "ac.txt", SIGNATURE),
    ]

    def sent_by(self, *arguments):
        """What reaches the device in the last field, and the exit status behind it."""
        self.write_ini()
        with ScriptedDevice(self.path("sat0"), lambda command: command.split(b"|")[1] + b"|99099|nada||") as device:
            support.subprocess.run(self.command(*arguments), capture_output=True, timeout=support.ONE_RUN, check=False,
                                   env=support.environment(SAT_CODIGO=CODE))
        os.unlink(self.path("sat0"))
        return [command.split(b"|")[-1].decode() for command in device.commands]

    def test_a_file_without_its_sign_is_not_sent(self):
        self.write_ini()
        for command, option, name, document in self.DOCUMENTS:
            with self.subTest(command):
                self.write(name, document)
                done = self.run_satctl(*command, option, name, expected=USAGE)
                self.assertIn("%s: this is no " % option, done.err)
                self.assertIn("%s @FILE, and %s-literal sends" % (option, option), done.err)
                self.assertEqual(self.sent_by(*command, option, name), [])
                self.assertEqual(self.sent_by(*command, option, "@" + self.path(name)), [document])
                self.assertEqual(self.sent_by(*command, option, document), [document])

    def test_a_literal_is_sent_as_it_is(self):
        for command, option, *_ in self.DOCUMENTS:
            for text in ("venda.xml", "@venda.xml", "-"):
                with self.subTest((command, text)):
                    self.assertEqual(self.sent_by(*command, option, text, option + "-literal"), [text])

    def test_what_may_stand_in_front_of_the_document(self):
        for text in ("<CFe/>", " \t\r\n<CFe/>", "\ufeff<CFe/>", "\ufeff\n<CFe/>"):
            with self.subTest(text):
                self.assertEqual(self.sent_by("enviar-dados-venda", "--dados", text), [text])
        for content in (b"", b" \n", b"venda", b"\xff\xfe<\x00", b"\xef\xbb\xbf"):
            with self.subTest(content):
                self.assertEqual(self.sent_by("enviar-dados-venda", "--dados", "@" + self.write("x", content)), [])


class Output(SatctlTest):
    def test_raw_is_the_reply_alone(self):
        self.start_emulator()
        done = self.run_satctl("--raw", "consultar-sat", "--sessao", "42")
        self.assertEqual(done.stdout, "000042|08000|SAT em operação||\n".encode())
        self.assertEqual(done.err, "")

    def test_json_is_one_object_and_nothing_else(self):
        self.start_emulator(log_mode=5)
        done = self.run_satctl("consultar-sat", "--json")
        self.assertEqual(list(json.loads(done.out)),
                         ["function", "session", "exitStatus", "status", "class", "meaning", "EEEEE", "EEEEEMessage",
                          "fields"])
        self.assertEqual(done.err, "")

    def test_text_shows_fields_code_and_message_and_no_base64(self):
        self.start_emulator()
        done = self.run_satctl("enviar-dados-venda", "--dados", "@%s" % SALE, "--sessao", "5")
        self.assertIn("EnviarDadosVenda  session 5\n", done.out)
        self.assertIn("  EEEEE            06000  Emitido com sucesso + conteudo notas\n", done.out)
        self.assertIn("  CCCC             0000\n", done.out)
        self.assertRegex(done.out, r"arquivoCFeBase64 \(document, \d+ characters of base64; --save-xml FILE saves it\)")
        self.assertTrue(done.out.endswith("=> success\n"))
        self.assertNotIn("\033", done.out)
        self.assertTrue(all(len(line) < 120 for line in done.out.splitlines()))

    def test_a_refused_sale_leaves_no_document(self):
        self.start_emulator()
        done = self.run_satctl("enviar-dados-venda", "--dados", "<CFe/>", "--save-xml", self.path("x.xml"),
                               expected=REFUSED)
        self.assertIn("holds no document", done.err)
        self.assertFalse(os.path.exists(self.path("x.xml")))

    RECEIPT = b"%s|06000|0000|Emitido|||PENGZT4=|20260301100000|CFe35|1.00||QQ=="

    def save_into_a_folder_that_goes(self, *command, reply=RECEIPT, options=(), expected=NOT_WRITTEN):
        """The folder was there before the call, and is not when the reply comes."""
        self.write_ini()
        target = os.path.join(self.path("cupons"), "cfe.xml")
        os.mkdir(self.path("cupons"))

        def answer(sent):
            shutil.rmtree(self.path("cupons"), ignore_errors=True)
            return reply % sent.split(b"|")[1] if b"%s" in reply else reply

        with ScriptedDevice(self.path("sat0"), answer):
            done = self.run_satctl(*options, *command, "--save-xml", target, expected=expected)
        os.unlink(self.path("sat0"))
        return done

    SALE_COMMAND = ("enviar-dados-venda", "--dados", "@%s" % SALE, "--sessao", "9")

    def test_a_document_that_cannot_be_saved_is_no_success(self):
        done = self.save_into_a_folder_that_goes(*self.SALE_COMMAND)
        self.assertIn("the document could not be saved to %s/cupons/cfe.xml: No such file" % self.folder, done.err)
        self.assertIn("The receipt stands, do not send it again; its XML once more: "
                      "satctl recuperar --sessao 9 --save-xml FILE", done.err)
        self.assertIn("  chaveConsulta    CFe35\n", done.out)
        self.assertIn("=> success", done.out)

    def test_nor_is_it_in_json_and_raw(self):
        reply = json.loads(self.save_into_a_folder_that_goes(*self.SALE_COMMAND, options=["--json"]).out)
        self.assertEqual((reply["exitStatus"], reply["status"], reply["class"]), (NOT_WRITTEN, "not-written", "success"))
        self.assertEqual(reply["fields"]["chaveConsulta"], "CFe35")
        self.assertNotIn("savedTo", reply["document"])
        raw = self.save_into_a_folder_that_goes(*self.SALE_COMMAND, options=["--raw"])
        self.assertEqual(raw.stdout, self.RECEIPT % b"000009" + b"\n")

    def test_nor_is_one_that_is_no_base64(self):
        done = self.save_into_a_folder_that_goes(*self.SALE_COMMAND, reply=self.RECEIPT.replace(b"PENGZT4=", b"P!"))
        self.assertIn("the field is no base64", done.err)

    def test_nor_is_one_that_is_not_there(self):
        done = self.save_into_a_folder_that_goes("consultar-sat", reply=b"%s|08000|SAT em operacao||")
        self.assertIn("the reply holds no document of this call", done.err)

    def test_the_advice_fits_the_function(self):
        cases = [(("extrair-logs",), b"%s|15000|ok|||QQ==", "ExtrairLogs can be called again"),
                 (("ativar-sat", "--subcomando", "2", "--cnpj", "1", "--uf", "SP", "--sessao", "8"),
                  b"%s|04006|ok|||QQ==", "satctl consultar-numero-sessao --numero 8 --save-xml FILE"),
                 (("consultar-numero-sessao", "--numero", "9"), self.RECEIPT % b"000009",
                  "satctl recuperar --sessao 9 --save-xml FILE"),
                 (("recuperar", "--sessao", "9"), self.RECEIPT % b"000009",
                  "satctl recuperar --sessao 9 --save-xml FILE")]
        for command, reply, advice in cases:
            with self.subTest(command):
                self.assertIn(advice, self.save_into_a_folder_that_goes(*command, reply=reply).err)

    def test_the_document_of_another_call_is_not_saved(self):
        self.write_ini()
        with ScriptedDevice(self.path("sat0"), lambda _: self.RECEIPT % b"000008"):
            self.sell("--save-xml", self.path("cfe.xml"), expected=support.OTHER_SESSION)
        self.assertFalse(os.path.exists(self.path("cfe.xml")))

    def test_a_saved_file_keeps_the_mode_of_the_one_it_replaces(self):
        self.start_emulator()
        os.chmod(self.write("cfe.xml", "old"), 0o640)
        self.sell("--save-xml", self.path("cfe.xml"))
        self.assertEqual(stat.S_IMODE(os.stat(self.path("cfe.xml")).st_mode), 0o640)
        self.assertIn("<CFe", self.read("cfe.xml"))

    def test_base64_with_line_breaks_is_saved(self):
        self.start_emulator("--profile", "crlf-base64")
        self.sell("--save-xml", self.path("cfe.xml"))
        self.assertTrue(self.read("cfe.xml").rstrip().endswith("</CFe>"))

    def test_relative_files_belong_to_the_callers_folder(self):
        self.start_emulator()
        here = self.path("elsewhere")
        os.mkdir(here)
        command = self.command("enviar-dados-venda", "--dados", "@%s" % SALE, "--save-xml", "cfe.xml")
        support.subprocess.run(command, cwd=here, check=True, capture_output=True, timeout=support.ONE_RUN,
                               env=support.environment(SAT_CODIGO=CODE))
        self.assertTrue(os.path.exists(os.path.join(here, "cfe.xml")))

    def test_bytes_that_are_no_utf8_are_escaped(self):
        self.write("faults", b"on ConsultarSAT do return 08099 0 caf\xe9 \x1b[31m \xc2\x9b\n")
        self.start_emulator("--faults", self.path("faults"))
        done = self.run_satctl("consultar-sat", expected=REFUSED)
        self.assertIn("caf\\xE9 \\x1B[31m \\xC2\\x9B", done.out)
        reply = self.json("consultar-sat", expected=REFUSED)
        self.assertEqual(reply["fields"]["mensagem"], "caf\\xE9 \x1b[31m \x9b")
        raw = self.run_satctl("consultar-sat", "--raw", expected=REFUSED)
        self.assertIn(b"caf\xe9 \x1b[31m \xc2\x9b", raw.stdout)

    def test_a_closed_standard_output_is_noticed(self):
        self.start_emulator()
        with open("/dev/full", "wb") as full:
            done = support.subprocess.run(self.command("consultar-sat"), stdout=full, stderr=support.subprocess.PIPE,
                                          timeout=support.ONE_RUN, env=support.environment())
        self.assertEqual(done.returncode, NOT_WRITTEN)
        self.assertIn(b"the output could not be written", done.stderr)


if __name__ == "__main__":
    support.main()
