"""satctl doctor in worlds made up here: a USB bus, /dev, /proc, /etc and udev rules under a folder."""

import fcntl
import json
import os
import re
import shutil
import subprocess
import tarfile
import time

import support
from support import CODE, REFUSED, SALE, SUCCESS, USAGE, SatctlTest

UDEV_RULE = 'ENV{ID_MODEL}=="*VDR-K20*", ENV{ID_MM_DEVICE_IGNORE}="1"\n'


class World(SatctlTest):
    """/ of a till with a device, all well; each test breaks something."""

    def setUp(self):
        super().setUp()
        self.folder = self.path("till")
        self.root = os.path.dirname(self.folder) + "/root"
        os.makedirs(self.folder)
        os.makedirs(self.path("Log"))
        self.write("SAT.ini", "[LOG]\nLogFilePath=Log\nLogMode=1\n")
        self.place("etc/passwd", "root:x:0:0::/root:/bin/sh\npdv:x:1001:1001::/home/pdv:/bin/sh\n")
        self.place("etc/group", "root:x:0:\ndialout:x:%d:pdv\npdv:x:1001:\n" % os.getgid())
        self.place("run/systemd/timesync/synchronized", "")
        self.plug("1-2", "TALVEX", "VDR-K20", "ttyACM0")
        os.chmod(self.folder, 0o777)
        os.chmod(self.path("Log"), 0o777)

    def place(self, name, content):
        path = os.path.join(self.root, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as file:
            file.write(content)
        return path

    def plug(self, port, manufacturer, product, node=None, mode=0o660):
        bus = "sys/devices/pci/usb1"
        device = "%s/%s" % (bus, port)
        for name, value in (("idVendor", "1fc9"), ("idProduct", "0094"), ("manufacturer", manufacturer),
                            ("product", product), ("serial", "900000001"), ("dev", "189:1"),
                            ("uevent", "DEVNAME=bus/usb/001/002\n")):
            self.place("%s/%s" % (device, name), value + "\n")
        os.makedirs(os.path.join(self.root, "sys/bus/usb/devices"), exist_ok=True)
        link = os.path.join(self.root, "sys/bus/usb/devices/usb1")
        if not os.path.islink(link):
            os.symlink("../../../devices/pci/usb1", link)
        if node:
            self.place("%s/%s:1.0/tty/%s/dev" % (device, port, node), "166:%s\n" % node[-1])
            self.place("%s/%s:1.0/tty/%s/uevent" % (device, port, node), "MAJOR=166\nDEVNAME=%s\n" % node)
            os.chmod(self.place("dev/" + node, ""), mode)

    def unplug(self):
        shutil.rmtree(os.path.join(self.root, "sys"))
        shutil.rmtree(os.path.join(self.root, "dev"))

    def run_process(self, number, program, *files):
        self.place("proc/%d/comm" % number, program + "\n")
        os.makedirs(os.path.join(self.root, "proc/%d/fd" % number), exist_ok=True)
        for index, file in enumerate(files):
            os.symlink(file, os.path.join(self.root, "proc/%d/fd/%d" % (number, index)))

    def doctor(self, *arguments, expected=SUCCESS, **variables):
        findings = self.json("doctor", "--root", self.root, *arguments, expected=expected, **variables)["checks"]
        return {finding["id"]: (finding["grade"], finding["text"], finding["remedy"]) for finding in findings}

    def assert_finding(self, findings, check, grade, text="", remedy=""):
        self.assertEqual(findings[check][0], grade, findings[check])
        self.assertIn(text, findings[check][1])
        self.assertIn(remedy, findings[check][2])


class AllWell(World):
    def test_every_check_is_ok(self):
        findings = self.doctor("--user", "pdv")
        self.assertEqual({grade for grade, _, _ in findings.values()}, {"OK"}, findings)
        self.assertEqual([check for check in findings if not check.startswith("ini.")],
                         ["usb", "port", "node", "lock", "modem-manager", "ini", "folder", "log-folder", "space",
                          "log-size", "clock", "time-zone", "library", "exports"])
        self.assertEqual(len([check for check in findings if check.startswith("ini.")]), 33)
        self.assertEqual(findings["usb"][1], "1-2: 1fc9:0094 TALVEX VDR-K20 900000001 -> /dev/ttyACM0")
        self.assertEqual(findings["port"][1], "/dev/ttyACM0 (found on the USB)")
        self.assertTrue(all(remedy == "" for _, _, remedy in findings.values()))

    def test_text(self):
        done = self.run_satctl("doctor", "--root", self.root, "--user", "pdv")
        for line in done.out.splitlines():
            self.assertRegex(line, r"^(OK|WARN|FAIL) +[a-z-]+ +\S")
        self.assertIn("OK   ini            [LOG] LogMode=1 (default 1): applied\n", done.out)

    def test_it_leaves_no_trace_in_the_tills_folder(self):
        before = sorted(os.listdir(self.folder)), os.listdir(self.path("Log"))
        self.doctor("--user", "pdv")
        self.assertEqual((sorted(os.listdir(self.folder)), os.listdir(self.path("Log"))), before)


class Device(World):
    def test_none(self):
        self.unplug()
        findings = self.doctor(expected=REFUSED)
        self.assert_finding(findings, "usb", "FAIL", "no device on the USB", "check cable and power")
        self.assert_finding(findings, "port", "FAIL")
        self.assertNotIn("node", findings)

    def test_without_a_serial_port(self):
        self.unplug()
        self.plug("1-3", "TALVEX", "SAT")
        findings = self.doctor(expected=REFUSED)
        self.assert_finding(findings, "usb", "FAIL", "1-3: 1fc9:0094 TALVEX SAT", "modprobe cdc_acm")

    def test_another_device_does_not_count(self):
        self.unplug()
        self.plug("1-4", "ACME", "Modem", "ttyACM3")
        self.assert_finding(self.doctor(expected=REFUSED), "usb", "FAIL", "no device")

    def test_a_wrong_kind_of_node_does_not_count(self):
        self.unplug()
        self.plug("1-4", "TALVEX", "SAT", "ttyUSB0")
        self.assert_finding(self.doctor(expected=REFUSED), "usb", "FAIL", "without a serial port")

    def test_named_by_udev_only(self):
        self.unplug()
        self.plug("1-5", "ACME", "Generic", "ttyACM5")
        self.place("run/udev/data/c166:5", "E:ID_MODEL=VDR-K20\n")
        self.assert_finding(self.doctor("--user", "pdv"), "usb", "OK", "-> /dev/ttyACM5")

    def test_two(self):
        self.plug("1-7", "ACME", "VDR-K20", "ttyACM1")
        findings = self.doctor("--user", "pdv")
        self.assert_finding(findings, "usb", "WARN", "several devices", "FixarPorta")
        self.assert_finding(findings, "port", "OK", "/dev/ttyACM1")

    def test_fixed_port_wins(self):
        self.write("SAT.ini", "[SERIAL_PORT_CONFIG]\nFixarPorta=/dev/ttyS9\n")
        findings = self.doctor(expected=REFUSED)
        self.assert_finding(findings, "port", "OK", "/dev/ttyS9 (fixed in SAT.ini)")
        self.assert_finding(findings, "node", "FAIL", "/dev/ttyS9: No such file")

    def test_emulator(self):
        self.unplug()
        self.write_ini(port="/dev/emulated0")
        os.chmod(self.place("dev/emulated0", ""), 0o666)
        findings = self.doctor("--user", "pdv")
        self.assert_finding(findings, "usb", "WARN", "/dev/emulated0 is used as SAT.ini says")
        self.assert_finding(findings, "port", "OK", "the emulator's")

    def test_port_without_a_digit_at_the_end(self):
        self.unplug()
        self.write_ini(port="/dev/emulated")
        self.assert_finding(self.doctor(expected=REFUSED), "port", "FAIL", "/dev/emulated", "must end in a digit")


class Permissions(World):
    def test_missing_group(self):
        self.place("etc/passwd", "root:x:0:0::/root:/bin/sh\nana:x:1002:1002::/home/ana:/bin/sh\n")
        self.place("etc/group", "root:x:0:\ndialout:x:4242:pdv\nana:x:1002:\n")
        if os.getuid() == 0:
            os.chown(os.path.join(self.root, "dev/ttyACM0"), 0, 4242)
            group = "dialout"
        else:
            group = str(os.getgid())
        findings = self.doctor("--user", "ana", expected=REFUSED)
        self.assert_finding(findings, "node", "FAIL", "user ana", "sudo usermod -aG %s ana" % group)
        self.assertRegex(findings["node"][1], r"^/dev/ttyACM0 \S+:%s 0660, user ana$" % group)

    def test_unreadable_node(self):
        os.chmod(os.path.join(self.root, "dev/ttyACM0"), 0o600)
        self.place("etc/passwd", "ana:x:1002:1002::/home/ana:/bin/sh\n")
        findings = self.doctor("--user", "ana", expected=REFUSED)
        self.assert_finding(findings, "node", "FAIL", " 0600,", "udev rule (group dialout, mode 0660)")

    def test_unknown_user(self):
        self.assertIn("no such user",
                      self.run_satctl("doctor", "--root", self.root, "--user", "nobody-here", expected=USAGE).err)

    def test_folder_and_logs_of_another_user(self):
        os.chmod(self.folder, 0o755)
        os.chmod(self.path("Log"), 0o755)
        name = time.strftime("%Y%m%d", time.gmtime(time.time() - 3 * 3600)) + "_SAT_ProtocolLog.txt"
        os.chmod(self.write("Log/" + name, "x"), 0o600)
        self.place("etc/passwd", "root:x:0:0::/:/bin/sh\npdv:x:1001:1001::/:/bin/sh\n")
        findings = self.doctor("--user", "pdv", expected=REFUSED, TZ="UTC3")
        self.assert_finding(findings, "folder", "FAIL", "pdv cannot write in " + self.folder, "sudo chown pdv")
        self.assert_finding(findings, "log-folder", "FAIL")
        self.assert_finding(findings, "log-file", "FAIL", "pdv cannot write it", "sudo chown pdv")

    def test_unreadable_ini(self):
        os.chmod(self.path("SAT.ini"), 0o600)
        self.assert_finding(self.doctor("--user", "pdv", expected=REFUSED), "ini", "FAIL", "cannot be read by pdv")

    def test_missing_ini(self):
        os.unlink(self.path("SAT.ini"))
        self.assert_finding(self.doctor("--user", "pdv"), "ini", "WARN", "No such file", "writes it with defaults")


class Holders(World):
    def lock_in_made_up_world(self, number):
        node = os.stat(os.path.join(self.root, "dev/ttyACM0"))
        self.place("proc/locks", "1: POSIX  ADVISORY  WRITE 1 00:01:7 0 EOF\n2: FLOCK  ADVISORY  WRITE %d %02x:%02x:%d 0 EOF\n"
                   "2: -> FLOCK  ADVISORY  WRITE 999 %02x:%02x:%d 0 EOF\n"
                   % (number, *([os.major(node.st_dev), os.minor(node.st_dev), node.st_ino] * 2)))

    def test_locked(self):
        self.run_process(4242, "pdv-caixa", "/dev/ttyACM0")
        self.lock_in_made_up_world(4242)
        findings = self.doctor("--user", "pdv")
        self.assert_finding(findings, "lock", "WARN", "the port is locked by pdv-caixa (pid 4242)", "kill 4242")

    def test_open_without_a_lock(self):
        self.run_process(77, "minicom", "/dev/null", "/dev/ttyACM0")
        self.assert_finding(self.doctor("--user", "pdv"), "lock", "WARN", "open in minicom (pid 77), without a lock")

    def test_a_real_lock_in_the_real_world(self):
        self.start_emulator()
        descriptor = os.open(self.path("sat0"), os.O_RDWR | os.O_NOCTTY)
        self.addCleanup(os.close, descriptor)
        fcntl.flock(descriptor, fcntl.LOCK_EX)
        checks = json.loads(subprocess.run(self.command("doctor", "--json"), check=False, capture_output=True,
                                           timeout=support.ONE_RUN, env=support.environment()).stdout)["checks"]
        texts = [check["text"] for check in checks if check["id"] == "lock"]
        self.assertEqual(len(texts), 1)
        self.assertRegex(texts[0], r"^the port is locked by \S+ \(pid %d\)$" % os.getpid())

    def test_modem_manager_without_a_rule(self):
        self.run_process(500, "ModemManager")
        self.assert_finding(self.doctor("--user", "pdv", expected=REFUSED), "modem-manager", "FAIL",
                            "ModemManager runs (pid 500)", "ID_MM_DEVICE_IGNORE")

    def test_modem_manager_with_a_rule(self):
        self.run_process(500, "ModemManager")
        for rule in (UDEV_RULE, 'ATTRS{idVendor}=="1fc9", ENV{ID_MM_DEVICE_IGNORE}="1"\n'):
            self.place("usr/lib/udev/rules.d/60-sat.rules", rule)
            self.assert_finding(self.doctor("--user", "pdv"), "modem-manager", "OK", "60-sat.rules")

    def test_a_rule_for_another_device_or_in_a_comment_does_not_count(self):
        self.run_process(500, "ModemManager")
        for rule in ('ATTRS{idVendor}=="abcd", ENV{ID_MM_DEVICE_IGNORE}="1"\n', "# " + UDEV_RULE):
            self.place("etc/udev/rules.d/60-sat.rules", rule)
            self.assert_finding(self.doctor("--user", "pdv", expected=REFUSED), "modem-manager", "FAIL")

    def test_the_property_in_udevs_own_record(self):
        self.run_process(500, "ModemManager")
        self.place("run/udev/data/c166:0", "E:ID_MODEL=VDR-K20\nE:ID_MM_DEVICE_IGNORE=1\n")
        self.assert_finding(self.doctor("--user", "pdv"), "modem-manager", "OK")


class Surroundings(World):
    def test_every_item_of_the_ini(self):
        self.write("SAT.ini", "[SAT_TIMEOUT]\nExtrairLogs=60\nEnviarDadosVenda=45\n[LOG]\nLogMode=x\nLogMod=1\n")
        findings = self.doctor("--user", "pdv")
        self.assert_finding(findings, "ini.SAT_TIMEOUT.ExtrairLogs", "WARN", "ExtrairLogs=60 (default 30)",
                            "read, but without effect")
        self.assert_finding(findings, "ini.SAT_TIMEOUT.EnviarDadosVenda", "OK", "=45 (default 30): applied")
        self.assert_finding(findings, "ini.SAT_TIMEOUT.AtivarSAT", "OK", "(missing) (default 1800): not set: 1800 holds")
        self.assert_finding(findings, "ini.LOG.LogMode", "WARN", "LogMode=x", "counts as 1")
        self.assert_finding(findings, "ini.stray", "WARN", "line 6: [LOG] LogMod: unknown item")

    def test_time_zone(self):
        self.assert_finding(self.doctor("--user", "pdv", TZ="UTC0"), "time-zone", "WARN", "no time zone of Brazil",
                            "America/Sao_Paulo")
        self.assert_finding(self.doctor("--user", "pdv", TZ="<-04>4"), "time-zone", "OK")

    def test_clock_not_kept_by_the_network(self):
        os.unlink(os.path.join(self.root, "run/systemd/timesync/synchronized"))
        self.assert_finding(self.doctor("--user", "pdv"), "clock", "WARN", "", "set-ntp")

    def test_size_of_todays_logs(self):
        name = time.strftime("%Y%m%d", time.gmtime()) + "_SAT_api.log"
        with open(self.write("Log/" + name, ""), "wb") as log:
            log.truncate(60_000_000)
        os.chmod(self.path("Log/" + name), 0o666)
        self.assert_finding(self.doctor("--user", "pdv", TZ="UTC0"), "log-size", "WARN", "1 files, 60.0 MB (LogMode=1)")

    def test_no_library(self):
        findings = self.doctor("--user", "pdv", "--library", "/nonexistent.so", expected=REFUSED)
        self.assert_finding(findings, "library", "FAIL", "/nonexistent.so", "libtalvex2")

    def test_another_library(self):
        findings = self.doctor("--user", "pdv", "--library", "libc.so.6", expected=REFUSED)
        self.assert_finding(findings, "exports", "FAIL", "missing: AtivarSAT, ")

    def test_library_with_its_version_and_path(self):
        self.assert_finding(self.doctor("--user", "pdv"), "library", "OK",
                            "TALVEX DLL Ver. 02.00, " + os.path.realpath(support.LIBRARY))


class Bundle(World):
    def test_it_holds_everything_but_secrets(self):
        self.start_emulator(log_mode=5)
        self.sell()
        self.run_satctl("trocar-codigo-de-ativacao", "--opcao", "1", "--novo-codigo", "segredo-novo", "--confirmacao",
                        "segredo-novo")
        self.run_satctl("doctor", "--root", self.root, "--bundle", self.path("b.tar.gz"))
        self.assertEqual(os.stat(self.path("b.tar.gz")).st_mode & 0o777, 0o600)
        with tarfile.open(self.path("b.tar.gz")) as bundle:
            files = {os.path.basename(member.name): bundle.extractfile(member).read().decode("utf-8", "replace")
                     for member in bundle.getmembers() if member.isfile()}
        dated = {re.sub(r"^\d{8}", "", name) for name in files}
        self.assertEqual(dated, {"README.txt", "doctor.txt", "doctor.json", "system.txt", "SAT.ini", "SAT.conf", "_SAT_api.log",
                                 "_SAT_ProtocolLog.txt"})
        self.assertTrue(json.loads(files["doctor.json"])["checks"])
        logs = "".join(files.values())
        self.assertIn("EnviarDadosVenda|004711|********|", logs)
        for secret in (CODE, "segredo-novo", "11222333000181", "12345678000195", "12345678909"):
            self.assertIn(secret, self.logs() + SALE.read_text())
            self.assertNotIn(secret, logs)
        for blob in re.findall(r"[A-Za-z0-9+/]{60,}", logs):
            self.fail(blob)

    def bundled(self):
        """The files of a bundle that is made now."""
        self.run_satctl("doctor", "--root", self.root, "--bundle", self.path("b.tar.gz"), TZ="UTC3")
        with tarfile.open(self.path("b.tar.gz")) as bundle:
            return {os.path.basename(member.name): bundle.extractfile(member).read().decode("utf-8", "replace")
                    for member in bundle.getmembers() if member.isfile()}

    @staticmethod
    def log_name(suffix):
        return time.strftime("%Y%m%d", time.gmtime(time.time() - 3 * 3600)) + suffix

    def test_documents_and_network_settings_stay_out(self):
        network = ("<config><lanIP>10.1.2.3</lanIP><usuario>ana</usuario><senha>abre-te</senha><codigo>4321</codigo>"
                   "<proxy_senha>sesamo</proxy_senha></config>")
        sale = "<CFe><dest><xNome>Maria Aparecida</xNome></dest><entrega><xLgr>Rua das Flores</xLgr></entrega></CFe>"
        self.write("Log/" + self.log_name("_SAT_ProtocolLog.txt"),
                   "20260302120000 PC->SAT >> [<02>ConfigurarInterfaceDeRede|000001|%s|%s<41><03>]OK:a\n" % (CODE, network) +
                   "20260302120000 PC->SAT >> [<02>EnviarDadosVenda|000002|%s|%s<41><03>]OK:a\n" % (CODE, sale) +
                   "20260302120001 SAT->PC << [<02>000003|10000|Resposta com Sucesso|||900000001|DHCP|10.1.2.3|"
                   "02:53:41:54:00:01|255.255.255.0<--><03>]WR:d\n")
        logs = "".join(self.bundled().values())
        self.assertIn("EnviarDadosVenda|000002|", logs)
        for secret in ("10.1.2.3", "02:53:41", "255.255", "abre-te", "4321", "sesamo", "Maria", "Flores"):
            self.assertNotIn(secret, logs)

    def test_settings_that_are_none_stay_out(self):
        self.write_ini(more="EnviarDadosVenda=45\nCodigo=%s\n" % CODE)
        with open(self.path("SAT.ini"), "a", encoding="utf-8") as ini:
            ini.write("# senha do wifi: sesamo\n[sesamo]\nLogFileName=Ana Maria\n")
        files = self.bundled()
        self.assertIn("EnviarDadosVenda=45\n*%d*\n" % len("Codigo=" + CODE), files["SAT.ini"])
        for secret in (CODE, "sesamo", "Ana"):
            self.assertNotIn(secret, "".join(files.values()))

    def test_a_name_with_a_number_of_somebody_gets_another(self):
        self.write("Log/" + self.log_name("_12345678909.log"), "[09:00:00.000]ERR [0042] OLK_Exist  x\n")
        files = self.bundled()
        self.assertIn("[09:00:00.000]ERR [0042] OLK_Exist*3*\n", files["log-1.txt"])
        self.assertNotIn("12345678909", "".join(files) + "".join(files.values()))

    def test_its_head_says_how_it_is_masked_and_what_is_left_out(self):
        name = self.log_name("_SAT_ProtocolLog.txt")
        line = "20260302120000 PC->SAT >> [<02>ConsultarSAT|00001<41><03>]OK:a\n"
        self.write("Log/" + name, "torn line\n" + line * (5_100_000 // len(line)))
        head = self.bundled()["README.txt"]
        self.assertIn("********           an activation code", head)
        self.assertRegex(head, r"%s: the first \d+ bytes" % name)
        self.assertRegex(head, r"%s: \d+ bytes that belong to no record" % name)

    def test_a_code_that_the_device_sends_back_byte_by_byte_stays_out(self):
        stamp = "[09:00:00.000]WRN [0140] [../src/api/TALVEX] "
        self.write("Log/" + self.log_name("_SAT_api.log"),
                   "".join(stamp + "[cSerialReadAck] SAT->PC Rcvd[%02Xh]---\n" % byte for byte in CODE.encode()) +
                   "".join(stamp + "[cSerialReadBufW]Lnx << SAT->PC Rcvd[%02Xh]Expected STX  iCurPos[0] liDiffTime[0\n" % byte
                           for byte in CODE.encode()))
        log = self.bundled()[self.log_name("_SAT_api.log")]
        shown = bytes(int(byte, 16) for byte in re.findall(r"Rcvd\[([0-9A-F]{2})h\]", log))
        self.assertEqual(shown, b"")

    def test_links_are_not_followed(self):
        outside = self.write("elsewhere.txt", "[09:00:00.000]ERR [0001] [../src/api/TALVEX] [findSat]outside\n")
        os.symlink(outside, self.path("Log/" + self.log_name("_SAT_api.log")))
        os.symlink(outside, self.path("SAT.conf"))
        files = self.bundled()
        self.assertIn("SAT.ini", files)
        self.assertNotIn("outside", "".join(files.values()))
        self.assertIn("SAT.conf: a link", files["README.txt"])

    def logs(self):
        return "".join(self.read("Log/" + name) for name in os.listdir(self.path("Log")))

    def test_a_bundle_that_cannot_be_written(self):
        done = self.run_satctl("doctor", "--root", self.root, "--user", "pdv", "--bundle", "/nonexistent/b.tar.gz",
                               expected=USAGE)
        self.assertIn("could not be written", done.err)


if __name__ == "__main__":
    support.main()
