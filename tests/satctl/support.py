"""satctl, the emulator and till folders for the tests."""

import fcntl
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

SATCTL = os.environ["SATCTL"]
EMULATOR = os.environ["SAT_EMULATOR"]
LIBRARY = os.environ["TALVEX_LIBRARY"]
SALE = Path(__file__).resolve().parents[2] / "examples" / "venda.xml"

CODE = "codigo-8642"
ALARM = 100  # seconds for one test
ONE_RUN = 60

SUCCESS, REFUSED, USAGE, NO_DEVICE, BUSY, LINK_FAILURE, OTHER_SESSION, NOT_WRITTEN = range(8)

# A sanitizer's report must never look like an answer of satctl.
SANITIZER_EXIT = 99


def environment(**variables):
    base = {name: os.environ[name] for name in ("PATH", "HOME", "TMPDIR", "LD_LIBRARY_PATH") if name in os.environ}
    base.update(LANG="C.UTF-8", TZ="<-03>3",
                ASAN_OPTIONS="exitcode=%d:detect_leaks=0" % SANITIZER_EXIT,
                UBSAN_OPTIONS="exitcode=%d" % SANITIZER_EXIT)
    base.update(variables)
    return base


class Emulator:
    """The emulator process; ends with the `with` block."""

    def __init__(self, folder, *options):
        self.link = os.path.join(folder, "sat0")
        self.process = subprocess.Popen([EMULATOR, "--link", self.link, "--quiet", *options], stdout=subprocess.PIPE,
                                        text=True, env=environment())
        if not self.process.stdout.readline():
            raise RuntimeError("the emulator ended with %d" % self.process.wait())

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()

    def stop(self):
        if self.process.poll() is None:
            self.process.terminate()
        self.process.wait(10)
        self.process.stdout.close()


class SatctlTest(unittest.TestCase):
    """One till's folder, an alarm, and satctl."""

    def setUp(self):
        signal.signal(signal.SIGALRM, self.ring)
        signal.alarm(ALARM)
        self.folder = tempfile.mkdtemp(prefix="satctl.", dir="/tmp")
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.addCleanup(signal.alarm, 0)

    @staticmethod
    def ring(*_):
        raise TimeoutError("the test takes too long")

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, name, content):
        path = Path(self.path(name))
        path.parent.mkdir(parents=True, exist_ok=True)
        if isinstance(content, bytes):
            path.write_bytes(content)
        else:
            path.write_text(content, encoding="utf-8")
        return str(path)

    def read(self, name):
        return Path(self.path(name)).read_text(encoding="utf-8", errors="surrogateescape")

    def write_ini(self, port=None, log_mode=1, more=""):
        self.write("SAT.ini", "[SERIAL_PORT_CONFIG]\n\n[SAT_TIMEOUT]\n%s\n[SAT_EMULATOR]\nSerialPortLinux=%s\nEnable=1\n\n"
                   "[ARVOLEN]\nEnable=0\n\n[LOG]\nLogFilePath=Log\nLogFileName=\nLogFileMaxSize=1300000\nLogMode=%d\n"
                   % (more, port or self.path("sat0"), log_mode))

    def start_emulator(self, *options, activated=True, log_mode=1, more=""):
        self.write_ini(log_mode=log_mode, more=more)
        options = (["--activated", "--activation-code", CODE] if activated else []) + list(options)
        emulator = Emulator(self.folder, *options)
        self.addCleanup(emulator.stop)
        return emulator

    def command(self, *arguments):
        return [SATCTL, "--library", LIBRARY, "--dir", self.folder, *arguments]

    def run_satctl(self, *arguments, expected=SUCCESS, stdin=None, code=CODE, **variables):
        if code is not None:
            variables.setdefault("SAT_CODIGO", code)
        done = subprocess.run(self.command(*arguments), input=stdin, capture_output=True, timeout=ONE_RUN,
                              env=environment(**variables))
        done.out = done.stdout.decode("utf-8", "surrogateescape")
        done.err = done.stderr.decode("utf-8", "surrogateescape")
        self.assertEqual(done.returncode, expected, "%s\n%s\n%s" % (arguments, done.out, done.err))
        return done

    def json(self, *arguments, **keywords):
        return json.loads(self.run_satctl("--json", *arguments, **keywords).stdout)

    def sell(self, *more, session=4711, **keywords):
        return self.json("enviar-dados-venda", "--dados", "@%s" % SALE, "--sessao", str(session), *more, **keywords)

    def assert_port_is_free(self):
        descriptor = os.open(self.path("sat0"), os.O_RDWR | os.O_NOCTTY | os.O_NONBLOCK)
        try:
            fcntl.flock(descriptor, fcntl.LOCK_EX | fcntl.LOCK_NB)
        finally:
            os.close(descriptor)


def main():
    unittest.main(argv=[sys.argv[0], "-v"] if len(sys.argv) == 1 else sys.argv)
