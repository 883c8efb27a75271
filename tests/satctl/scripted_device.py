"""A device on a pseudo-terminal that says what a test wants, byte for byte."""

import os
import pty
import select
import threading
import tty

STX, ETX, ACK = b"\x02", b"\x03", b"\x06"


def frame(text):
    total = sum(text) % 256
    return STX + text + bytes([4 if total == 3 else total]) + ETX


class ScriptedDevice:
    """Answers each command with reply(command); ends with the `with` block."""

    def __init__(self, link, reply):
        self.master, self.slave = pty.openpty()
        tty.setraw(self.slave)
        os.symlink(os.ttyname(self.slave), link)
        self.reply = reply
        self.commands = []
        self.stop_reader, self.stop_writer = os.pipe()
        self.thread = threading.Thread(target=self.serve)

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_):
        os.write(self.stop_writer, b"x")
        self.thread.join()
        for descriptor in (self.master, self.slave, self.stop_reader, self.stop_writer):
            os.close(descriptor)

    def serve(self):
        received = b""
        while True:
            ready, _, _ = select.select([self.master, self.stop_reader], [], [])
            if self.stop_reader in ready:
                return
            received += os.read(self.master, 65536)
            start, end = received.find(STX), received.find(ETX)
            if start < 0 or end < start:
                continue
            command = received[start + 1:end - 1]
            received = received[end + 1:]
            self.commands.append(command)
            os.write(self.master, ACK + frame(self.reply(command)))
