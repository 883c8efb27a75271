"""satctl log: logs of several days, written here and by the library itself."""

import json
import os
import re
import select
import subprocess
import time

import support
from support import CODE, LINK_FAILURE, REFUSED, SALE, USAGE, SatctlTest

API = "[0100] [../src/api/TALVEX] "


def trace(printed, level, text):
    return "[%s]%s %s\n" % (printed, level, text)


def call_in_trace(printed, milliseconds, command, reply):
    def at(more):
        return "%s.%03d" % (printed, milliseconds + more)
    return "".join([
        trace(at(0), "INF", API + "[findSat]Lnx: rc[000000]OK \n\t Port[00012:/dev/ttyACM0] Saved on file[SAT.conf]"),
        trace(at(10), "INF", API + "[Communicate]Lnx:OK:STEP-04a rc[000000]\n\t   Dev[/dev/ttyACM0]\n\t hComm[00000004h]Successfull "
              "Openned!"),
        trace(at(11), "INF", API + "[Communicate]Lnx:ER:STEP-05a rc[000000]OK: Locked"),
        trace(at(12), "INF", API + "[Communicate]Lnx:OK:STEP-06a rc[000000]OK lSerialSettingsL\n\t   Dev[/dev/ttyACM0]"),
        trace(at(20), "INF", API + "[lSerialWriteBufL]Lnx\n\t >> Sent[0022] hC[00000004h]\n\t >> PC->SAT Sent[00022:\x02%s]"
              % command),
        trace(at(30), "INF", API + "[cSerialReadAck]  rc[00001]WR:Lnx\n\t << SAT->PC Rcvd[06h]ACK"),
        trace(at(31), "INF", API + "[Communicate]Lnx:OK:STEP-07a rc[000022]\n\t   Dev[/dev/ttyACM0]"),
        trace(at(90), "INF", API + "[cSerialReadBufW]Lnx Rcvd\n\t << SAT->SO  Recv[0032:<STX>%s]" % reply),
        trace(at(91), "INF", API + "[lSerialWriteAck]Lnx \n\t >> PC->SAT Sent[06h]ACK"),
        trace(at(92), "INF", API + "[Communicate]Lnx:OK:STEP-08a rc[000030]OK")])


def frames(stamp, command, reply):
    return ("%s PC->SAT >> [<02>%s<41><03>]OK:a\n%s SAT->PC << [<02>%s<--><03>]WR:d\n"
            % (stamp, command, stamp, reply))


class WrittenLogs(SatctlTest):
    def setUp(self):
        super().setUp()
        self.write_ini()
        # Three in the morning of the first day prints as hour 24, midnight of the second as hour 21.
        self.write("Log/20260301_SAT_api.log_bkp_00.log",
                   call_in_trace("21:30:00", 0, "ConsultarSAT|000100", "000100|08000|SAT em operacao||"))
        self.write("Log/20260301_SAT_api.log",
                   call_in_trace("24:15:07", 250, "ConsultarSAT|000101", "000101|08000|SAT em operacao||") +
                   trace("01:00:00.000", "ERR", API + "[Communicate]Lnx:ER:STEP-02e rc[-02000]SAT Not Found!\n\t LibVer[x]") +
                   trace("01:00:00.001", "ERR", API + "[ConsultarStatusOperacional] rc[-02000]ER\n\t << SAT_Rsp[00083:SAT "
                         "Erro[-02000]Lnx SAT Nao Encontrado L[2193] F[Communicate]]"))
        self.write("Log/20260301_SAT_ProtocolLog.txt",
                   frames("20260301003000", "ConsultarSAT|000100", "000100|08000|SAT em operacao||") +
                   frames("20260301031507", "ConsultarSAT|000101", "000101|08000|SAT em operacao||"))
        self.write("Log/20260302_SAT_ProtocolLog.txt",
                   frames("20260302120000", "ExtrairLogs|000200|%s" % CODE, "000200|15001|Codigo ativacao invalido||") +
                   "20260302120001 SAT->PC << [ConsultarSAT|00020<00><03>]WR:CKSUM=0x00--\n" +
                   "20260302120001 SAT->PC << [<02>000201|08000|SAT em operacao||<--><03>]WR:d\n")

    def lines(self, *arguments, **keywords):
        return self.run_satctl("log", *arguments, **keywords).out.splitlines()

    def records(self, *arguments):
        return [json.loads(line) for line in self.run_satctl("log", "--json", *arguments).out.splitlines()]

    def test_the_last_day_by_default(self):
        self.assertEqual({record["time"][:10] for record in self.records()}, {"2026-03-02"})

    def test_days_and_dates(self):
        for arguments, days in ((("--date", "2026-03-01"), {"2026-03-01"}), (("--date", "20260302"), {"2026-03-02"}),
                                (("--days", "2"), {"2026-03-01", "2026-03-02"}),
                                (("--all",), {"2026-03-01", "2026-03-02"}),
                                (("--date", "2026-03-02", "--days", "2"), {"2026-03-01", "2026-03-02"})):
            with self.subTest(arguments):
                self.assertEqual({record["time"][:10] for record in self.records(*arguments)}, days)

    def test_a_day_without_logs(self):
        self.run_satctl("log", "--date", "2026-02-28", expected=REFUSED)

    def test_the_hour_of_the_trace_is_three_hours_back_and_that_of_the_frames_is_not(self):
        opened = [record["time"] for record in self.records("--date", "2026-03-01") if "STEP-04a" in record["text"]]
        self.assertEqual(opened, ["2026-03-01 00:30:00.010", "2026-03-01 03:15:07.260"])
        last = self.records("--date", "2026-03-01")[-1]
        self.assertEqual(last["time"], "2026-03-01 04:00:00.001")
        times = [record["time"] for record in self.records("--date", "2026-03-01") if "direction" in record]
        self.assertEqual(times, ["2026-03-01 00:30:00.020", "2026-03-01 00:30:00.090", "2026-03-01 03:15:07.270",
                                 "2026-03-01 03:15:07.340"])

    def test_frames_alone_have_whole_seconds(self):
        self.assertEqual([record["time"] for record in self.records()],
                         ["2026-03-02 12:00:00", "2026-03-02 12:00:00", "2026-03-02 12:00:01", "2026-03-02 12:00:01"])

    def test_a_record_keeps_its_lines(self):
        text = "\n".join(self.lines("--date", "2026-03-01"))
        self.assertIn("STEP-04a rc[000000]\n        \t   Dev[/dev/ttyACM0]\n", text)

    def test_time_line(self):
        shown = self.lines("--date", "2026-03-01", "--calls")
        first = ["2026-03-01 00:30:00.000 ConsultarSAT  session 100  => 08000  0.092 s",
                 "    +0.010     (0.010)    port opened",
                 "    +0.011     (0.001)    port locked",
                 "    +0.012     (0.001)    port set up",
                 "    +0.020     (0.008)    command sent, 19 bytes",
                 "    +0.030     (0.010)    device: ACK",
                 "    +0.031     (0.001)    command acknowledged",
                 "    +0.090     (0.059)    reply received, 30 bytes: 08000",
                 "    +0.091     (0.001)    ACK sent",
                 "    +0.092     (0.001)    port closed"]
        self.assertEqual(shown[:10], first)
        self.assertEqual(shown[-2:], [
            "2026-03-01 04:00:00.000 ConsultarStatusOperacional  session ?  => -2000  0.001 s",
            "    +0.000     (0.000)    no device found"])
        self.assertEqual(len([line for line in shown if line.startswith("2026")]), 3)

    def test_time_line_from_the_protocol_log_alone(self):
        calls = self.records("--calls")
        self.assertEqual([(call["function"], call["session"], call["code"]) for call in calls],
                         [("ExtrairLogs", 200, "15001"), ("ConsultarSAT", 20, "08000")])

    def test_filters(self):
        day = ("--date", "2026-03-01")
        cases = [(("--sessao", "101"), {"2026-03-01 03:15"}), (("--function", "consultar-status-operacional"),
                                                                 {"2026-03-01 04:00"}),
                 (("--function", "findSat"), {"2026-03-01 00:30", "2026-03-01 03:15"}),
                 (("--since", "03:15:08"), {"2026-03-01 04:00"}), (("--until", "03:00"), {"2026-03-01 00:30"}),
                 (("--since", "2026-03-01 01:00", "--until", "2026-03-01 03:30:00"), {"2026-03-01 03:15"}),
                 (("--level", "ERR"), {"2026-03-01 04:00"})]
        for arguments, minutes in cases:
            with self.subTest(arguments):
                self.assertEqual({record["time"][:16] for record in self.records(*day, *arguments)}, minutes)
        self.assertEqual({record.get("session") for record in self.records(*day, "--sessao", "101")}, {101})
        self.assertEqual(len(self.records(*day, "-n", "3")), 3)

    def test_wrong_filters(self):
        for arguments in (("--since", "25:00"), ("--until", "yesterday"), ("--since", "2026-13-01"), ("--level", "BAD"),
                          ("--date", "1.3.2026"), ("--days", "0"), ("-f", "--calls"), (self.path("SAT.ini"),),
                          ("/nonexistent",)):
            with self.subTest(arguments):
                self.run_satctl("log", *arguments, expected=USAGE)

    def test_frames_are_decoded(self):
        command, reply = self.records("--frames")[:2]
        self.assertEqual(command, {"time": "2026-03-02 12:00:00", "direction": "PC->SAT", "mark": "OK:a",
                                   "fields": {"NomeDoComando": "ExtrairLogs", "numeroSessao": "000200",
                                              "codigoDeAtivacao": "********"}})
        self.assertEqual(reply["fields"], {"numeroSessao": "000200", "EEEEE": "15001", "mensagem": "Codigo ativacao invalido",
                                           "cod": "", "mensagemSEFAZ": ""})
        self.assertIn("    codigoDeAtivacao  %s" % CODE, self.lines("--frames", "--no-mask"))

    def test_a_sent_frame_with_a_zero_checksum_stands_under_its_true_direction(self):
        self.assertEqual(self.records("--frames")[2]["direction"], "PC->SAT")

    def test_files_by_name_also_when_renamed(self):
        os.rename(self.path("Log/20260302_SAT_ProtocolLog.txt"), self.path("from-a-shop.txt"))
        calls = self.records("--calls", self.path("from-a-shop.txt"))
        self.assertEqual([call["session"] for call in calls], [200, 20])

    def test_garbage_between_records(self):
        with open(self.path("Log/20260302_SAT_ProtocolLog.txt"), "ab") as log:
            log.write(b"\xff\xfe\x1b[2J\n20269999999999 PC->SAT >> [\n")
        done = self.run_satctl("log", "--all")
        self.assertNotIn("\x1b", done.out)
        self.run_satctl("log", "--calls", "--all")


class JoinedLogs(SatctlTest):
    """Which call a failure belongs to, where the times of the two logs do not tell."""

    PRINTED, STAMP = "09:00:", "202603021200"

    def setUp(self):
        super().setUp()
        self.write_ini()

    def failure(self, second, function, code="-02003"):
        return (trace(self.PRINTED + second, "ERR", API + "[Communicate]Lnx:ER:STEP-08b rc[%s]ER:\n\t   Dev[/dev/ttyACM0] "
                      "LibVer[23-JUL-2020] BuildDate[Jul 27 2020-10:41:14]" % code) +
                trace(self.PRINTED + second, "ERR", API + "[%s] rc[%s]ER\n\t << SAT_Rsp[00040:SAT Erro[%s]Lnx SAT falhou]"
                      % (function, code, code)))

    def sent(self, second, text):
        return "%s%s PC->SAT >> [<02>%s<41><03>]OK:a\n" % (self.STAMP, second, text)

    def received(self, second, text):
        return "%s%s SAT->PC << [<02>%s<--><03>]WR:d\n" % (self.STAMP, second, text)

    def calls(self, messages, frames_, *arguments):
        self.write("Log/20260302_SAT_api.log", messages)
        self.write("Log/20260302_SAT_ProtocolLog.txt", frames_)
        lines = self.run_satctl("log", "--calls", "--json", *arguments).out.splitlines()
        return [(call["function"], call["session"], call["code"], call["milliseconds"],
                 [step["what"] for step in call["steps"] if step["error"]]) for call in map(json.loads, lines)]

    def test_a_lost_sale_keeps_its_failure_when_a_query_follows_at_once(self):
        sale, query = "EnviarDadosVenda|000010|%s|<CFe/>" % CODE, "ConsultarNumeroSessao|000011|%s|000010" % CODE
        self.assertEqual(self.calls(self.failure("30.400", "EnviarDadosVenda"),
                                    self.sent("00", sale) + self.sent("30", query) +
                                    self.received("30", "000010|06000|0000|Emitido com sucesso||")),
                         [("EnviarDadosVenda", 10, "-2003", 30400, ["no reply received"]),
                          ("ConsultarNumeroSessao", 11, "06000", 0, [])])

    def test_a_lost_query_behind_a_lost_sale(self):
        sale, query = "EnviarDadosVenda|000010|%s|<CFe/>" % CODE, "ConsultarNumeroSessao|000011|%s|000010" % CODE
        self.assertEqual(self.calls(self.failure("30.400", "EnviarDadosVenda") +
                                    self.failure("50.500", "ConsultarNumeroSessao"),
                                    self.sent("00", sale) + self.sent("30", query)),
                         [("EnviarDadosVenda", 10, "-2003", 30400, ["no reply received"]),
                          ("ConsultarNumeroSessao", 11, "-2003", 20500, ["no reply received"])])

    def test_a_lost_sale_that_is_repeated_with_its_session(self):
        sale = "EnviarDadosVenda|000010|%s|<CFe/>" % CODE
        self.assertEqual(self.calls(self.failure("30.400", "EnviarDadosVenda"),
                                    self.sent("00", sale) * 2 + self.sent("31", sale) +
                                    self.received("32", "000010|06000|0000|Emitido com sucesso||")),
                         [("EnviarDadosVenda", 10, "-2003", 30400, ["no reply received"]),
                          ("EnviarDadosVenda", 10, "06000", 1000, [])])

    def test_an_error_of_a_call_that_went_well_is_not_the_next_ones(self):
        checksum = trace(self.PRINTED + "01.200", "ERR", API + "[cSerialReadBufW] ERRO CHECKSUM Bytes[0x45]!=[0x44]")
        self.assertEqual(self.calls(checksum + self.failure("12.000", "ExtrairLogs"),
                                    self.sent("01", "ConsultarSAT|000020") +
                                    self.received("01", "000020|08000|SAT em operacao||") +
                                    self.sent("02", "ExtrairLogs|000021|%s" % CODE)),
                         [("ConsultarSAT", 20, "08000", 200, ["reply with a wrong checksum"]),
                          ("ExtrairLogs", 21, "-2003", 10000, ["no reply received"])])

    def test_a_failure_without_a_frame_takes_nobodys(self):
        not_found = (trace(self.PRINTED + "05.100", "ERR", API + "[Communicate]Lnx:ER:STEP-02e rc[-02000]SAT Not Found!") +
                     trace(self.PRINTED + "05.100", "ERR", API + "[ConsultarSAT] rc[-02000]ER\n\t << SAT_Rsp[00083:SAT "
                           "Erro[-02000]Lnx SAT Nao Encontrado L[2193] F[Communicate]]"))
        self.assertEqual(self.calls(not_found, self.sent("05", "ConsultarSAT|000030") +
                                    self.received("06", "000030|08000|SAT em operacao||")),
                         [("ConsultarSAT", 30, "08000", 1000, []), ("ConsultarSAT", -1, "-2000", 0, ["no device found"])])

    def test_replies_of_two_tills_in_one_log(self):
        self.assertEqual(self.calls("", self.sent("05", "ConsultarSAT|000030") + self.sent("05", "ConsultarSAT|000031") +
                                    self.received("06", "000030|08000|SAT em operacao||") +
                                    self.received("06", "000031|08098|SAT em processamento||")),
                         [("ConsultarSAT", 30, "08000", 1000, []), ("ConsultarSAT", 31, "08098", 1000, [])])

    def test_the_last_so_many_calls(self):
        log = "".join(self.sent("%02d" % n, "ConsultarSAT|%06d" % n) +
                      self.received("%02d" % n, "%06d|08000|SAT em operacao||" % n) for n in range(1, 6))
        self.assertEqual([call[1] for call in self.calls("", log, "-n", "2")], [4, 5])
        self.assertEqual([call[1] for call in self.calls("", log, "-n", "0")], [])

    def test_records_of_a_session_are_those_of_its_call(self):
        self.calls(self.failure("30.400", "EnviarDadosVenda"),
                   self.sent("00", "EnviarDadosVenda|000010|%s|<CFe/>" % CODE) +
                   self.sent("30", "ConsultarSAT|000011") + self.received("30", "000011|08000|SAT em operacao||"))
        shown = self.run_satctl("log", "--sessao", "10").out
        self.assertIn("STEP-08b", shown)
        self.assertNotIn("ConsultarSAT", shown)
        self.assertNotIn("STEP-08b", self.run_satctl("log", "--sessao", "11").out)


class LibrarysOwnLogs(SatctlTest):
    def test_masking_at_every_level(self):
        self.start_emulator(log_mode=5)
        self.sell(session=9)
        self.run_satctl("trocar-codigo-de-ativacao", "--opcao", "1", "--novo-codigo", "segredo-novo", "--confirmacao",
                        "segredo-novo")
        self.run_satctl("teste-fim-a-fim", "--dados", "@%s" % SALE, code="segredo-novo")
        secrets = (CODE, "segredo-novo", "11222333000181", "12345678000195", "12345678909")
        open_text = self.run_satctl("log", "--no-mask").out
        for view in ((), ("--frames",), ("--json",), ("--frames", "--json"), ("--calls",)):
            shown = self.run_satctl("log", *view).out
            for secret in secrets:
                self.assertIn(secret, open_text)
                self.assertNotIn(secret, shown, view)

    def test_formatted_numbers_and_those_of_the_reply(self):
        self.write_ini()
        self.write("Log/20260302_SAT_ProtocolLog.txt", "20260302120000 SAT->PC << [<02>000200|06000|0000|x CPF 123.456.789-09 "
                   "CNPJ 11.222.333/0001-81|||QQ==|20260301120000|CFe35260311222333000181599000000010000011234564|10.00|"
                   "99999999999|QQ==<--><03>]WR:d\n")
        shown = self.run_satctl("log").out
        self.assertRegex(shown, r"\|\*1\* CPF \*14\* CNPJ \*18\*\|\|\|\*4 [0-9a-f]{8}\*\|20260301120000\|CFe352603\*\*\*4564\|10\.00\|"
                         r"\*11\*\|\*4 [0-9a-f]{8}\*  WR:d")

    def test_secrets_that_only_their_surroundings_give_away(self):
        self.write_ini()
        sat_utils = "[0070] [../src/olk_sat_utils/olk_sat_utils] [SAT_API_CmdPktParcer]--- >> "
        self.write("Log/20260302_SAT_api.log", trace("09:00:00.000", "INF", sat_utils + "P03=[00000011:%s]" % CODE) +
                   trace("09:00:00.001", "INF", sat_utils + "P02=[00000006:004711]SAT:numeroSessao(AC-RND)") +
                   trace("09:00:00.002", "INF", API + "[f]<CPF>12345678900</CPF> cut off at <CNPJ>112223") +
                   trace("09:00:00.003", "INF", API + "[lSerialWriteBufL]Lnx\n\t >> Sent[0060] hC[00000004h]\n\t >> PC->SAT "
                         "Sent[00060:\x02AtivarSAT|000001|1|%s|11222333000182|35]" % CODE))
        shown = self.run_satctl("log").out
        for secret in (CODE, "12345678900", "112223"):
            self.assertNotIn(secret, shown)
        self.assertIn("P03=[00000011:*11*]", shown)
        self.assertIn("P02=[00000006:004711]", shown)
        self.assertIn("INF     *%d*" % len(API + "[f]<CPF>12345678900</CPF> cut off at <CNPJ>112223"), shown)
        self.assertIn("[lSerialWriteBufL]Lnx\n        \t >> Sent[0060] hC[00000004h]\n        \t >> PC->SAT Sent[00060:"
                      "<02>AtivarSAT|000001|1|********|*14*|35]", shown)

    def test_errors_of_the_link_stand_in_the_time_line(self):
        self.start_emulator("--fault", "on ConsultarSAT nth=1 do nak 1", "--fault", "on ConsultarSAT nth=2 do wrong-checksum 1",
                            "--fault", "on ConsultarSAT nth=3 do nak 4", log_mode=3)
        self.run_satctl("consultar-sat", "--sessao", "1")
        self.run_satctl("consultar-sat", "--sessao", "2")
        self.run_satctl("consultar-sat", "--sessao", "3", expected=LINK_FAILURE)
        calls = {call["session"]: call for call in map(json.loads, self.run_satctl("log", "--calls", "--json").out.splitlines())}

        def errors(session):
            return [step["what"] for step in calls[session]["steps"] if step["error"]]

        self.assertEqual(errors(1), ["device: NAK, the command is sent again"])
        self.assertEqual(errors(2), ["reply with a wrong checksum", "NAK sent: the reply is wanted again"])
        self.assertIn("command not acknowledged", errors(3))
        self.assertEqual([calls[session]["code"] for session in (1, 2, 3)], ["08000", "08000", "-2009"])

    def test_a_sale_of_several_blocks_is_one_call(self):
        self.start_emulator(log_mode=5)
        self.run_satctl("enviar-dados-venda", "--sessao", "4", "--dados", "<CFe>%s</CFe>" % ("x" * 40_000),
                        expected=REFUSED)
        calls = [json.loads(line) for line in self.run_satctl("log", "--calls", "--json").out.splitlines()]
        self.assertEqual([(call["function"], call["session"]) for call in calls], [("EnviarDadosVenda", 4)])

    def follow(self, *arguments):
        process = subprocess.Popen(self.command("log", "-f", *arguments), stdout=subprocess.PIPE,
                                   env=support.environment())
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait, 10)
        self.addCleanup(process.kill)
        return process

    def read_until(self, process, text):
        shown = b""
        while not re.search(re.escape(text) + rb"[^\n]*\n", shown):  # the whole line
            select.select([process.stdout], [], [])
            piece = os.read(process.stdout.fileno(), 65536)
            self.assertNotEqual(piece, b"", shown)
            shown += piece
        return shown

    def test_follow(self):
        self.start_emulator(log_mode=1)
        self.run_satctl("consultar-sat", "--sessao", "1")
        process = self.follow("--json")
        self.read_until(process, b"000001|08000")
        self.run_satctl("extrair-logs", "--sessao", "2")
        shown = self.read_until(process, b"000002|15000")
        self.assertIn(b"ExtrairLogs|000002|********", shown)
        self.assertNotIn(CODE.encode(), shown)
        self.assertEqual(len(re.findall(b'"direction":[^\n]*"call":"ExtrairLogs"', shown)), 2)

    def test_follow_through_a_rotation(self):
        self.write_ini()
        name = time.strftime("%Y%m%d", time.gmtime(time.time() - 3 * 3600)) + "_SAT_api.log"
        self.write("Log/" + name, trace("09:00:00.000", "ERR", API + "[findSat]first"))
        process = self.follow("--no-mask")
        self.read_until(process, b"first")
        with open(self.path("Log/" + name), "a", encoding="utf-8") as log:
            log.write(trace("09:00:01.000", "ERR", API + "[findSat]second"))
        self.read_until(process, b"second")
        os.rename(self.path("Log/" + name), self.path("Log/" + name + "_bkp_00.log"))
        self.write("Log/" + name, trace("09:00:02.000", "ERR", API + "[findSat]third"))
        shown = self.read_until(process, b"third")
        self.assertEqual(shown.count(b"second"), 0)


if __name__ == "__main__":
    support.main()
