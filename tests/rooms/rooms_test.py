"""Includes go one way, and the check that says so finds those that do not."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

TOP = pathlib.Path(__file__).resolve().parents[2]


def check(folder):
    run = subprocess.run([sys.executable, TOP / "scripts/check-rooms", folder], capture_output=True, text=True)
    return run.returncode, run.stderr.replace(str(folder) + "/", "")


class Programs(unittest.TestCase):
    def test_every_program_with_rooms_keeps_to_its_list(self):
        lists = sorted(TOP.glob("tools/*/rooms"))
        self.assertTrue(lists)
        for rooms in lists:
            with self.subTest(program=rooms.parent.name):
                self.assertEqual(check(rooms.parent), (0, ""))


class TheCheck(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.program = pathlib.Path(folder.name)
        self.write("rooms", "line :\ndevice : line  # behind it\n. : device\noutside : talvex\n")
        self.write("line/frame.h", "")
        self.write("device/device.cpp", '#include <map>\n#include "line/frame.h"\n#include "device/device.h"\n')
        self.write("device/device.h", '#include "talvex/talvex.h"\n')
        self.write("main.cpp", '#include "device/device.h"\n')

    def write(self, name, text):
        path = self.program / name
        path.parent.mkdir(exist_ok=True)
        path.write_text(text)

    def assert_complains(self, text):
        self.assertEqual(check(self.program), (1, text + "\n"))

    def test_right_rooms(self):
        self.assertEqual(check(self.program), (0, ""))

    def test_an_include_against_the_arrows(self):
        self.write("line/frame.h", '\n#include "device/device.h"\n')
        self.assert_complains("line/frame.h:2: line must not include device")

    def test_an_include_that_passes_a_room_by(self):
        self.write("main.cpp", '#include "device/device.h"\n#include "line/frame.h"\n')
        self.assert_complains("main.cpp:2: . must not include line")

    def test_a_list_with_a_circle(self):
        self.write("rooms", "line : device\ndevice : line\n. : device\noutside : talvex\n")
        self.write("line/frame.h", '#include "device/device.h"\n')
        self.assert_complains("rooms:1: line includes device, which is not listed above it")

    def test_a_file_in_no_room(self):
        self.write("desk/options.h", "")
        self.assert_complains("desk/options.h: lies in no room that is listed")

    def test_an_include_that_is_not_named_from_the_programs_folder(self):
        self.write("device/device.cpp", '#include "device.h"\n#include "line/frame.h"\n')
        self.assert_complains("device/device.cpp:1: device.h is no file of this program, named from its folder")

    def test_an_arrow_that_is_no_longer_there(self):
        self.write("device/device.cpp", "")
        self.assert_complains("rooms: device no longer includes line")


if __name__ == "__main__":
    unittest.main()
