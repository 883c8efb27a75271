"""Lets udev apply packaging/65-talvex.rules, among the distribution's own rules, to mocked devices.

The devices are umockdev's; /run and /dev are folders of a mount namespace, so that nothing of this machine is
touched. Where no such namespace may be made, or a program is missing, the tests are skipped.
"""

import os
import re
import shutil
import subprocess
import tempfile
import unittest

RULES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../packaging/65-talvex.rules")
USB_DEVICE = "/devices/pci0000:00/0000:00:14.0/usb1/1-1"

MACHINE = """P: /devices/pci0000:00/0000:00:14.0/usb1
E: SUBSYSTEM=usb
E: DEVTYPE=usb_device
A: idVendor=1d6b
A: idProduct=0002

P: {usb}
E: SUBSYSTEM=usb
E: DEVTYPE=usb_device
E: DEVNAME=/dev/bus/usb/001/002
N: bus/usb/001/002
A: idVendor=1fc9
A: idProduct=2001
A: manufacturer={manufacturer}
A: product={product}
A: serial={serial}

P: {usb}/1-1:1.0
E: SUBSYSTEM=usb
E: DEVTYPE=usb_interface
A: bInterfaceNumber=00
A: bInterfaceClass=02
A: bInterfaceSubClass=02
A: bInterfaceProtocol=01

P: {tty}
N: {node}
E: SUBSYSTEM=tty
E: DEVNAME=/dev/{node}
E: MAJOR=166
E: MINOR=0
A: dev=166:0
"""

# A world of its own around udevadm: $1 the rules, $2 the mocked machine, $3 the device.
SCRIPT = """set -e
mount -t tmpfs none /run
mkdir -p /run/udev/rules.d /run/dev
cp "$1" /run/udev/rules.d/65-talvex.rules
for node in null zero urandom; do touch /run/dev/$node; mount --bind /dev/$node /run/dev/$node; done
mkdir /run/dev/pts
mount --rbind /dev/pts /run/dev/pts
ln -s pts/ptmx /run/dev/ptmx
mount --rbind /run/dev /dev
exec umockdev-run -d "$2" -- udevadm test "/sys$3"
"""


def namespace_works():
    programs = ("unshare", "umockdev-run", "udevadm")
    return all(map(shutil.which, programs)) and subprocess.run(
        ["unshare", "-rm", "mount", "-t", "tmpfs", "none", "/run"], capture_output=True).returncode == 0


@unittest.skipUnless(namespace_works(), "needs umockdev, udev and the right to make a mount namespace")
class UdevRule(unittest.TestCase):
    def applied(self, manufacturer="ACME", product="SAT Fiscal", serial="900000001", node="ttyACM0", tty=True):
        """What udevadm test prints for the port, or for the USB device."""
        port = "%s/1-1:1.0/tty/%s" % (USB_DEVICE, node)
        with tempfile.NamedTemporaryFile("w", suffix=".umockdev") as machine:
            machine.write(MACHINE.format(usb=USB_DEVICE, tty=port, node=node, manufacturer=manufacturer,
                                         product=product, serial=serial))
            machine.flush()
            result = subprocess.run(["unshare", "-rm", "sh", "-c", SCRIPT, "sh", RULES, machine.name,
                                     port if tty else USB_DEVICE], capture_output=True, text=True, timeout=60)
        output = result.stdout + result.stderr
        self.assertEqual(result.returncode, 0, output)
        self.assertNotRegex(output, r"65-talvex\.rules:\d+ (Invalid|Unknown|Failed)")
        return output

    def assert_recognised(self, output):
        self.assertRegex(output, r"65-talvex\.rules:\d+ GROUP 20\n")
        self.assertRegex(output, r"65-talvex\.rules:\d+ MODE 0660\n")
        self.assertRegex(output, r"(?m)^DEVLINKS=.*/dev/talvex0( |$)")
        for mark in ("ID_MM_DEVICE_IGNORE=1", "ID_MM_PORT_IGNORE=1", "MTP_NO_PROBE=1"):
            self.assertRegex(output, "(?m)^%s$" % mark)

    def assert_left_alone(self, output):
        self.assertNotIn("talvex0", output)
        self.assertNotRegex(output, r"(?m)^(ID_MM_\w+_IGNORE|MTP_NO_PROBE)=")

    def test_a_device_is_recognised_by_its_maker(self):
        self.assert_recognised(self.applied(manufacturer="TALVEX"))

    def test_a_device_is_recognised_by_its_product(self):
        self.assert_recognised(self.applied(product="VDR-K20"))

    def test_a_word_within_a_longer_name_counts(self):
        self.assert_recognised(self.applied(product="SAT VDR-K20 rev 2"))

    def test_a_device_is_recognised_by_its_serial_number(self):
        self.assert_recognised(self.applied(serial="TALVEX-0001"))

    def test_the_usb_device_is_marked_for_modem_manager_and_libmtp(self):
        output = self.applied(manufacturer="TALVEX", tty=False)
        self.assertRegex(output, r"(?m)^ID_MM_DEVICE_IGNORE=1$")
        self.assertRegex(output, r"(?m)^MTP_NO_PROBE=1$")
        self.assertNotIn("talvex0", output)

    def test_another_makers_port_is_left_alone(self):
        self.assert_left_alone(self.applied())
        self.assert_left_alone(self.applied(tty=False))

    def test_the_spelling_counts(self):
        self.assert_left_alone(self.applied(manufacturer="Talvex", product="vdr-k20"))

    def test_a_port_of_another_kind_is_left_alone(self):
        self.assertNotIn("talvex0", self.applied(manufacturer="TALVEX", node="ttyUSB0"))

    def test_it_stands_between_the_rules_it_needs_and_those_that_need_it(self):
        number = int(re.match(r"\d+", os.path.basename(RULES)).group())
        self.assertTrue(60 < number < 69, "after 60-serial.rules, before 69-libmtp.rules and 77-mm-*.rules")


if __name__ == "__main__":
    unittest.main()
