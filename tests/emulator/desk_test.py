"""The emulator as a process: what a till, a script and a person at the desk see of it.

Needs nothing but the standard library. The program's path comes from the environment: SAT_EMULATOR.
"""

import base64
import fcntl
import json
import os
import random
import re
import select
import shutil
import signal
import socket
import subprocess
import tempfile
import termios
import threading
import time
import unittest

from till import ACK, BLOCK, ETX, NAK, STX, Emulator, LinkError, Till, frame

PROGRAM = os.environ["SAT_EMULATOR"]
EXAMPLE = os.path.join(os.path.dirname(__file__), "..", "..", "examples", "venda.xml")
CODE = "12345678"


def sale():
    with open(EXAMPLE, encoding="utf-8") as file:
        return file.read()


def run(*options):
    return subprocess.run([PROGRAM, *options], capture_output=True, text=True, timeout=20, check=False)


class DeskTest(unittest.TestCase):
    def setUp(self):
        signal.alarm(60)  # a hang must not outlive the test
        self.addCleanup(signal.alarm, 0)
        self.folder = tempfile.mkdtemp(prefix="sat-emulator-test-")
        self.addCleanup(shutil.rmtree, self.folder)

    def file(self, name, text=None):
        path = os.path.join(self.folder, name)
        if text is not None:
            with open(path, "w", encoding="utf-8") as file:
                file.write(text)
        return path

    def read(self, name):
        with open(self.file(name), encoding="utf-8") as file:
            return file.read()

    def start(self, *options, **popen):
        emulator = Emulator(PROGRAM, "--quiet", *options, **popen)
        self.addCleanup(emulator.stop)
        return emulator

    def ready(self, *options, **popen):
        return self.start("--activated", *options, **popen)


class ReadyTest(DeskTest):
    def test_one_line_says_where_the_port_is(self):
        emulator = self.ready()
        self.assertRegex(emulator.path, r"^/dev/pts/\d+$")
        self.assertEqual(emulator.call("ConsultarSAT", "000042"), "000042|08000|SAT em operação||")
        emulator.process.terminate()
        self.assertEqual(emulator.process.stdout.read(), "")

    def test_ends_cleanly_on_every_ending_signal(self):
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            emulator = self.ready("--link", self.file("sat0"), "--control", self.file("control"))
            emulator.process.send_signal(number)
            self.assertEqual(emulator.process.wait(10), 0)
            self.assertFalse(os.path.lexists(self.file("sat0")))
            self.assertFalse(os.path.exists(self.file("control")))

    def test_ends_cleanly_in_the_middle_of_a_call(self):
        emulator = self.ready("--latency", "60000")
        with Till(emulator.path) as till:
            self.assertEqual(till.send_frame(frame("ConsultarSAT|000001")), ACK)
            emulator.process.terminate()
            self.assertEqual(emulator.process.wait(10), 0)

    def test_the_port_is_raw_before_anyone_opens_it(self):
        emulator = self.ready()
        port = os.open(emulator.path, os.O_RDWR | os.O_NOCTTY)
        flags = termios.tcgetattr(port)
        os.close(port)
        self.assertEqual(flags[3] & (termios.ECHO | termios.ICANON | termios.ISIG), 0)
        self.assertEqual(flags[1] & termios.OPOST, 0)


class StopTest(DeskTest):
    """Signals end the emulator whatever it is doing, and before it does anything."""

    def test_while_its_log_is_not_read(self):
        emulator = Emulator(PROGRAM, "--activated", stderr=subprocess.PIPE)
        self.addCleanup(emulator.process.stderr.close)
        self.addCleanup(emulator.process.kill)
        pipe = fcntl.fcntl(emulator.process.stderr, fcntl.F_GETPIPE_SZ)
        with Till(emulator.path) as till:
            for session in range(pipe // 40):
                self.assertIn("|08000|", till.call("ConsultarSAT|%06d" % session))
        emulator.process.terminate()
        self.assertEqual(emulator.process.wait(10), 0)

    def test_dropped_lines_of_the_log_are_counted(self):
        emulator = Emulator(PROGRAM, "--activated", stderr=subprocess.PIPE)
        self.addCleanup(emulator.process.stderr.close)
        self.addCleanup(emulator.stop)
        log_end = emulator.process.stderr.fileno()
        pipe = fcntl.fcntl(log_end, fcntl.F_GETPIPE_SZ)
        calls = pipe // 40
        log = b""
        with Till(emulator.path) as till:
            for session in range(calls):
                till.call("ConsultarSAT|%06d" % session)
            while select.select([log_end], [], [], 0)[0]:
                log += os.read(log_end, pipe)
            till.call("ConsultarSAT|999999")
        emulator.stop()
        lines = (log + os.read(log_end, pipe)).decode().splitlines()
        dropped = [int(line.split()[1]) for line in lines if "dropped" in line]
        self.assertEqual(len(dropped), 1)
        self.assertEqual(len(lines) - 1 + dropped[0], calls + 1)

    def test_while_it_waits_for_an_input_file(self):
        os.mkfifo(self.file("fifo"))
        for options in (("--faults",), ("--replay",), ("--state",)):
            with self.subTest(option=options[0]):
                process = subprocess.Popen([PROGRAM, *options, self.file("fifo")], stdout=subprocess.PIPE)
                self.addCleanup(process.stdout.close)
                self.addCleanup(process.kill)
                self.wait_until_blocked(process)
                process.terminate()
                process.wait(10)

    def wait_until_blocked(self, process):
        """In the opening of the FIFO, and nothing else."""
        while True:
            with open("/proc/%d/wchan" % process.pid, encoding="ascii") as file:
                where = file.read()
            with open("/proc/%d/stat" % process.pid, encoding="ascii") as file:
                state = file.read().rpartition(")")[2].split()[0]
            if "fifo" in where or "wait_for_partner" in where or (where in ("", "0") and state == "S"):
                return
            self.assertIsNone(process.poll())
            time.sleep(0.01)


class TcpTest(DeskTest):
    def listen(self, *options):
        self.emulator = Emulator(PROGRAM, "--activated", "--tcp", "0", *options, stderr=subprocess.PIPE)
        self.addCleanup(self.emulator.process.stderr.close)
        self.addCleanup(self.emulator.stop)
        note = self.emulator.process.stderr.readline()
        self.assertRegex(note, r"listening on 127\.0\.0\.1:\d+$")
        return int(note.rpartition(":")[2])

    def connect(self, port):
        client = socket.create_connection(("127.0.0.1", port), timeout=10)
        self.addCleanup(client.close)
        return client

    def read_until(self, client, end):
        data = b""
        while not data.endswith(end):
            piece = client.recv(65536)
            if not piece:
                raise LinkError("closed after %r" % data[-80:])
            data += piece
        return data

    def ask(self, client, session):
        client.sendall(frame("ConsultarSAT|%06d" % session))
        reply = ACK + frame("%06d|08000|SAT em operação||" % session)
        self.assertEqual(self.read_until(client, reply), reply)
        client.sendall(ACK)

    def test_a_client_is_a_till(self):
        port = self.listen()
        client = self.connect(port)
        self.ask(client, 1)
        self.ask(client, 2)
        client.close()
        # The lock is gone once the emulator has seen the end of the connection.
        while True:
            try:
                with Till(self.emulator.path) as till:
                    self.assertIn("|08000|", till.call("ConsultarSAT|000003"))
                break
            except BlockingIOError:
                time.sleep(0.01)
        self.ask(self.connect(port), 4)

    def test_one_till_at_a_time(self):
        port = self.listen()
        first = self.connect(port)
        self.ask(first, 1)
        self.assertEqual(self.connect(port).recv(1), b"")
        with self.assertRaises(BlockingIOError):
            Till(self.emulator.path)
        self.ask(first, 2)

    def test_a_client_is_turned_away_while_a_local_till_holds_the_port(self):
        port = self.listen()
        with Till(self.emulator.path) as till:
            self.assertEqual(self.connect(port).recv(1), b"")
            self.assertIn("|08000|", till.call("ConsultarSAT|000001"))

    def test_a_device_that_is_unplugged_hangs_up(self):
        port = self.listen("--fault", "on any nth=1 do hangup 5 back=0")
        client = self.connect(port)
        client.sendall(frame("ConsultarSAT|000001"))
        with self.assertRaises(LinkError):
            self.read_until(client, b"never")
        self.ask(self.connect(port), 2)

    def test_large_frames_pass_in_both_directions(self):
        port = self.listen("--fault", "on any do oversize 3000000")
        client = self.connect(port)
        data = frame("Inventada|000001|" + "x" * 40_000)
        for start in range(0, len(data), BLOCK):
            client.sendall(data[start:start + BLOCK])
            self.assertEqual(client.recv(1), ACK)
        self.assertIn(b"|99099|", self.read_until(client, ETX))
        client.sendall(ACK + frame("ConsultarSAT|000002"))
        self.assertEqual(client.recv(1), ACK)
        reply = b""
        while len(reply) < 3_000_003:
            piece = client.recv(min(65536, BLOCK - len(reply) % BLOCK))
            self.assertTrue(piece)
            reply += piece
            if len(reply) % BLOCK == 0:
                client.sendall(ACK)
        self.assertEqual(reply, frame(reply[1:-2]))

    def test_the_lines_of_the_guide_make_a_port_of_it(self):
        if shutil.which("socat") is None:
            self.skipTest("no socat")
        with open(os.path.join(os.path.dirname(__file__), "..", "..", "docs", "emulator.md"), encoding="utf-8") as file:
            line = re.search(r"^    (socat PTY.*)$", file.read(), re.MULTILINE)[1]
        port, link = self.listen(), self.file("sat0")
        words = line.replace("/tmp/ttySAT0", link).replace("9100", str(port)).split()
        for session in (1, 2):
            with subprocess.Popen(words) as bridge:
                while not os.path.exists(link):
                    self.assertIsNone(bridge.poll())
                    time.sleep(0.01)
                with Till(link) as till:
                    self.assertEqual(till.call("ConsultarSAT|%06d" % session),
                                     "%06d|08000|SAT em operação||" % session)
                self.assertEqual(bridge.wait(10), 0)

    def test_what_is_no_address_is_refused(self):
        for address in ("", "x", "1:2:3", "localhost:9100", "127.0.0.1:", "127.0.0.1:70000", ":9100", "127.0.0.1:-1"):
            self.assertEqual(run("--tcp", address).returncode, 2, address)
        port = self.listen()
        result = run("--tcp", "127.0.0.1:%d" % port)
        self.assertEqual(result.returncode, 4)
        self.assertIn("Address already in use", result.stderr)


class LinkNameTest(DeskTest):
    def test_a_name_that_the_library_does_not_take_is_said(self):
        for name, said in (("port", True), ("sat0", False), ("a" * 40 + "0", True)):
            with tempfile.TemporaryDirectory(prefix="s", dir="/tmp") as folder:
                emulator = Emulator(PROGRAM, "--link", os.path.join(folder, name), stderr=subprocess.PIPE)
                emulator.stop()
                self.assertEqual("driver library takes no port" in emulator.process.stderr.read(), said, name)
                emulator.process.stderr.close()

    def test_a_name_in_use_is_said(self):
        emulator = self.ready("--link", self.file("sat0"))
        self.assertIn("in use: it leads to " + emulator.path, run("--link", self.file("sat0")).stderr)

    def test_leads_to_the_port(self):
        emulator = self.ready("--link", self.file("sat0"))
        self.assertEqual(os.readlink(self.file("sat0")), emulator.path)
        emulator.stop()
        self.assertFalse(os.path.lexists(self.file("sat0")))

    def test_foreign_files_are_left_alone(self):
        self.file("mine", "my text")
        os.symlink("/dev/null", self.file("null"))
        os.symlink("nowhere", self.file("dangling"))
        os.mkdir(self.file("folder"))
        for name in ("mine", "null", "dangling", "folder"):
            result = run("--link", self.file(name))
            self.assertEqual(result.returncode, 4, name)
            self.assertIn("cannot make the link", result.stderr)
            self.assertEqual(result.stdout, "")
        self.assertEqual(self.read("mine"), "my text")
        self.assertEqual(os.readlink(self.file("dangling")), "nowhere")

    def test_a_living_emulator_keeps_its_link(self):
        emulator = self.ready("--link", self.file("sat0"))
        self.assertEqual(run("--link", self.file("sat0")).returncode, 4)
        self.assertEqual(os.readlink(self.file("sat0")), emulator.path)

    def test_the_link_of_a_killed_emulator_is_taken_over(self):
        emulator = self.ready("--link", self.file("sat0"))
        emulator.process.kill()
        emulator.process.wait()
        self.assertTrue(os.path.lexists(self.file("sat0")))
        try:
            second = self.ready("--link", self.file("sat0"))
        except RuntimeError:
            if os.path.exists(self.file("sat0")):
                self.skipTest("somebody else has got the same terminal by now")
            raise
        self.assertEqual(os.readlink(self.file("sat0")), second.path)

    def test_a_link_that_became_another_file_is_not_removed(self):
        emulator = self.ready("--link", self.file("sat0"))
        os.unlink(self.file("sat0"))
        self.file("sat0", "mine now")
        self.assertEqual(emulator.stop(), 0)
        self.assertEqual(self.read("sat0"), "mine now")


class ProtocolTest(DeskTest):
    def test_a_broken_command_is_refused_and_may_be_sent_again(self):
        emulator = self.ready()
        broken = bytearray(frame("ConsultarSAT|000001"))
        broken[-2] ^= 1
        with Till(emulator.path) as till:
            for _ in range(3):
                self.assertEqual(till.send_frame(bytes(broken)), NAK)
            self.assertEqual(till.call("ConsultarSAT|000001"), "000001|08000|SAT em operação||")

    def test_a_refused_reply_is_sent_again_twice(self):
        emulator = self.ready()
        with Till(emulator.path) as till:
            till.send_frame(frame("ConsultarSAT|000001"))
            reply = till.read_frame()
            for _ in range(2):
                till.write(NAK)
                self.assertEqual(till.read_frame(), reply)
            till.write(NAK)
            self.assertEqual(till.read_until_quiet(), b"")
            self.assertEqual(till.call("ConsultarSAT|000002"), "000002|08000|SAT em operação||")

    def test_long_commands_are_acknowledged_block_by_block(self):
        emulator = self.ready()
        for size in (BLOCK - 1, BLOCK, BLOCK + 1, 2 * BLOCK, 2 * BLOCK + 1, 100_000):
            head = "Inventada|000001|"
            data = frame(head + "x" * (size - len(head) - 3))
            self.assertEqual(len(data), size)
            with Till(emulator.path) as till:
                acks = 0
                for start in range(0, size, BLOCK):
                    till.write(data[start:start + BLOCK])
                    self.assertEqual(till.read(1), ACK)
                    acks += 1
                self.assertEqual(acks, -(-size // BLOCK))
                self.assertTrue(till.read_frame().startswith(STX + b"000001|99099|"))
                till.write(ACK)

    def test_long_replies_wait_for_each_block(self):
        emulator = self.ready("--fault", "on any do oversize 40000")
        with Till(emulator.path) as till:
            till.send_frame(frame("ConsultarSAT|000001"))
            data = b""
            for expected in (BLOCK, BLOCK, 40_003 - 2 * BLOCK):
                data += till.read_until_quiet()
                self.assertEqual(len(data) % BLOCK, expected % BLOCK)
                till.write(ACK)
            self.assertEqual(len(data), 40_003)

    def test_a_refused_block_starts_the_reply_again(self):
        emulator = self.ready("--fault", "on any do oversize 40000")
        with Till(emulator.path) as till:
            till.send_frame(frame("ConsultarSAT|000001"))
            first = till.read_until_quiet()
            till.write(NAK)
            data = till.read_frame()
            self.assertEqual(data[:BLOCK], first)
            self.assertEqual(len(data), 40_003)
            till.write(ACK)

    def test_ack_and_reply_may_come_in_one_piece(self):
        emulator = self.ready()
        with Till(emulator.path) as till:
            till.write(frame("ConsultarSAT|000001"))
            self.assertEqual(till.read_until_quiet(), ACK + frame("000001|08000|SAT em operação||"))

    def test_a_till_that_gives_up_can_start_anew(self):
        emulator = self.ready("--fault", "on any nth=1 do late 60000")
        with Till(emulator.path) as till:
            self.assertEqual(till.send_frame(frame("ConsultarSAT|000001")), ACK)
        with Till(emulator.path) as till:
            self.assertEqual(till.call("ConsultarSAT|000002"), "000002|08000|SAT em operação||")

    def test_a_till_may_leave_in_the_middle_of_a_command(self):
        emulator = self.ready()
        for cut in (1, 5, 19):
            with Till(emulator.path) as till:
                till.write(frame("ConsultarSAT|000001")[:cut])
            with Till(emulator.path) as till:
                # The two may arrive as one broken frame: then the till sends again, as it would.
                answer = till.send_frame(frame("ConsultarSAT|000002"))
                if answer == NAK:
                    answer = till.send_frame(frame("ConsultarSAT|000002"))
                self.assertEqual(answer, ACK)
                till.read_frame()
                till.write(ACK)
                till.call("ConsultarSAT|000003")

    def test_a_till_may_leave_in_the_middle_of_a_reply(self):
        emulator = self.ready("--fault", "on any nth=1 do oversize 3000000")
        with Till(emulator.path) as till:
            till.send_frame(frame("ConsultarSAT|000001"))
            till.read(10)
        with Till(emulator.path) as till:
            till.write(frame("ConsultarSAT|000002"))
            data = till.read_until_quiet()
            self.assertTrue(data.endswith(ACK + frame("000002|08000|SAT em operação||")), data[-80:])

    def test_a_hundred_tills_come_and_go(self):
        emulator = self.ready()
        for session in range(100):
            self.assertIn("|08000|", emulator.call("ConsultarSAT", "%06d" % session))

    def test_garbage_is_borne(self):
        emulator = self.ready()
        dice = random.Random(1)
        with Till(emulator.path) as till:
            for _ in range(50):
                till.write(bytes(dice.randrange(256) for _ in range(dice.randrange(1, 2000))))
                till.read_until_quiet(0.001)
            till.write(ETX)
            till.read_until_quiet(0.3)
            self.assertEqual(till.call("ConsultarSAT|000001"), "000001|08000|SAT em operação||")

    def test_a_slow_line_sends_byte_by_byte(self):
        emulator = self.ready("--byte-delay", "3000")
        start = time.monotonic()
        reply = emulator.call("ConsultarSAT", "000001")
        self.assertGreaterEqual(time.monotonic() - start, 0.003 * len(reply))

    def test_latency_comes_between_ack_and_reply(self):
        emulator = self.ready("--latency", "300")
        with Till(emulator.path) as till:
            start = time.monotonic()
            self.assertEqual(till.send_frame(frame("ConsultarSAT|000001")), ACK)
            self.assertLess(time.monotonic() - start, 0.25)
            till.read_frame()
            self.assertGreaterEqual(time.monotonic() - start, 0.3)
            till.write(ACK)


class StateTest(DeskTest):
    def test_survives_a_restart(self):
        emulator = self.ready("--state", self.file("sat.json"))
        first = emulator.call("EnviarDadosVenda", "000001", CODE, sale())
        emulator.stop()
        emulator = self.start("--state", self.file("sat.json"))
        self.assertEqual(emulator.call("ConsultarNumeroSessao", "000002", CODE, "000001"), first)
        second = emulator.call("EnviarDadosVenda", "000003", CODE, sale())
        self.assertEqual(second.split("|")[8][34:40], "000002")

    def test_killed_at_any_moment_it_keeps_every_receipt_that_the_till_got(self):
        dice = random.Random(7)
        got = {}
        session = 0
        for _ in range(12):
            emulator = self.ready("--state", self.file("sat.json"))
            killer = None
            try:
                while True:
                    session += 1
                    fields = emulator.call("EnviarDadosVenda", "%06d" % session, CODE, sale()).split("|")
                    self.assertEqual(fields[1], "06000")
                    got[fields[8]] = session
                    if killer is None:
                        killer = threading.Timer(dice.uniform(0, 0.06), emulator.process.kill)
                        killer.start()
            except (LinkError, OSError):
                pass
            killer.join()
            emulator.process.wait()
            state = json.loads(self.read("sat.json"))
            receipts = [receipt["key"] for receipt in state["receipts"]]
            self.assertLessEqual(set(got), set(receipts))
            numbers = [receipt["number"] for receipt in state["receipts"]]
            self.assertEqual(numbers, list(range(1, len(numbers) + 1)))
        self.assertGreaterEqual(len(got), 12)

    def test_a_state_that_is_none_is_left_alone(self):
        path = self.file("sat.json", "precious")
        result = run("--state", path)
        self.assertEqual(result.returncode, 5)
        self.assertIn("is not understood", result.stderr)
        self.assertEqual(self.read("sat.json"), "precious")

    def test_one_emulator_to_a_file(self):
        self.ready("--state", self.file("sat.json"))
        result = run("--state", self.file("sat.json"))
        self.assertEqual(result.returncode, 5)
        self.assertIn("another emulator", result.stderr)

    def test_a_folder_that_is_not_there(self):
        self.assertEqual(run("--state", self.file("no/sat.json")).returncode, 5)


class SameBytesTest(DeskTest):
    CALLS = [("EnviarDadosVenda", "000001", CODE, sale()), ("ConsultarStatusOperacional", "000002", CODE),
             ("TesteFimAFim", "000003", CODE, sale()), ("ExtrairLogs", "000004", CODE)]

    def replies(self, *options):
        emulator = self.ready(*options)
        replies = [emulator.call(*call) for call in self.CALLS]
        emulator.stop()
        return replies

    def test_under_the_same_seed_and_clock(self):
        options = ("--seed", "7", "--clock", "2026-03-01T10:00:00")
        first = self.replies(*options)
        self.assertEqual(self.replies(*options), first)
        self.assertIn("|20260301100000|", first[0])
        self.assertNotEqual(self.replies("--seed", "8", *options[2:]), first)

    def test_also_in_the_state_file(self):
        options = ("--seed", "7", "--clock", "2026-03-01T10:00:00", "--state")
        self.replies(*options, self.file("a.json"))
        self.replies(*options, self.file("b.json"))
        self.assertEqual(self.read("a.json"), self.read("b.json"))


class RecordingTest(DeskTest):
    def record(self, *options):
        emulator = self.ready("--seed", "7", "--clock", "2026-03-01", "--record", self.file("day.txt"), *options)
        replies = [emulator.call("ConsultarSAT", "000001"), emulator.call("EnviarDadosVenda", "000002", CODE, sale())]
        emulator.stop()
        return replies

    def test_has_direction_and_time(self):
        self.record()
        lines = self.read("day.txt").splitlines()
        self.assertTrue(lines[0].startswith("# sat-emulator recording"))
        self.assertRegex(lines[1], r"^\d+\.\d{6} PC->SAT \\x02ConsultarSAT\|000001.*\\x03$")
        self.assertRegex(lines[2], r"^\d+\.\d{6} SAT->PC \\x06$")
        self.assertRegex(lines[3], r"^\d+\.\d{6} SAT->PC \\x02000001\|08000\|SAT em opera\\xc3\\xa7\\xc3\\xa3o.*\\x03$")
        self.assertRegex(lines[4], r"^\d+\.\d{6} PC->SAT \\x06$")

    def test_is_replayed_as_the_device(self):
        replies = self.record()
        player = self.start("--replay", self.file("day.txt"), "--link", self.file("sat0"))
        self.assertEqual(player.call("ConsultarSAT", "000001"), replies[0])
        self.assertEqual(player.call("EnviarDadosVenda", "000002", CODE, sale()), replies[1])
        self.assertEqual(player.process.wait(10), 0)
        self.assertFalse(os.path.lexists(self.file("sat0")))

    def test_may_be_replayed_with_other_texts(self):
        replies = self.record()
        player = self.start("--replay", self.file("day.txt"))
        self.assertEqual(player.call("ConsultarSAT", "000077"), replies[0])

    def test_is_replayed_as_slowly_as_recorded(self):
        emulator = self.ready("--record", self.file("day.txt"), "--latency", "400")
        emulator.call("ConsultarSAT", "000001")
        emulator.stop()
        for options, least, most in (((), 0, 0.3), (("--as-recorded",), 0.3, 5)):
            player = self.start("--replay", self.file("day.txt"), *options)
            start = time.monotonic()
            player.call("ConsultarSAT", "000001")
            self.assertGreaterEqual(time.monotonic() - start, least)
            self.assertLess(time.monotonic() - start, most)

    def test_ends_when_the_till_takes_another_way(self):
        self.record()
        player = Emulator(PROGRAM, "--quiet", "--replay", self.file("day.txt"), stderr=subprocess.PIPE)
        with Till(player.path) as till:
            till.send_frame(frame("ConsultarSAT|000001"))
            till.read_frame()
            till.write(NAK)
            self.assertEqual(player.process.wait(10), 6)
        self.assertIn("the till sends NAK where the recording has ACK", player.process.stderr.read())
        player.process.stderr.close()
        player.stop()

    def test_can_be_masked_while_it_is_made(self):
        self.record("--mask")
        self.check_masked(self.read("day.txt"))

    def test_can_be_masked_afterwards_and_still_be_replayed(self):
        self.record()
        self.assertIn(CODE, self.read("day.txt"))
        self.assertIn("12345678909", self.read("day.txt"))
        self.assertEqual(run("--mask-file", self.file("day.txt"), self.file("masked.txt")).returncode, 0)
        self.check_masked(self.read("masked.txt"))
        player = self.start("--replay", self.file("masked.txt"))
        player.call("ConsultarSAT", "000001")
        fields = player.call("EnviarDadosVenda", "000002", CODE, sale()).split("|")
        self.assertEqual(fields[10], "00000000000")
        self.assertRegex(base64.b64decode(fields[6]), rb"^<CFe/> *$")

    def check_masked(self, text):
        self.assertNotIn("|%s|" % CODE, text)
        self.assertNotIn("12345678909", text)
        self.assertIn("|xxxxxxxx|", text)

    def test_goes_into_a_file_of_its_own_for_nobody_else(self):
        os.chmod(self.file("open.txt", "what was there before"), 0o644)
        emulator = self.ready("--record", self.file("open.txt"))
        self.assertEqual(os.stat(self.file("open.txt")).st_mode & 0o777, 0o600)
        emulator.stop()
        self.assertNotIn("before", self.read("open.txt"))

    def test_follows_no_link_and_takes_no_place_that_somebody_else_chose(self):
        self.file("precious", "my text")
        os.symlink(self.file("precious"), self.file("symbolic"))
        os.symlink(self.file("not there"), self.file("dangling"))
        os.link(self.file("precious"), self.file("hard"))
        os.mkfifo(self.file("fifo"))
        os.mkdir(self.file("folder"))
        for name in ("symbolic", "dangling", "hard", "fifo", "folder"):
            result = run("--record", self.file(name))
            self.assertEqual(result.returncode, 3, name)
            self.assertIn("cannot write " + self.file(name), result.stderr)
        self.assertEqual(self.read("precious"), "my text")
        self.assertFalse(os.path.exists(self.file("not there")))

    def test_that_is_none_is_refused(self):
        self.file("bad.txt", "# x\nwhat is this\n")
        result = run("--replay", self.file("bad.txt"))
        self.assertEqual(result.returncode, 3)
        self.assertIn("bad.txt: line 2: ", result.stderr)
        self.assertEqual(run("--replay", self.file("none.txt")).returncode, 3)


class ControlTest(DeskTest):
    def order(self, *lines):
        answers = []
        with socket.socket(socket.AF_UNIX) as client:
            client.settimeout(10)
            client.connect(self.file("control"))
            with client.makefile("rw") as stream:
                for line in lines:
                    stream.write(line + "\n")
                    stream.flush()
                    answers.append(json.loads(stream.readline()))
        return answers[0] if len(lines) == 1 else answers

    def setUp(self):
        super().setUp()
        self.emulator = self.ready("--control", self.file("control"), "--link", self.file("sat0"),
                                   "--clock", "2026-03-01T10:00:00")
        self.session = 0

    def call(self, function, *arguments):
        self.session += 1
        return self.emulator.call(function, "%06d" % self.session, *arguments).split("|")

    def test_answers_with_the_state(self):
        state = self.order("state")["state"]
        self.assertEqual(state["activation"], "active")
        self.assertEqual(state["port"], self.emulator.path)
        self.assertEqual(state["receipts"], 0)
        self.assertNotIn("signing_key", state)

    def test_only_its_owner_may_connect(self):
        self.assertEqual(os.stat(self.file("control")).st_mode & 0o777, 0o600)

    def test_takes_text_and_json(self):
        self.assertEqual(self.order("latency 20")["state"]["latency_ms"], 20)
        self.assertEqual(self.order('{"latency": 30, "battery": "BAIXO"}')["state"]["latency_ms"], 30)
        self.assertEqual(self.call("ConsultarStatusOperacional", CODE)[14], "BAIXO")

    def test_refuses_what_it_does_not_understand(self):
        for line in ("what", "latency", "latency x", "latency -1", "block me", "clock soon", "fault on", "{", "{}x",
                     '{"latency": [1]}', "notice 7", "certificate maybe", "profile none-such", "battery 3", ""):
            answer = self.order(line)
            self.assertFalse(answer["ok"], line)
            self.assertTrue(answer["error"], line)
            self.assertIn("state", answer)

    def test_blocks_and_unblocks(self):
        self.order("block sefaz")
        self.assertEqual(self.call("EnviarDadosVenda", CODE, sale())[1], "06007")
        self.order("block none")
        self.assertEqual(self.call("EnviarDadosVenda", CODE, sale())[1], "06000")

    def test_adds_and_clears_faults(self):
        self.assertEqual(self.order("fault on any do return 08099")["state"]["faults"], ["on any do return 08099"])
        self.assertEqual(self.call("ConsultarSAT")[1], "08099")
        self.order("fault clear", "on any do processing 1")
        self.assertEqual(self.call("ConsultarSAT")[1], "08098")
        self.order("fault clear")
        self.assertEqual(self.call("ConsultarSAT")[1], "08000")

    def test_moves_the_clock(self):
        key = self.call("EnviarDadosVenda", CODE, sale())[8]
        self.assertEqual(self.order("clock +31m")["state"]["clock"], "20260301103100")
        xml = ('<CFeCanc><infCFe chCanc="%s"><ide><CNPJ>12345678000195</CNPJ><signAC>x</signAC>'
               "<numeroCaixa>001</numeroCaixa></ide></infCFe></CFeCanc>" % key)
        self.assertEqual(self.call("CancelarUltimaVenda", CODE, key, xml)[1:3], ["07002", "1412"])
        self.order("clock 2026-03-01T10:30:00")
        self.assertEqual(self.call("CancelarUltimaVenda", CODE, key, xml)[1], "07000")

    def test_takes_the_authority_away_and_brings_it_back(self):
        self.order("sefaz down")
        key = self.call("EnviarDadosVenda", CODE, sale())[8]
        self.assertEqual(self.call("ConsultarStatusOperacional", CODE)[21:23], [key, key])
        self.order("sefaz up")
        self.assertEqual(self.call("ConsultarStatusOperacional", CODE)[21:23], ["", ""])

    def test_certificate_profile_notice_and_unlock(self):
        self.order("certificate expired")
        self.assertEqual(self.call("EnviarDadosVenda", CODE, sale())[1], "06011")
        self.order("certificate valid", "profile bare-key total-15-digits", "notice 3")
        fields = self.call("EnviarDadosVenda", CODE, sale())
        self.assertEqual((fields[4], len(fields[8]), len(fields[9])), ("3", 44, 15))
        self.order("profile none", "notice 0")
        for _ in range(5):
            self.call("ConsultarStatusOperacional", "errado99")
        self.assertEqual(self.call("EnviarDadosVenda", CODE, sale())[1], "06009")
        self.order("unlock")
        self.assertEqual(self.call("EnviarDadosVenda", CODE, sale())[1], "06000")

    def test_lists_receipts(self):
        key = self.call("EnviarDadosVenda", CODE, sale())[8]
        receipts = self.order("receipts")["receipts"]
        self.assertEqual([receipt["key"] for receipt in receipts], [key])
        self.assertEqual(receipts[0]["total"], 12684)

    def test_unplugs_the_device(self):
        with Till(self.emulator.path) as till:
            self.order("hangup back=50 as=sat1")
            self.assertEqual(till.read(1, 10), b"")  # hung up
        while not os.path.exists(self.file("sat1")):
            time.sleep(0.001)
        self.assertFalse(os.path.lexists(self.file("sat0")))
        with Till(self.file("sat1")) as till:
            self.assertIn("|08000|", till.call("ConsultarSAT|000500"))
        self.assertEqual(self.order("state")["state"]["link"], self.file("sat1"))

    def test_a_device_comes_back_nowhere_but_beside_its_link(self):
        for name in ("../../sat1", "/tmp/sat1", "a/b", "..", "."):
            self.assertIn("not a path", self.order("hangup as=" + name)["error"])
            self.assertIn("not a path", self.order("fault on any do hangup 1 as=" + name)["error"])
        self.assertEqual(os.readlink(self.file("sat0")), self.emulator.path)
        self.assertEqual(self.call("ConsultarSAT")[1], "08000")

    def test_a_device_whose_new_name_is_taken_keeps_the_old_one(self):
        self.file("sat1", "mine")
        with Till(self.emulator.path) as till:
            self.order("hangup back=0 as=sat1")
            self.assertEqual(till.read(1, 10), b"")
        while not os.path.exists(self.file("sat0")):
            self.assertIsNone(self.emulator.process.poll())
            time.sleep(0.001)
        self.assertEqual(self.read("sat1"), "mine")
        with Till(self.file("sat0")) as till:
            self.assertIn("|08000|", till.call("ConsultarSAT|000500"))

    def test_refuses_orders_that_are_nested_deeply(self):
        for depth in (10, 1_000, 30_000):
            answer = self.order('{"latency": ' + "[" * depth + "]" * depth + "}")
            self.assertIn("nested", answer["error"])
        self.assertEqual(self.call("ConsultarSAT")[1], "08000")

    def test_a_listener_whose_queue_is_full_does_not_hold_up_the_start(self):
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind(self.file("full"))
            listener.listen(0)
            waiting = []
            try:
                while True:
                    waiting.append(socket.socket(socket.AF_UNIX))
                    waiting[-1].setblocking(False)
                    waiting[-1].connect(self.file("full"))
            except BlockingIOError:
                pass
            result = run("--control", self.file("full"))
            for client in waiting:
                client.close()
        self.assertEqual(result.returncode, 4)
        self.assertIn("Address already in use", result.stderr)

    def test_acts_in_the_middle_of_a_call(self):
        self.order("latency 60000")
        with Till(self.emulator.path) as till:
            till.send_frame(frame("ConsultarSAT|000001"))
            self.assertTrue(self.order("state")["ok"])
            self.order("latency 0")
            till.write(frame("ConsultarSAT|000002"))
            self.assertIn(frame("000002|08000|SAT em operação||"), till.read_until_quiet())

    def test_ends_the_emulator(self):
        with socket.socket(socket.AF_UNIX) as client:
            client.connect(self.file("control"))
            client.sendall(b"quit\n")
            self.assertEqual(self.emulator.process.wait(10), 0)

    def test_bears_clients_that_come_go_and_misbehave(self):
        for _ in range(50):
            client = socket.socket(socket.AF_UNIX)
            client.connect(self.file("control"))
            client.send(b"state")
            client.close()
        client = socket.socket(socket.AF_UNIX)
        client.connect(self.file("control"))
        try:
            client.sendall(b"x" * 300_000)
        except OSError:
            pass
        client.close()
        self.assertTrue(self.order("state")["ok"])

    def test_serves_several_at_once(self):
        clients = [socket.socket(socket.AF_UNIX) for _ in range(5)]
        for client in clients:
            client.connect(self.file("control"))
        for client in clients:
            client.sendall(b"state\n")
            self.assertTrue(json.loads(client.makefile().readline())["ok"])
            client.close()

    def test_a_foreign_file_is_left_alone(self):
        self.file("mine", "text")
        self.assertEqual(run("--control", self.file("mine")).returncode, 4)
        self.assertEqual(self.read("mine"), "text")
        self.assertEqual(run("--control", self.file("control")).returncode, 4)
        self.assertTrue(self.order("state")["ok"])

    def test_the_socket_of_a_killed_emulator_is_taken_over(self):
        self.emulator.process.kill()
        self.emulator.process.wait()
        os.unlink(self.file("sat0"))
        self.ready("--control", self.file("control"))
        self.assertTrue(self.order("state")["ok"])


class CommandLineTest(DeskTest):
    def test_help_is_a_manual(self):
        result = run("--help")
        self.assertEqual(result.returncode, 0)
        for word in ("Examples", "--link", "--faults", "on WHAT", "wrong-checksum", "crlf-base64", "Exit codes",
                     "SerialPortLinux", "socat"):
            self.assertIn(word, result.stdout)

    def test_wrong_options_say_what_is_wrong(self):
        for options in (("--what",), ("--latency", "x"), ("--latency", "-1"), ("--cnpj", "123"), ("--uf", "XX"),
                        ("--serial", "12"), ("--clock", "soon"), ("--profile", "none-such"), ("--fault", "on any"),
                        ("--battery", "FULL"), ("--sefaz-notice", "77"), ("--seed", "x"), ("--mask",),
                        ("--as-recorded",), ("--mask-file", "one")):
            result = run(*options)
            self.assertEqual(result.returncode, 2, options)
            self.assertTrue(result.stderr, options)
            self.assertEqual(result.stdout, "", options)

    def test_texts_go_out_in_the_encoding_of_the_device(self):
        for options, text in (((), "SAT em operação".encode()),
                              (("--encoding", "utf8"), "SAT em operação".encode()),
                              (("--encoding", "latin1"), "SAT em operação".encode("cp1252")),
                              (("--profile", "ascii-texts"), b"SAT em operacao"),
                              (("--profile", "ascii-texts", "--profile", "static"), b"SAT em operacao")):
            emulator = self.ready(*options)
            with Till(emulator.path) as till:
                till.send_frame(frame("ConsultarSAT|000001"))
                self.assertEqual(till.read_frame(), frame(b"000001|08000|" + text + b"||"), options)
                till.write(ACK)
            emulator.stop()

    def test_stored_replies_go_out_in_that_encoding_too(self):
        emulator = self.ready("--encoding", "latin1", "--state", self.file("sat.json"))
        with Till(emulator.path) as till:
            for command in ("ConsultarSAT|000001", "ConsultarNumeroSessao|000002|%s|000001" % CODE):
                till.send_frame(frame(command))
                self.assertEqual(till.read_frame(), frame("000001|08000|SAT em operação||".encode("cp1252")))
                till.write(ACK)
        self.assertIn("SAT em operação", self.read("sat.json"))

    def test_rules_come_from_files_too(self):
        path = self.file("rules", "# busy once\non ConsultarSAT nth=1 do processing 1\n")
        emulator = self.ready("--faults", path)
        self.assertEqual(emulator.call("ConsultarSAT", "000001"),
                         "000001|08098|SAT em processamento. Tente novamente||")
        self.assertEqual(emulator.call("ConsultarSAT", "000001"), "000001|08000|SAT em operação||")
        self.file("rules", "on any do\n")
        result = run("--faults", path)
        self.assertEqual(result.returncode, 3)
        self.assertIn("rules: line 1: ", result.stderr)
        self.assertEqual(run("--faults", self.file("none")).returncode, 3)

    def test_options_make_the_device(self):
        emulator = self.ready("--activation-code", "outrocodigo", "--cnpj", "12345678000195", "--uf", "RJ", "--serial",
                              "000123456", "--battery", "MEDIO", "--memory", "2 Gbytes", "--offline",
                              "--sefaz-notice", "1")
        fields = emulator.call("ConsultarStatusOperacional", "000001", "outrocodigo").split("|")
        self.assertEqual(fields[3:6], ["1", "Emu:Existem atualizações pendentes para o SAT", "000123456"])
        self.assertEqual(fields[13:16], ["NAO_CONECTADO", "MEDIO", "2 Gbytes"])
        own = sale().replace("11222333000181", "12345678000195")
        fields = emulator.call("EnviarDadosVenda", "000002", "outrocodigo", own).split("|")
        self.assertEqual(fields[8][3:5], "33")
        self.assertEqual(fields[8][25:34], "000123456")
        self.assertEqual(emulator.call("EnviarDadosVenda", "000003", "outrocodigo", sale()).split("|")[2], "1203")

    def test_replies_come_from_files(self):
        path = self.file("replies", "ConsultarSAT {session}|08000|Ligado||\nConsultarSAT nth=2 {session}|08098|Ocupado||\n")
        for options in ((), ("--profile", "static")):
            emulator = self.start("--replies", path, "--clock", "2026-03-01", *options)
            replies = [emulator.call("ConsultarSAT", "00000%d" % n) for n in (1, 2, 3)]
            self.assertEqual(replies, ["000001|08000|Ligado||", "000002|08098|Ocupado||", "000003|08000|Ligado||"])
            emulator.stop()
        self.file("replies", "ConsultarSAT 08000\n")
        result = run("--replies", path)
        self.assertEqual(result.returncode, 3)
        self.assertIn("replies: line 1: a line reads", result.stderr)

    def test_static_profile_answers_whatever_the_state(self):
        emulator = self.start("--profile", "static")
        first = emulator.call("EnviarDadosVenda", "000042", "x", "y")
        self.assertTrue(first.startswith("000042|06000|0000|"))
        self.assertEqual(emulator.call("EnviarDadosVenda", "000042", "x", "y"), first)

    def test_a_profile_lets_only_the_last_sale_be_cancelled(self):
        emulator = self.ready("--profile", "last-sale-only")
        keys = [emulator.call("EnviarDadosVenda", "00000%d" % n, CODE, sale()).split("|")[8] for n in (1, 2)]
        xml = ('<CFeCanc><infCFe chCanc="%s"><ide><CNPJ>12345678000195</CNPJ><signAC>x</signAC>'
               "<numeroCaixa>001</numeroCaixa></ide></infCFe></CFeCanc>")
        codes = [emulator.call("CancelarUltimaVenda", "00001%d" % n, CODE, keys[n], xml % keys[n]).split("|")[1]
                 for n in (0, 1)]
        self.assertEqual(codes, ["07002", "07000"])

    def test_without_activation_it_does_not_sell(self):
        emulator = self.start()
        self.assertEqual(emulator.call("EnviarDadosVenda", "000001", CODE, sale()).split("|")[1], "06002")


class StrictTest(DeskTest):
    """Sales against the layout: every violation in the log, the first in the reply."""

    def sell(self, text, *options):
        emulator = Emulator(PROGRAM, "--activated", *options, stderr=subprocess.PIPE)
        self.addCleanup(emulator.process.stderr.close)
        self.addCleanup(emulator.stop)
        fields = emulator.call("EnviarDadosVenda", "000001", CODE, text).split("|")
        emulator.stop()
        return fields, [line.partition(" ")[2] for line in emulator.process.stderr.read().splitlines()]

    def test_the_example_is_right(self):
        fields, log = self.sell(sale(), "--strict")
        self.assertEqual(fields[1], "06000")
        self.assertEqual(len(log), 1)

    def test_every_violation_is_in_the_log(self):
        wrong = sale().replace("<NCM>09012100</NCM>", "").replace("<IM>12345</IM>", "<IM/>")
        wrong = wrong.replace("130.00", "1.00").replace("<total>", "<étranger/><total>")
        fields, log = self.sell(wrong, "--strict")
        self.assertEqual(fields[1:4], ["06010", "1233", "Erro de validação do conteúdo: "
                                       "formato ou tamanho inválido (emit/IM)"])
        self.assertEqual(log[:-1], [
            "strict: emit/IM: format: 1 to 15 characters",
            "strict: det[1]/prod/NCM: missing",
            "strict: ??tranger: not-in-layout",
            "strict: pgto: amounts",
        ])

    def test_the_log_is_bounded(self):
        _, log = self.sell(sale().replace("<total>", "<x/>" * 1005 + "<total>"), "--strict")
        self.assertEqual(log[0], "strict: x: not-in-layout")
        self.assertTrue("strict: and 5 more" in log or "dropped" in "".join(log))
        self.assertLess(len(log), 1005)

    def test_is_asked_for(self):
        wrong = sale().replace("<NCM>09012100</NCM>", "").replace("<IM>12345</IM>", "<IM/>")
        fields, log = self.sell(wrong)
        self.assertEqual(fields[1], "06000")
        self.assertEqual(len(log), 1)


class LogTest(DeskTest):
    def lines(self, *options, commands=()):
        emulator = Emulator(PROGRAM, "--activated", *options, stderr=subprocess.PIPE)
        emulator.call("ConsultarSAT", "000001")
        emulator.call("EnviarDadosVenda", "000002", CODE, sale())
        for command in commands:
            emulator.call(*command)
        emulator.process.terminate()
        text = emulator.process.stderr.read()
        emulator.process.stderr.close()
        emulator.stop()
        return text.splitlines()

    def test_is_a_line_per_call(self):
        lines = self.lines()
        self.assertEqual(len(lines), 2)
        self.assertRegex(lines[0], r"^\d\d:\d\d:\d\d\.\d{3} ConsultarSAT 000001 -> 08000 \(\d+ ms\)$")

    def test_can_be_json(self):
        events = [json.loads(line) for line in self.lines("--json-log", "--fault", "on any do stray 2")]
        self.assertEqual([event["function"] for event in events], ["ConsultarSAT", "EnviarDadosVenda"])
        self.assertEqual(events[0]["code"], "08000")
        self.assertEqual(events[0]["faults"], "stray")
        self.assertTrue(re.match(r"\d{4}-\d\d-\d\dT", events[0]["time"]))

    def test_holds_nothing_that_the_till_sent(self):
        misplaced = [(CODE, "x"), ("ExtrairLogs000001" + CODE, "x"), ("ExtrairLogs", CODE), ("ConsultarSAT", "12345678909")]
        for options in ((), ("--json-log",)):
            lines = self.lines(*options, commands=misplaced)
            self.assertEqual(len(lines), 2 + len(misplaced))
            text = "\n".join(lines)
            self.assertNotIn(CODE, text)
            self.assertNotIn("12345678909", text)
            self.assertIn("*%d*" % len(CODE), text)

    def test_can_be_silent(self):
        self.assertEqual(self.lines("--quiet"), [])


if __name__ == "__main__":
    unittest.main()
