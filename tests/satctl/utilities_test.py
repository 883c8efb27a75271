"""satctl ini, cpf, cnpj, uf, codigo, base64."""


import os
import stat

import support
from support import REFUSED, SUCCESS, USAGE, SatctlTest


class Ini(SatctlTest):
    def setUp(self):
        super().setUp()
        self.run_satctl("versao-dll-talvex")  # the library writes its own SAT.ini
        self.original = self.read("SAT.ini")

    def get(self, section, item, expected=SUCCESS):
        return self.run_satctl("ini", "get", section, item, expected=expected).out

    def test_get(self):
        self.assertEqual(self.get("SAT_TIMEOUT", "AtivarSAT"), "1800\n")
        self.assertEqual(self.get("LOG", "LogFileName"), "\n")

    def test_get_what_is_not_there(self):
        self.assertEqual(self.get("LOG", "Nada", REFUSED), "")
        self.assertEqual(self.get("NADA", "LogMode", REFUSED), "")
        self.assertIsNone(self.json("ini", "get", "LOG", "Nada", expected=REFUSED)["value"])

    def test_get_reads_as_the_library_does(self):
        self.write("SAT.ini", "[S]\nKey = a b=c\n")
        self.assertEqual(self.get("S", "Key"), "abc\n")

    def test_without_a_file(self):
        os.unlink(self.path("SAT.ini"))
        self.run_satctl("ini", "get", "LOG", "LogMode", expected=USAGE)
        self.run_satctl("ini", "check", expected=USAGE)

    def set(self, section, item, value):
        shown = self.run_satctl("ini", "set", section, item, value).out
        self.assertEqual(shown, "[%s] %s=%s\n" % (section, item, value))
        self.assertEqual(self.get(section, item), value + "\n")
        return self.read("SAT.ini")

    def test_set_an_item_to_a_value_of_any_length(self):
        for value in ("45", "1", "123456"):
            after = self.set("SAT_TIMEOUT", "EnviarDadosVenda", value)
            lines = [line.rstrip() for line in after.splitlines() if "EnviarDadosVenda" not in line]
            self.assertEqual(lines, [line for line in self.original.splitlines() if "EnviarDadosVenda" not in line])

    def test_a_new_item_loses_nothing_of_the_rest(self):
        after = self.set("SERIAL_PORT_CONFIG", "FixarPorta", "/dev/ttyACM7")
        self.assertEqual(after.replace("FixarPorta=/dev/ttyACM7\n", ""), self.original)
        section = after.split("[SERIAL_PORT_CONFIG]")[1].split("[")[0]
        self.assertIn("FixarPorta=/dev/ttyACM7\n", section)

    def test_a_new_item_in_the_last_section_and_in_a_new_one(self):
        self.set("LOG", "Extra", "1")
        after = self.set("NOVA", "Item", "x")
        self.assertTrue(after.endswith("\n[NOVA]\nItem=x\n"))
        self.assertTrue(after.startswith(self.original.rstrip("\n")))

    def test_set_creates_the_file(self):
        os.unlink(self.path("SAT.ini"))
        self.assertEqual(self.set("LOG", "LogMode", "3"), "[LOG]\nLogMode=3\n")

    def test_line_ends_stay_as_they_are(self):
        self.write("SAT.ini", b"[LOG]\r\nLogMode=1\r\n[S]\r\nx=1\r\n")
        self.set("LOG", "LogMode", "3")
        self.set("LOG", "LogFilePath", "Log")
        content = support.Path(self.path("SAT.ini")).read_bytes()
        self.assertEqual(content, b"[LOG]\r\nLogMode=3\r\nLogFilePath=Log\r\n[S]\r\nx=1\r\n")

    def test_set_keeps_mode_and_leaves_no_copy(self):
        os.chmod(self.path("SAT.ini"), 0o640)
        self.set("LOG", "LogMode", "3")
        self.assertEqual(stat.S_IMODE(os.stat(self.path("SAT.ini")).st_mode), 0o640)
        self.assertEqual([name for name in os.listdir(self.folder) if name.startswith("SAT.ini")], ["SAT.ini"])

    def test_set_refuses_what_the_library_would_put_elsewhere(self):
        self.write("SAT.ini", "[S]\nLogFilePath=a\nLogFile=b\n")
        done = self.run_satctl("ini", "set", "S", "LogFile", "c", expected=USAGE)
        self.assertIn("nothing was written", done.err)
        self.assertEqual(self.read("SAT.ini"), "[S]\nLogFilePath=a\nLogFile=b\n")

    def test_set_refuses_values_that_cannot_be_read_back(self):
        for value in ("x" * 128, "a\nb", "a[b"):
            self.run_satctl("ini", "set", "LOG", "LogFileName", value, expected=USAGE)
        for section, item in (("LOG", ""), ("", "LogMode"), ("LOG", "a=b"), ("L]G", "LogMode")):
            self.run_satctl("ini", "set", section, item, "1", expected=USAGE)
        self.assertEqual(self.read("SAT.ini"), self.original)

    def test_set_says_when_the_library_reads_something_else(self):
        self.assertIn("it drops blanks", self.run_satctl("ini", "set", "LOG", "LogFileName", "a b").err)

    def notes(self, expected=SUCCESS):
        items = self.json("ini", "check", expected=expected)["items"]
        return {item["section"] + "." + item["item"]: (item["grade"], item["note"]) for item in items}

    def test_check_of_the_librarys_own_file(self):
        notes = self.notes()
        self.assertEqual(len(notes), 33)
        self.assertEqual({grade for grade, _ in notes.values()}, {"OK"})
        self.assertEqual(notes["SERIAL_PORT_CONFIG.FixarPorta"], ("OK", "not set, as usual"))
        self.assertEqual(notes["SAT_TIMEOUT.EnviarDadosVenda"], ("OK", "applied"))
        self.assertEqual(notes["SAT_TIMEOUT.ExtrairLogs"], ("OK", "read, but without effect"))
        self.assertEqual(notes["ARVOLEN.PathWindows"], ("OK", "for Windows only"))
        self.assertEqual(self.json("ini", "check")["strayLines"], [])

    def test_check_of_every_kind_of_trouble(self):
        self.write("SAT.ini", "[SERIAL_PORT_CONFIG]\nFixarPorta=/dev/ttyACM\nReadIntervalTimeout=99\nFixaPorta=x\n"
                   "[SAT_TIMEOUT]\nEnviarDadosVenda=abc\nExtrairLogs=60\n"
                   "[SAT_EMULATOR]\nSerialPortLinux=/dev/%s1\nEnable=yes\n[LOG]\nLogMode=9\nLogFileMaxSize=-1\n"
                   "LogMode=2\n" % ("x" * 40))
        notes = self.notes(expected=REFUSED)
        self.assertEqual(notes["SERIAL_PORT_CONFIG.FixarPorta"], ("FAIL", "a port's name must end in a digit"))
        self.assertEqual(notes["SERIAL_PORT_CONFIG.ReadIntervalTimeout"], ("WARN", "read, but without effect"))
        self.assertEqual(notes["SAT_TIMEOUT.EnviarDadosVenda"], ("WARN", "no number above 0: the default holds"))
        self.assertEqual(notes["SAT_TIMEOUT.ExtrairLogs"], ("WARN", "read, but without effect"))
        self.assertEqual(notes["SAT_EMULATOR.SerialPortLinux"],
                         ("FAIL", "a port's name may have 31 characters: not read"))
        self.assertEqual(notes["SAT_EMULATOR.Enable"],
                         ("WARN", "off: only a value that begins with 1 switches it on"))
        self.assertEqual(notes["LOG.LogMode"], ("WARN", "no digit from 0 to 5: counts as 1"))
        self.assertEqual(notes["LOG.LogFilePath"], ("OK", "not set: Log holds"))
        self.assertEqual(self.json("ini", "check", expected=REFUSED)["strayLines"],
                         ["line 4: [SERIAL_PORT_CONFIG] FixaPorta: unknown item, not read",
                          "line 14: [LOG] LogMode: second occurrence, not read"])


class Numbers(SatctlTest):
    def test_valid(self):
        for command, number in (("cpf", "12345678909"), ("cpf", "123.456.789-09"), ("cnpj", "11222333000181"),
                                ("cnpj", "11.222.333/0001-81")):
            self.assertEqual(self.run_satctl(command, number).out, number + ": valid\n")

    def test_not_valid(self):
        cases = [("cpf", "12345678900", -3007), ("cpf", "1234567890", -3014), ("cpf", "123456789012", -3015),
                 ("cpf", "1234567890A", -3013), ("cpf", "123.456.789x09", -3012), ("cpf", "123..456.789-0", -3017),
                 ("cnpj", "11222333000182", -3007), ("cnpj", "112223330001", -3004), ("cnpj", "1" * 16, -3005),
                 ("cnpj", "11222333000A81", -3003), ("cnpj", "11.222.333/0001x81", -3002)]
        for command, number, code in cases:
            with self.subTest(number):
                answer = self.json(command, number, expected=REFUSED)
                self.assertEqual((answer["valid"], answer["code"]), (False, code))
                self.assertEqual(self.run_satctl("--raw", command, number, expected=REFUSED).out, "%d\n" % code)

    def test_nothing_is_written(self):
        self.run_satctl("cpf", "1", expected=REFUSED)
        self.assertEqual(os.listdir(self.folder), [])


class States(SatctlTest):
    def test_by_code_letters_and_name(self):
        for state in ("35", "SP", "sp", "SAO PAULO"):
            self.assertEqual(self.json("uf", state), {"code": 35, "uf": "SP", "name": "SAO PAULO", "region": "SUDESTE"})

    def test_all(self):
        lines = self.run_satctl("uf").out.splitlines()
        self.assertEqual(len(lines), 27)
        self.assertEqual(lines[0].split(), ["11", "RO", "RONDONIA", "NORTE"])

    def test_unknown(self):
        for state in ("99", "XX", "São Paulo"):
            self.run_satctl("uf", state, expected=REFUSED)


class Codes(SatctlTest):
    def test_known(self):
        self.assertEqual(self.run_satctl("codigo", "06010").out,
                         "06010  Erro de validacao do conteudo\n  EnviarDadosVenda, content\n")
        self.assertEqual(self.json("codigo", "4000"), {"code": "04000", "known": True, "message": "SAT Ativado Corretamente",
                                                       "function": "AtivarSAT", "class": "success"})
        self.assertEqual(self.json("codigo", "8098")["class"], "busy")
        for code in ("6097", "6098", "6099", "7097", "7098", "7099"):
            self.assertEqual(self.json("codigo", code)["class"], "unsettled")
        self.assertEqual(self.json("codigo", "4219")["class"], "sefaz")
        self.assertEqual(self.json("codigo", "4004")["class"], "state")

    def test_unknown(self):
        for code in ("12345", "0", "99999", "55555"):
            self.assertFalse(self.json("codigo", code, expected=REFUSED)["known"])

    def test_no_code(self):
        for code in ("abc", "123456"):
            self.run_satctl("codigo", code, expected=USAGE)


class Base64(SatctlTest):
    def test_there_and_back(self):
        for size in (0, 1, 2, 3, 100_000):
            content = os.urandom(size)
            encoded = self.run_satctl("base64", "encode", stdin=content).stdout
            self.assertEqual(self.run_satctl("base64", "decode", stdin=encoded).stdout, content)

    def test_values(self):
        self.assertEqual(self.run_satctl("base64", "encode", "Man").out, "TWFu\n")
        self.assertEqual(self.run_satctl("base64", "decode", "TQ==").out, "M")
        self.assertEqual(self.run_satctl("base64", "decode", "@" + self.write("b64", "TW\r\nFu\n")).out, "Man")

    def test_what_is_no_base64(self):
        for text in ("T", "TQ=", "T===", "TW!u", "TW=u"):
            self.assertEqual(self.run_satctl("base64", "decode", text, expected=REFUSED).stdout, b"")


class Completion(SatctlTest):
    def test_it_offers_commands_and_options(self):
        script = os.path.join(os.path.dirname(__file__), "../../packaging/completion/satctl")

        def offered(*words):
            line = " ".join(words)
            shell = ('source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _satctl; '
                     'printf "%s\\n" "${COMPREPLY[@]}"')
            done = support.subprocess.run(["bash", "-c", shell, "bash", script, *words], capture_output=True, text=True,
                                          check=True, timeout=support.ONE_RUN, env=support.environment())
            self.assertEqual(done.stderr, "", line)
            return done.stdout.split()

        self.assertIn("enviar-dados-venda", offered("satctl", "env"))
        self.assertEqual(offered("satctl", "consultar-u"), ["consultar-ultima-sessao-fiscal"])
        self.assertEqual(offered("satctl", "EnviarD"), ["EnviarDadosVenda"])
        self.assertEqual(offered("satctl", "Cons"), [
            "ConsultarSAT", "ConsultarStatusOperacional", "ConsultarNumeroSessao", "ConsultarUltimaSessaoFiscal"])
        self.assertEqual(offered("satctl", "ini", ""), ["get", "set", "check"])
        self.assertEqual(offered("satctl", "base64", ""), ["encode", "decode"])
        for command in ("ini", "base64"):
            self.assertEqual(offered("satctl", command, "--js"), ["--json"])
        self.assertIn("--save-xml", offered("satctl", "enviar-dados-venda", "--"))
        self.assertIn("--bundle", offered("satctl", "--json", "doctor", "--"))
        # Under both of its names a function takes the same options.
        for line in self.run_satctl("--help").out.splitlines():
            names = support.re.match(r"  ([a-z-]+) .*\((\w+)\)$", line)
            if names and names.group(2)[0].isupper():
                self.assertIn(names.group(2), offered("satctl", names.group(2)))
                self.assertEqual(offered("satctl", names.group(1), "-"), offered("satctl", names.group(2), "-"))

    def test_it_knows_every_option_of_every_command(self):
        script = support.Path(__file__).resolve().parents[2] / "packaging/completion/satctl"
        known = script.read_text(encoding="utf-8")
        for command in [line.split()[0] for line in self.run_satctl("--help").out.splitlines()
                        if line.startswith("  ") and line[2].islower() and not line.startswith("  satctl")]:
            if command == "export":
                continue
            self.assertIn(command, known)
            for option in support.re.findall(r"(?m)^  (?:-\w,)?(--[a-z-]+)", self.run_satctl(command, "--help").out):
                self.assertIn(option, known, command)


if __name__ == "__main__":
    support.main()
