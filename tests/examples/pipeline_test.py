"""The commands of examples/ci's Dockerfile and pipeline, run as they stand, in a folder as they expect it.

Without containers: apt-get is a stand-in that checks what it is asked for, and the programs are those of the staged
installation. pipeline_test.py PREFIX LIBDIR
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

EXAMPLES = pathlib.Path(__file__).resolve().parents[2] / "examples"
PREFIX, LIBDIR = pathlib.Path(sys.argv.pop(1)), sys.argv.pop(1)

APT_GET = """#!/bin/sh
# Packages are files that are there, or Debian's.
echo "$@" >>"$APT_GET_LOG"
for word; do
  case $word in
    update|install|-y|--no-install-recommends|python3-pytest) ;;
    ./packages/*.deb) test -f "$word" || exit 100 ;;
    *) echo "what is $word?" >&2; exit 100 ;;
  esac
done
"""


def docker_commands(text):
    return re.findall(r"^(?:RUN|CMD) (.*)$", text, re.MULTILINE)


def pipeline_commands(text):
    return re.findall(r"^    - (.*)$", text.partition("  script:\n")[2], re.MULTILINE)


class Pipelines(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="ci")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        shutil.copytree(EXAMPLES, self.folder / "examples", ignore=shutil.ignore_patterns("__pycache__"))
        (self.folder / "packages").mkdir()
        (self.folder / "packages/libtalvex2_2.0.0_amd64.deb").touch()
        (self.folder / "bin").mkdir()
        (self.folder / "bin/apt-get").write_text(APT_GET)
        (self.folder / "bin/apt-get").chmod(0o755)
        # /usr/bin first: Debian's python3 is the one that has Debian's pytest.
        self.environment = dict(os.environ, PATH="%s:%s:/usr/bin:/bin" % (self.folder / "bin", PREFIX / "bin"),
                                LD_LIBRARY_PATH=str(PREFIX / LIBDIR), APT_GET_LOG=str(self.folder / "apt-get.log"),
                                PYTHONDONTWRITEBYTECODE="1")
        for name in ("SAT_EMULATOR", "TALVEX_LIBRARY"):
            self.environment.pop(name, None)

    def run_command(self, command):
        return subprocess.run(["/bin/sh", "-euc", command], cwd=self.folder, env=self.environment, timeout=100,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)

    def check(self, commands):
        outputs = []
        for command in commands:
            done = self.run_command(command)
            self.assertEqual(done.returncode, 0, command + "\n" + done.stdout)
            outputs.append(done.stdout)
        self.assertRegex(outputs[-1], r"\b[1-9]\d* passed")
        installed = (self.folder / "apt-get.log").read_text()
        self.assertIn("./packages/libtalvex2_2.0.0_amd64.deb", installed)
        self.assertIn("python3-pytest", installed)

    def test_the_dockerfile(self):
        text = (EXAMPLES / "ci/Dockerfile").read_text()
        self.assertEqual(re.findall(r"^COPY (\S+)", text, re.MULTILINE), ["packages/", "examples/"])
        self.check(docker_commands(text))

    def test_the_job(self):
        self.check(pipeline_commands((EXAMPLES / "ci/pipeline.yml").read_text()))

    def test_the_log_that_an_error_names_is_there_afterwards(self):
        (self.folder / "examples/ci/test_till.py").write_text(
            "import os, signal\n"
            "def test_start(sat_factory):\n"
            "    sat_factory('--no-such-option')\n"
            "def test_end(sat):\n"
            "    sat._process.kill()\n")
        done = self.run_command("python3 -m pytest -q -p no:cacheprovider examples/ci")
        self.assertEqual(done.returncode, 1, done.stdout)
        logs = {name: log for name, log in
                re.findall(r"^E +RuntimeError: sat-emulator (did not start|ended).*; see (\S+)$", done.stdout, re.MULTILINE)}
        self.assertEqual(sorted(logs), ["did not start", "ended"], done.stdout)
        for log in logs.values():
            self.addCleanup(shutil.rmtree, os.path.dirname(log))
        self.assertIn("--no-such-option", pathlib.Path(logs["did not start"]).read_text())
        self.assertTrue(os.path.exists(logs["ended"]))


if __name__ == "__main__":
    if subprocess.run(["/usr/bin/python3", "-c", "import pytest"], stderr=subprocess.DEVNULL, check=False).returncode:
        print("skipped: no pytest for /usr/bin/python3")
        sys.exit(77)
    unittest.main()
