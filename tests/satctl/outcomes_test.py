"""Exit statuses: each of them, a fault of each class, and what became of a sale whose reply was lost."""

import fcntl
import os

import support
from scripted_device import ScriptedDevice
from support import (BUSY, CODE, LINK_FAILURE, NO_DEVICE, OTHER_SESSION, REFUSED, SALE, SUCCESS, SatctlTest)


class ExitStatuses(SatctlTest):
    def outcome(self, expected, *arguments, **keywords):
        reply = self.json(*arguments, expected=expected, **keywords)
        self.assertEqual(reply["exitStatus"], expected)
        return reply

    def test_0_success(self):
        self.start_emulator()
        self.assertEqual(self.outcome(SUCCESS, "consultar-sat")["class"], "success")

    def test_1_every_class_of_refusal(self):
        cases = [
            ("extrair-logs", "15001", "activation-code"), ("extrair-logs", "15002", "in-progress"),
            ("extrair-logs", "15097", "session"), ("extrair-logs", "15099", "unknown"),
            ("bloquear-sat", "16002", "state"), ("bloquear-sat", "16003", "sefaz"),
            ("desbloquear-sat", "17002", "blocked"), ("atualizar-software-sat", "14004", "content"),
            ("consultar-ultima-sessao-fiscal", "19002", "not-activated"),
            ("consultar-ultima-sessao-fiscal", "19003", "not-found"),
        ]
        self.start_emulator(*[option for command, code, _ in cases for option in
                              ("--fault", "on any session=%s do return %s 0 mensagem de teste" % (int(code), code))])
        for command, code, refusal in cases:
            with self.subTest(code):
                reply = self.outcome(REFUSED, command, "--sessao", str(int(code)))
                self.assertEqual((reply["EEEEE"], reply["class"], reply["status"]), (code, refusal, "refused"))
                self.assertEqual(reply["fields"]["mensagem"], "mensagem de teste")

    def test_1_refused_sales(self):
        cases = [("06003", "association"), ("06004", "association"), ("06008", "blocked"), ("06009", "blocked"),
                 ("06010", "content"), ("06011", "certificate"), ("06002", "not-activated"),
                 ("06001", "activation-code")]
        self.start_emulator(*[option for code, _ in cases for option in
                              ("--fault", "on EnviarDadosVenda session=%d do return %s 1234" % (int(code), code))])
        for code, refusal in cases:
            with self.subTest(code):
                reply = self.sell(session=int(code), expected=REFUSED)
                self.assertEqual((reply["class"], reply["CCCC"]), (refusal, "1234"))

    def test_1_content_refused_by_the_device_itself_names_the_field(self):
        self.start_emulator()
        reply = self.outcome(REFUSED, "enviar-dados-venda", "--dados", "<CFe/>")
        self.assertEqual((reply["EEEEE"], reply["class"]), ("06010", "content"))
        self.assertRegex(reply["CCCC"], r"^\d{4}$")

    def test_1_text_names_the_class(self):
        self.start_emulator()
        done = self.run_satctl("extrair-logs", code="nao-e-este", expected=REFUSED)
        self.assertIn("=> activation-code: wrong activation code\n", done.out)

    def test_3_no_device(self):
        self.write("SAT.ini", "[LOG]\nLogMode=0\n")
        reply = self.outcome(NO_DEVICE, "consultar-sat")
        self.assertTrue(reply["text"].startswith("SAT Erro[-02000]Lnx SAT Nao Encontrado"))
        self.assertIn("satctl doctor", self.run_satctl("consultar-sat", expected=NO_DEVICE).err)

    def test_3_port_that_cannot_be_opened(self):
        self.write_ini(port="/tmp/nothing-here0")
        self.assertIn("nao encontrado Dev[/tmp/nothing-here0]", self.outcome(NO_DEVICE, "consultar-sat")["text"])

    def hold_port(self):
        descriptor = os.open(self.path("sat0"), os.O_RDWR | os.O_NOCTTY)
        fcntl.flock(descriptor, fcntl.LOCK_EX)
        self.addCleanup(os.close, descriptor)

    def test_4_port_locked_by_another_process(self):
        self.start_emulator()
        self.hold_port()
        reply = self.outcome(BUSY, "consultar-sat", "--sessao", "7")
        self.assertEqual(reply["EEEEE"], "08098")
        self.assertEqual(reply["fields"]["mensagem"], "SAT em processamento, tente novamente.")
        for session in (0, 4711, 99999):
            sale = self.sell(session=session, expected=BUSY)
            self.assertEqual((sale["EEEEE"], sale["CCCC"]), ("06098", "0000"))
            self.assertEqual(sale["fields"]["mensagem"], "SAT em processamento, tente novamente.")
        for command in (("enviar-dados-venda", "--dados", "@%s" % SALE),
                        ("cancelar-ultima-venda", "--chave", "CFe35", "--dados", "<CFeCanc/>")):
            self.assertIn("nothing was sent; try again in a moment", self.run_satctl(*command, expected=BUSY).err)

    def test_5_locked_port_and_a_session_of_six_digits(self):
        self.start_emulator()
        self.hold_port()
        self.assertEqual(self.sell(session=100000, expected=LINK_FAILURE)["class"], "unsettled")

    def test_4_locked_port_and_the_function_without_a_busy_reply(self):
        self.start_emulator()
        self.hold_port()
        reply = self.outcome(BUSY, "consultar-ultima-sessao-fiscal")
        self.assertTrue(reply["text"].startswith("SAT Erro[-03000]"))

    def test_4_device_in_process(self):
        self.start_emulator("--fault", "on ConsultarSAT do processing 1")
        self.assertEqual(self.outcome(BUSY, "consultar-sat")["EEEEE"], "08098")

    def test_5_four_naks(self):
        self.start_emulator("--fault", "on ConsultarSAT do nak 4")
        reply = self.outcome(LINK_FAILURE, "consultar-sat")
        self.assertIn("SAT Erro[-02009]", reply["text"])

    def test_5_broken_checksums(self):
        self.start_emulator("--fault", "on ConsultarSAT do wrong-checksum 9")
        self.assertIn("falhou na recepcao da resposta", self.outcome(LINK_FAILURE, "consultar-sat")["text"])

    def test_5_hang_up_in_the_reply(self):
        self.start_emulator("--fault", "on EnviarDadosVenda do hangup 20")
        done = self.run_satctl("enviar-dados-venda", "--dados", "@%s" % SALE, "--sessao", "88", expected=LINK_FAILURE)
        self.assertIn("do not send it again before you know. To find out: satctl recuperar --sessao 88", done.err)

    def test_5_a_port_that_is_no_terminal(self):
        self.write_ini(port=self.write("plain0", ""))
        self.assertIn("SAT Erro[-02002]", self.outcome(LINK_FAILURE, "consultar-sat")["text"])

    def test_5_a_reply_that_is_none(self):
        self.write_ini()
        for text in (b"", b"hello", b"1|2", b"000001|abc|x||"):
            with self.subTest(text), ScriptedDevice(self.path("sat0"), lambda _, text=text: text):
                self.outcome(LINK_FAILURE, "consultar-sat", "--sessao", "1")
            os.unlink(self.path("sat0"))

    def test_5_a_reply_that_does_not_decide(self):
        self.write_ini()
        sale = ("enviar-dados-venda", "--dados", "@%s" % SALE)
        cancellation = ("cancelar-ultima-venda", "--chave", "CFe35", "--dados", "<CFeCanc/>")
        cases = [(sale, code) for code in (b"06097", b"06098", b"06099", b"07000", b"07010", b"08000", b"99099")]
        cases += [(cancellation, code) for code in (b"07097", b"07098", b"07099", b"06000", b"06010")]
        for command, code in cases:
            with self.subTest(command[0] + code.decode()), \
                    ScriptedDevice(self.path("sat0"), lambda _, code=code: b"000321|%s|0000|mensagem||" % code):
                reply = self.outcome(LINK_FAILURE, *command, "--sessao", "321")
                self.assertEqual((reply["EEEEE"], reply["class"]), (code.decode(), "unsettled"))
                done = self.run_satctl(*command, "--sessao", "321", expected=LINK_FAILURE)
                self.assertIn("=> unsettled: the device does not say what became of the call\n", done.out)
                self.assertIn("do not send it again before you know. To find out: satctl recuperar --sessao 321",
                              done.err)
            os.unlink(self.path("sat0"))

    def test_1_the_codes_of_other_functions_are_what_they_were(self):
        self.start_emulator("--fault", "on BloquearSAT session=1 do return 16097 0 m",
                            "--fault", "on BloquearSAT session=2 do return 16099 0 m")
        for session in ("1", "2"):
            self.outcome(REFUSED, "bloquear-sat", "--sessao", session)

    def test_5_says_that_a_query_may_be_repeated(self):
        self.start_emulator("--fault", "on any do nak 4")
        self.assertIn("changes nothing in the device", self.run_satctl("consultar-sat", expected=LINK_FAILURE).err)
        self.assertIn("satctl consultar-numero-sessao --numero 9",
                      self.run_satctl("bloquear-sat", "--sessao", "9", expected=LINK_FAILURE).err)

    def test_6_reply_of_the_call_before(self):
        self.start_emulator("--fault", "on ConsultarSAT nth=2 do previous")
        self.run_satctl("consultar-sat", "--sessao", "11")
        done = self.run_satctl("consultar-sat", "--sessao", "12", expected=OTHER_SESSION)
        self.assertIn("the call had session 12, the reply is of session 000011", done.err)

    def test_6_in_json(self):
        self.write_ini()
        with ScriptedDevice(self.path("sat0"), lambda _: b"000099|08000|SAT em operacao||"):
            reply = self.outcome(OTHER_SESSION, "consultar-sat", "--sessao", "98")
        self.assertEqual(reply["status"], "other-session")

    def test_a_query_for_a_stored_reply_is_answered_with_it(self):
        self.write_ini()
        stored = b"004711|06010|1234|Erro de validacao||"
        with ScriptedDevice(self.path("sat0"), lambda _: stored):
            for command in (("consultar-numero-sessao", "--numero", "4711"), ("consultar-ultima-sessao-fiscal",)):
                self.assertEqual(self.outcome(SUCCESS, *command)["CCCC"], "1234")
            self.outcome(OTHER_SESSION, "consultar-numero-sessao", "--numero", "4712")

    def test_late_reply_within_the_limit_is_a_success(self):
        self.start_emulator("--fault", "on ConsultarSAT do late 700")
        self.outcome(SUCCESS, "consultar-sat")

    def test_refusal_without_an_alert_code(self):
        self.write_ini()
        with ScriptedDevice(self.path("sat0"), lambda _: b"004711|06010|Conteudo||"):
            reply = self.sell(expected=REFUSED)
        self.assertEqual(reply["fields"]["mensagem"], "Conteudo")
        self.assertNotIn("CCCC", reply)

    def test_fields_behind_the_layout_are_shown(self):
        self.start_emulator("--profile", "busy-extra-field", "--fault", "on ConsultarSAT do processing 1")
        reply = self.outcome(BUSY, "consultar-sat")
        self.assertEqual(len(reply["fields"]), 6)
        self.assertEqual(list(reply["fields"])[-1], "campo6")


class Recovery(SatctlTest):
    def recover(self, session, expected, **keywords):
        return self.json("recuperar", "--sessao", str(session), expected=expected, **keywords)

    def test_a_sale_whose_reply_was_lost_was_made(self):
        self.start_emulator("--fault", "on EnviarDadosVenda nth=1 do hangup 20 back=10")
        self.sell(session=501, expected=LINK_FAILURE)
        self.wait_for_port()
        verdict = self.recover(501, SUCCESS)
        self.assertEqual(verdict["verdict"], "issued")
        self.assertEqual([reply["function"] for reply in verdict["replies"]], ["ConsultarNumeroSessao"])
        text = self.run_satctl("recuperar", "--sessao", "501").out
        self.assertIn("Session 501 made a sale; do not send it again.", text)
        self.assertRegex(text, r"key    CFe\d{44}\n  date   \d{14}\n  total  \d+\.\d\d\n")

    def wait_for_port(self):
        while not os.path.exists(self.path("sat0")):
            os.sched_yield()

    def test_nothing_is_sent_again(self):
        self.write_ini()
        replies = {b"ConsultarNumeroSessao": b"%s|11003|Sessao nao existe||",
                   b"ConsultarUltimaSessaoFiscal": b"%s|19003|Nao existe sessao fiscal||"}

        def reply(command):
            name, session = command.split(b"|")[:2]
            return replies[name] % session

        with ScriptedDevice(self.path("sat0"), reply) as device:
            self.assertEqual(self.recover(502, REFUSED)["verdict"], "not-issued")
        self.assertEqual([command.split(b"|")[0] for command in device.commands],
                         [b"ConsultarNumeroSessao", b"ConsultarUltimaSessaoFiscal"])
        self.assertEqual(device.commands[0].split(b"|")[2:], [CODE.encode(), b"000502"])

    def test_the_device_refused_the_sale(self):
        self.start_emulator()
        self.json("enviar-dados-venda", "--dados", "<CFe/>", "--sessao", "503", expected=REFUSED)
        verdict = self.recover(503, REFUSED)
        self.assertEqual((verdict["verdict"], verdict["replies"][0]["EEEEE"]), ("refused", "06010"))
        self.assertIn("nothing was issued", self.run_satctl("recuperar", "--sessao", "503", expected=REFUSED).out)

    def test_an_unknown_session_after_another_sale(self):
        self.start_emulator()
        key = self.sell(session=504)["fields"]["chaveConsulta"]
        verdict = self.recover(777, LINK_FAILURE)
        self.assertEqual(verdict["verdict"], "unknown")
        self.assertEqual([reply["function"] for reply in verdict["replies"]],
                         ["ConsultarNumeroSessao", "ConsultarUltimaSessaoFiscal"])
        text = self.run_satctl("recuperar", "--sessao", "777", expected=LINK_FAILURE).out
        self.assertIn("satctl recuperar --sessao 777 --antes KEY. Do not send the sale again before.", text)
        self.assertRegex(text, r"The last sale or cancellation that it knows is session 000504 \(\d{14}, %s\)" % key)

    def test_found_as_the_last_fiscal_session(self):
        self.write_ini()

        def reply(command):
            name, session = command.split(b"|")[:2]
            if name == b"ConsultarNumeroSessao":
                return session + b"|11003|Sessao nao existe||"
            return b"000505|07000|0000|Cupom cancelado|||PENGZT4=|20260301100000|CFe35|1.00||QQ=="

        with ScriptedDevice(self.path("sat0"), reply):
            self.assertEqual(self.recover(505, SUCCESS)["verdict"], "cancelled")

    def test_the_session_of_another_function(self):
        self.start_emulator()
        self.run_satctl("bloquear-sat", "--sessao", "506")
        self.run_satctl("desbloquear-sat")
        self.assertEqual(self.recover(506, REFUSED)["verdict"], "not-issued")
        self.sell(session=507)
        self.assertEqual(self.recover(506, LINK_FAILURE)["verdict"], "unknown")

    def test_failures_of_the_query_leave_the_outcome_unknown(self):
        self.write_ini()
        self.assertEqual(self.recover(507, NO_DEVICE)["verdict"], "unknown")
        self.start_emulator("--fault", "on ConsultarNumeroSessao do nak 4")
        self.assertEqual(self.recover(507, LINK_FAILURE)["verdict"], "unknown")
        self.assertIn("do not send the sale again",
                      self.run_satctl("recuperar", "--sessao", "507", expected=LINK_FAILURE).out)

    def test_wrong_code(self):
        self.start_emulator()
        self.assertEqual(self.recover(508, LINK_FAILURE, code="nao-e-este")["verdict"], "unknown")

    BEFORE, NEXT, OLDER = ("CFe352603112223330001815990000000100%s1234567" % number for number in ("0100", "0101", "0099"))

    @staticmethod
    def receipt(session, key, code="06000"):
        return "%06d|%s|0000|mensagem|||PENGZT4=|20260301100000|%s|1.00||QQ==" % (session, code, key)

    def test_what_the_two_answers_say(self):
        """Stored reply, last fiscal reply, --antes; exit status, verdict, how many questions."""
        nothing, busy, unknown = "%s|11003|Sessao nao existe||", "%s|11098|Em processamento||", "%s|11099|Erro||"
        none_yet = "%s|19003|Nao existe||"
        stored = ["000600|%s|0000|mensagem||" % code for code in ("06097", "06098", "06099", "07097", "07098", "07099")]
        sold, before, newer, older = (self.receipt(*which) for which in (
            (600, self.NEXT), (599, self.BEFORE), (601, self.NEXT), (598, self.OLDER)))
        cases = [(reply, *rest) for reply in (*stored, nothing, unknown) for rest in (
            (sold, self.BEFORE, SUCCESS, "issued", 2), (sold, None, SUCCESS, "issued", 2),
            (before, self.BEFORE, REFUSED, "not-issued", 2), (newer, self.BEFORE, LINK_FAILURE, "unknown", 2),
            (older, self.BEFORE, LINK_FAILURE, "unknown", 2), (before, None, LINK_FAILURE, "unknown", 2),
            (none_yet, None, REFUSED, "not-issued", 2), (none_yet, self.BEFORE, LINK_FAILURE, "unknown", 2),
            ("%s|19098|Em processamento||", self.BEFORE, BUSY, "unknown", 2),
            ("%s|19001|Codigo||", self.BEFORE, LINK_FAILURE, "unknown", 2))]
        cases += [(sold, before, self.BEFORE, SUCCESS, "issued", 1),
                  (sold, before, None, SUCCESS, "issued", 1),
                  (self.receipt(600, self.NEXT, "07000"), before, self.BEFORE, SUCCESS, "cancelled", 1),
                  (self.receipt(600, self.BEFORE), before, self.BEFORE, REFUSED, "not-issued", 2),
                  ("000600|06010|1234|mensagem||", newer, None, REFUSED, "refused", 1),
                  (busy, before, self.BEFORE, BUSY, "unknown", 1),
                  ("%s|11097|Sessao||", before, self.BEFORE, LINK_FAILURE, "unknown", 1),
                  ("000601|06000|0000|m||", before, self.BEFORE, LINK_FAILURE, "unknown", 1)]
        self.write_ini()
        answers = {}

        def reply(command):
            name, session = command.split(b"|")[:2]
            answer = answers[name].encode()
            return answer % session if b"%s" in answer else answer

        with ScriptedDevice(self.path("sat0"), reply) as device:
            for by_session, last, key, status, verdict, questions in cases:
                with self.subTest((by_session, last, key)):
                    answers.update({b"ConsultarNumeroSessao": by_session, b"ConsultarUltimaSessaoFiscal": last})
                    del device.commands[:]
                    found = self.json("recuperar", "--sessao", "600", *(["--antes", key] if key else []), expected=status)
                    self.assertEqual((found["verdict"], found["exitStatus"]), (verdict, status))
                    self.assertEqual(len(device.commands), questions)

    def test_the_document_is_saved(self):
        self.start_emulator()
        self.sell(session=510)
        found = self.json("recuperar", "--sessao", "510", "--save-xml", self.path("cfe.xml"))
        self.assertEqual(found["document"], {"savedTo": self.path("cfe.xml")})
        self.assertTrue(self.read("cfe.xml").rstrip().endswith("</CFe>"))
        os.unlink(self.path("cfe.xml"))
        shown = self.run_satctl("recuperar", "--sessao", "510", "--save-xml", self.path("cfe.xml")).out
        self.assertIn("XML    (document saved to %s)" % self.path("cfe.xml"), shown)
        self.assertIn("<CFe", self.read("cfe.xml"))

    def test_no_document_is_saved_where_nothing_was_issued(self):
        self.start_emulator()
        self.run_satctl("recuperar", "--sessao", "511", "--save-xml", self.path("cfe.xml"), expected=REFUSED)
        self.assertFalse(os.path.exists(self.path("cfe.xml")))


if __name__ == "__main__":
    support.main()
