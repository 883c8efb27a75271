"""The lists of places in CONTRIBUTING.md are right, and the check that says so finds what is wrong."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

TOP = pathlib.Path(__file__).resolve().parents[2]
CHECK = TOP / "scripts/check-places"


def check(tree):
    run = subprocess.run([sys.executable, CHECK, tree], capture_output=True, text=True)
    return run.returncode, run.stderr


class ThisTree(unittest.TestCase):
    def test_every_place_is_listed_and_knows_all(self):
        self.assertEqual(check(TOP), (0, ""))


class TheCheck(unittest.TestCase):
    NAMES = ("AtivarSAT", "ConsultarSAT", "ExtrairLogs", "BloquearSAT")

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.tree = pathlib.Path(folder.name)
        rows = "".join(f'{{.name = "{name}", .default_timeout_s = 10}},\n' for name in self.NAMES)
        self.write("src/olk_sat_utils/sat_functions.h", rows)
        self.write("src/api/default_configuration.cpp", '"LogMode=1", "LogFilePath=Log", "FixarPorta="')
        self.write("tools/functions.h", "ativar_sat, consultar_sat, extrair_logs, bloquear_sat")
        self.write("tests/unit/everything_test.cpp", rows)
        self.guide("tools/functions.h")

    def write(self, name, text):
        path = self.tree / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)

    def guide(self, *places):
        rows = "".join(f"| `{place}` | it |\n" for place in ("src/olk_sat_utils/sat_functions.h", *places))
        self.write("CONTRIBUTING.md", f"# C\n\n### A SAT function\n\n| place | what |\n|---|---|\n{rows}\n"
                   "### A setting of SAT.ini\n\n| `src/api/default_configuration.cpp` | it |\n")

    def assert_complains(self, text):
        self.assertEqual(check(self.tree), (1, text + "\n"))

    def test_right_lists(self):
        self.assertEqual(check(self.tree), (0, ""))

    def test_a_place_that_is_gone(self):
        (self.tree / "tools/functions.h").unlink()
        self.assert_complains("A SAT function: tools/functions.h does not exist")

    def test_a_place_that_has_missed_a_function(self):
        self.write("tools/functions.h", "ativar_sat, consultar_sat, extrair_logs")
        self.assert_complains("A SAT function: tools/functions.h does not know BloquearSAT")

    def test_a_place_that_is_not_listed(self):
        self.write("tools/more.cpp", " ".join(self.NAMES[1:]))
        self.assert_complains("A SAT function: tools/more.cpp knows them too, and is not in the list")

    def test_a_setting_that_is_known_elsewhere(self):
        self.write("tools/ini.cpp", "LogMode LogFilePath FixarPorta")
        self.assert_complains("A setting of SAT.ini: tools/ini.cpp knows them too, and is not in the list")

    def test_a_time_out_that_was_changed_in_one_place_only(self):
        self.write("docs/settings.md", "| `AtivarSAT` | 10 |\n| `ConsultarSAT` | 10 |\n| `ExtrairLogs` | 20 |\n"
                   "| `BloquearSAT` | 10 |\n")
        self.guide("tools/functions.h", "docs/settings.md")
        with open(self.tree / "CONTRIBUTING.md", "a") as guide:
            guide.write("\n### A default time-out\n\n| `docs/settings.md` | it |\n")
        self.assert_complains("A default time-out: docs/settings.md has no 10 for ExtrairLogs")

    def test_a_list_that_is_not_there(self):
        self.write("CONTRIBUTING.md", "# C\n\n### A SAT function\n\n| `src/olk_sat_utils/sat_functions.h` | it |\n"
                   "| `tools/functions.h` | it |\n")
        code, complaints = check(self.tree)
        self.assertEqual(code, 1)
        self.assertIn("A setting of SAT.ini: nothing to compare", complaints)


if __name__ == "__main__":
    unittest.main()
