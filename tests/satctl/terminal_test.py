"""What a person sees: the progress line, colours, Ctrl-C."""

import os
import pty
import re
import select
import signal
import subprocess
import time

import support
from support import CODE, SALE, SatctlTest

QUIET_AT_FIRST = 0.4  # seconds without a progress line
SALE_ARGUMENTS = ("enviar-dados-venda", "--dados", "@%s" % SALE, "--sessao", "616")


class Screen:
    """satctl with a terminal of its own, as a shell would start it."""

    def __init__(self, command, **variables):
        self.shown = b""
        self.pid, self.master = pty.fork()
        if self.pid == 0:
            os.execve(command[0], command, support.environment(SAT_CODIGO=CODE, TERM="xterm", **variables))

    def read(self, limit=0.1):
        ready, _, _ = select.select([self.master], [], [], limit)
        if not ready:
            return None
        try:
            piece = os.read(self.master, 65536)
        except OSError:
            return b""
        self.shown += piece
        return piece

    def wait_for(self, pattern):
        while not re.search(pattern, self.shown):
            if self.read() == b"":
                raise AssertionError("%r never came: %r" % (pattern, self.shown))

    def end(self):
        """The status as waitpid gives it, everything read."""
        while self.read(support.ONE_RUN) != b"":
            pass
        _, status = os.waitpid(self.pid, 0)
        os.close(self.master)
        return status


class ProgressLine(SatctlTest):
    def test_it_names_function_port_time_and_limit_and_vanishes(self):
        self.start_emulator("--fault", "on EnviarDadosVenda do late 2500", more="EnviarDadosVenda=45\n")
        screen = Screen(self.command(*SALE_ARGUMENTS))
        screen.wait_for(rb"[12] s of at most 45 s, waiting")
        self.assertEqual(screen.end(), 0)
        port = os.path.realpath(self.path("sat0")).encode()
        self.assertRegex(screen.shown, rb"EnviarDadosVenda 616: [12] s of at most 45 s, waiting for the device at " + port)
        last_progress = screen.shown.rindex(b"of at most")
        self.assertIn(b"\r\033[K", screen.shown[last_progress:])
        self.assertLess(screen.shown.rindex(b"\r\033[K"), screen.shown.index(b"=> "))

    def test_the_default_limits_of_functions_that_the_file_cannot_change(self):
        self.start_emulator("--fault", "on BloquearSAT do late 1500", more="BloquearSAT=45\n")
        screen = Screen(self.command("bloquear-sat"))
        screen.wait_for(b"of at most 300 s")
        self.assertEqual(screen.end(), 0)

    def test_a_quick_call_shows_none(self):
        self.start_emulator()
        start = time.monotonic()
        screen = Screen(self.command("consultar-sat"))
        self.assertEqual(screen.end(), 0)
        if time.monotonic() - start >= QUIET_AT_FIRST:
            self.skipTest("this machine is too busy for a quick call")
        self.assertNotIn(b"of at most", screen.shown)

    def test_nothing_when_standard_error_is_no_terminal(self):
        self.start_emulator("--fault", "on EnviarDadosVenda do late 1200")
        self.assertEqual(self.run_satctl(*SALE_ARGUMENTS).err, "")

    def test_it_stays_within_the_width_of_the_terminal(self):
        self.start_emulator("--fault", "on EnviarDadosVenda do late 2500")
        wrapper = ["/bin/sh", "-c", 'stty cols 40; exec "$@"', "sh"]
        screen = Screen(wrapper + self.command(*SALE_ARGUMENTS))
        screen.wait_for(b"EnviarDadosVenda 616: ")
        self.assertEqual(screen.end(), 0)
        lines = [line for line in screen.shown.split(b"\r\033[K") if line.startswith(b"EnviarDadosVenda 616: ")]
        self.assertTrue(lines)
        self.assertTrue(all(len(line) < 40 for line in lines), lines)


class Colours(SatctlTest):
    def shown(self, **variables):
        self.start_emulator()
        screen = Screen(self.command("consultar-sat"), **variables)
        self.assertEqual(screen.end(), 0)
        return screen.shown

    def test_on_a_terminal(self):
        self.assertIn(b"\033[32msuccess\033[0m", self.shown())

    def test_not_with_no_color(self):
        self.assertNotIn(b"\033[", self.shown(NO_COLOR="1"))

    def test_an_empty_no_color_counts_for_nothing(self):
        self.assertIn(b"\033[32m", self.shown(NO_COLOR=""))


class Interruption(SatctlTest):
    def interrupted(self, *arguments, fault="on any do late 20000"):
        self.start_emulator("--fault", fault)
        screen = Screen(self.command(*arguments))
        screen.wait_for(b"waiting for the device")
        os.write(screen.master, b"\x03")
        status = screen.end()
        self.assertTrue(os.WIFSIGNALED(status))
        self.assertEqual(os.WTERMSIG(status), signal.SIGINT)
        self.assert_port_is_free()
        return " ".join(screen.shown.decode().split())

    def test_ctrl_c_in_a_sale(self):
        shown = self.interrupted(*SALE_ARGUMENTS)
        self.assertIn("interrupted; the port is unlocked", shown)
        self.assertIn("The outcome of EnviarDadosVenda is unknown; do not send it again before you know.", shown)
        self.assertIn("satctl recuperar --sessao 616", shown)

    def test_ctrl_c_in_a_change(self):
        self.assertIn("satctl consultar-numero-sessao --numero 5", self.interrupted("bloquear-sat", "--sessao", "5"))

    def test_ctrl_c_in_a_query(self):
        self.assertIn("ConsultarSAT changes nothing in the device and can be repeated.",
                      self.interrupted("consultar-sat", fault="on ConsultarSAT do late 8000"))

    def test_termination_without_a_terminal(self):
        self.start_emulator("--fault", "on EnviarDadosVenda do late 20000")
        process = subprocess.Popen(self.command(*SALE_ARGUMENTS), stderr=subprocess.PIPE, stdout=subprocess.DEVNULL,
                                   env=support.environment(SAT_CODIGO=CODE))
        self.wait_until_locked()
        process.terminate()
        _, error = process.communicate(timeout=support.ONE_RUN)
        self.assertEqual(process.returncode, -signal.SIGTERM)
        self.assertIn(b"satctl recuperar --sessao 616", error)
        self.assert_port_is_free()

    def wait_until_locked(self):
        while True:
            try:
                self.assert_port_is_free()
            except BlockingIOError:
                return
            time.sleep(0.01)

    def test_the_next_call_works(self):
        shown = self.interrupted("consultar-sat", fault="on ConsultarSAT nth=1 do late 4000")
        self.assertIn("interrupted", shown)
        self.run_satctl("consultar-status-operacional")


if __name__ == "__main__":
    support.main()
