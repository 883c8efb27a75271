"""A till that speaks the link protocol byte by byte, written for the tests of the emulator.

It shares no code with the driver library or the emulator.
"""

import fcntl
import os
import select
import subprocess
import termios
import time
import tty

STX, ETX, ACK, NAK = b"\x02", b"\x03", b"\x06", b"\x15"
BLOCK = 16384


def checksum(text):
    value = sum(text) % 256
    return bytes([4 if value == 3 else value])


def frame(text):
    text = text.encode() if isinstance(text, str) else text
    return STX + text + checksum(text) + ETX


class LinkError(Exception):
    pass


class Till:
    """One opened port."""

    def __init__(self, path, limit=10.0):
        self.limit = limit
        self.fd = os.open(path, os.O_RDWR | os.O_NOCTTY | os.O_NONBLOCK)
        fcntl.flock(self.fd, fcntl.LOCK_EX | fcntl.LOCK_NB)
        tty.setraw(self.fd, termios.TCSANOW)
        try:
            while os.read(self.fd, 4096):
                pass
        except BlockingIOError:
            pass

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        if self.fd >= 0:
            os.close(self.fd)
        self.fd = -1

    def write(self, data):
        deadline = time.monotonic() + self.limit
        while data:
            try:
                data = data[os.write(self.fd, data):]
            except BlockingIOError:
                if time.monotonic() > deadline:
                    raise LinkError("the device takes nothing")
                select.select([], [self.fd], [], 0.1)

    def read(self, most=1, limit=None):
        """At least one byte, or b"" after the limit."""
        ready, _, _ = select.select([self.fd], [], [], self.limit if limit is None else limit)
        return os.read(self.fd, most) if ready else b""

    def read_until_quiet(self, quiet=0.2):
        data = b""
        while True:
            piece = self.read(65536, quiet)
            if not piece:
                return data
            data += piece

    def send_frame(self, data):
        """Block by block; returns the last answer byte."""
        answer = b""
        for start in range(0, len(data), BLOCK):
            self.write(data[start:start + BLOCK])
            answer = self.read()
            if answer != ACK:
                return answer
        return answer

    def read_frame(self):
        """The raw frame, with block acknowledgements but without the final answer."""
        data = self.read()
        while data and data != STX:
            data = self.read()
        while not data.endswith(ETX):
            room = BLOCK - len(data) % BLOCK
            piece = self.read(room)
            if not piece:
                raise LinkError("the reply stops after %d bytes" % len(data))
            data += piece
            if not data.endswith(ETX) and len(data) % BLOCK == 0:
                self.write(ACK)
        return data

    def call(self, text):
        answer = self.send_frame(frame(text))
        if answer != ACK:
            raise LinkError("answer %r to the command" % answer)
        data = self.read_frame()
        if data[:1] != STX or data != frame(data[1:-2]):
            self.write(NAK)
            raise LinkError("broken reply %r" % data[:80])
        self.write(ACK)
        return data[1:-2].decode()


class Emulator:
    """The emulator process; ends with the `with` block."""

    def __init__(self, program, *options, **popen):
        self.process = subprocess.Popen([program, *options], stdout=subprocess.PIPE, text=True, **popen)
        self.path = self.process.stdout.readline().strip()
        if not self.path:
            raise RuntimeError("the emulator ended with %d" % self.process.wait())

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()

    def stop(self):
        if self.process.poll() is None:
            self.process.terminate()
        status = self.process.wait(10)
        self.process.stdout.close()
        return status

    def call(self, *fields):
        with Till(self.path) as till:
            return till.call("|".join(fields))
