"""pytest fixtures: a SAT device for every test.

Copy this file beside your tests. `sat` is a device that is ready to sell; `sat_factory` starts one with options of
your own. SAT_EMULATOR names the program if it is not on the PATH.
"""

import os
import pathlib
import shutil
import subprocess
import tempfile

import pytest


class SatDevice:
    """A running emulator. `port` is what the till opens; what it says goes into a log in its folder."""

    def __init__(self, options):
        # A short name: the library takes ports of up to 31 characters.
        folder = self._folder = pathlib.Path(tempfile.mkdtemp(prefix="sat.", dir="/tmp"))
        self.port = str(folder / "sat0")
        program = os.environ.get("SAT_EMULATOR", "sat-emulator")
        self._log = open(folder / "sat-emulator.log", "w", encoding="utf-8")
        self._process = subprocess.Popen([program, "--link", self.port, *options], stdout=subprocess.PIPE,
                                         stderr=self._log, text=True)
        # The line comes once the port can be opened; an early end gives an empty one.
        if not self._process.stdout.readline():
            raise RuntimeError("sat-emulator did not start (%d); see %s" % (self._end(), self._log.name))

    def stop(self):
        """Ends this emulator, by its process id. Its log stays only if it did not end as it should."""
        status = self._end()
        if status != 0:
            raise RuntimeError("sat-emulator ended with %d; see %s" % (status, self._log.name))
        shutil.rmtree(self._folder)

    def _end(self):
        if self._process.poll() is None:
            self._process.terminate()
        status = self._process.wait(timeout=10)
        self._process.stdout.close()
        self._log.close()
        return status

    def write_sat_ini(self, folder):
        """A SAT.ini that leads the driver library to this device."""
        (folder / "SAT.ini").write_text(
            "[SERIAL_PORT_CONFIG]\n[SAT_TIMEOUT]\n[SAT_EMULATOR]\nSerialPortLinux=%s\nEnable=1\n"
            "[ARVOLEN]\n[LOG]\nLogFilePath=Log\nLogMode=1\n" % self.port)


@pytest.fixture
def sat_factory():
    """sat_factory("--fault", "on EnviarDadosVenda do no-reply"): as many devices as a test wants."""
    devices = []

    def start(*options):
        devices.append(SatDevice(options))
        return devices[-1]

    yield start
    for device in devices:
        device.stop()


@pytest.fixture
def sat(sat_factory):
    return sat_factory("--activated", "--seed", "1", "--clock", "2026-03-01T10:00:00")
