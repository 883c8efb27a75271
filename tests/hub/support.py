"""A hub with its emulator, tills that speak HTTP, and the question that every test ends with: do emulator, journal and
tills agree, receipt by receipt?"""

import base64
import http.client
import json
import os
import shutil
import signal
import socket
import sqlite3
import subprocess
import sys
import tempfile
import threading
import time
import unittest

HUB = os.environ["TALVEX_HUB"]
EMULATOR = os.environ["SAT_EMULATOR"]
LIBRARY = os.environ["TALVEX_LIBRARY"]
SHIM = os.environ.get("HUB_SHIM", "")
CODE = "codigo-8642"
SERIAL = "900000001"
ALARM = 200

SALE = ('<CFe><infCFe versaoDadosEnt="0.07"><ide><CNPJ>12345678000195</CNPJ><signAC>assinatura</signAC>'
        '<numeroCaixa>001</numeroCaixa></ide><emit><CNPJ>11222333000181</CNPJ><IE>111222333444</IE></emit><dest></dest>'
        '<det nItem="1"><prod><cProd>%s</cProd><xProd>Artigo</xProd><CFOP>5102</CFOP><uCom>UN</uCom><qCom>1.0000</qCom>'
        '<vUnCom>%s</vUnCom><indRegra>A</indRegra></prod><imposto></imposto></det><total/>'
        '<pgto><MP><cMP>01</cMP><vMP>%s</vMP></MP></pgto></infCFe></CFe>')
CANCELLATION = ('<CFeCanc><infCFe chCanc="%s"><ide><CNPJ>12345678000195</CNPJ><signAC>assinatura</signAC>'
                '<numeroCaixa>001</numeroCaixa></ide><emit/><dest/><total/></infCFe></CFeCanc>')


def sale(item, price="10.00"):
    return (SALE % (item, price, price)).encode()


def b64(data):
    return base64.b64encode(data).decode()


def environment(**more):
    base = {name: os.environ[name] for name in ("PATH", "TMPDIR", "LD_LIBRARY_PATH") if name in os.environ}
    base.update(LANG="C.UTF-8", TZ="<-03>3", ASAN_OPTIONS="detect_leaks=0:verify_asan_link_order=0", **more)
    return base


def wait_for(condition, what, limit=60):
    end = time.monotonic() + limit
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            raise TimeoutError(what)
        time.sleep(0.01)


class Emulator:
    """The device. Its state file says which receipts there really are."""

    def __init__(self, folder, name="sat0", serial=SERIAL, *options):
        self.folder, self.name, self.serial, self.options = folder, name, serial, options
        self.link = os.path.join(folder, name)
        self.control = os.path.join(folder, "control-" + serial)
        self.state = os.path.join(folder, "device-%s.json" % serial)
        self.process = None
        self.start()

    def start(self, *more):
        self.process = subprocess.Popen(
            [EMULATOR, "--link", self.link, "--activated", "--activation-code", CODE, "--serial", self.serial,
             "--state", self.state, "--control", self.control, "--quiet", *self.options, *more],
            stdout=subprocess.PIPE, text=True, env=environment())
        if not self.process.stdout.readline():
            raise RuntimeError("the emulator ended with %d" % self.process.wait())

    def stop(self):
        if self.process.poll() is None:
            self.process.terminate()
        self.process.wait(10)
        self.process.stdout.close()

    def kill(self):
        self.process.kill()
        self.process.wait(10)
        self.process.stdout.close()
        os.unlink(self.link)  # its number may be another terminal's by now

    def order(self, text):
        with socket.socket(socket.AF_UNIX) as link:
            link.settimeout(30)
            link.connect(self.control)
            link.sendall(text.encode() + b"\n")
            data = b""
            while not data.endswith(b"\n"):
                piece = link.recv(1 << 20)
                if not piece:
                    break
                data += piece
        answer = json.loads(data)
        if not answer.get("ok"):
            raise RuntimeError("%s: %s" % (text, answer))
        return answer

    def receipts(self):
        with open(self.state, encoding="utf-8") as file:
            return json.load(file)["receipts"]

    def keys(self):
        return [receipt["key"].lower().replace("cfe", "") for receipt in self.receipts()]


class Answer:
    def __init__(self, status, body, headers):
        self.status, self.raw, self.headers = status, body, headers
        try:
            self.json = json.loads(body)
        except ValueError:
            self.json = None

    def __getitem__(self, name):
        return self.json[name]

    @property
    def state(self):
        return self.json.get("estado")

    @property
    def code(self):
        return self.json.get("resposta", {}).get("EEEEE")

    @property
    def receipt(self):
        return self.json.get("resposta", {}).get("chaveConsulta", "").lower().replace("cfe", "")


class Till:
    def __init__(self, hub, token):
        self.hub, self.token = hub, token

    def request(self, method, path, body=None, limit=100):
        link = http.client.HTTPConnection("127.0.0.1", self.hub.port, timeout=limit)
        try:
            headers = {"Authorization": "Bearer " + self.token} if self.token else {}
            data = body if isinstance(body, (bytes, type(None))) else json.dumps(body).encode()
            link.request(method, path, data, headers)
            answer = link.getresponse()
            return Answer(answer.status, answer.read(), dict(answer.getheaders()))
        finally:
            link.close()

    def sell(self, key, data=None, **fields):
        return self.request("PUT", "/v1/vendas/" + key, {"dadosVenda": b64(data or sale(key)), **fields})

    def cancel(self, key, receipt, **fields):
        receipt = "CFe" + receipt
        return self.request("PUT", "/v1/cancelamentos/" + key,
                            {"chaveConsulta": receipt, "dadosCancelamento": b64((CANCELLATION % receipt).encode()),
                             **fields})

    def look(self, key, wait=0):
        return self.request("GET", "/v1/vendas/%s?wait=%d" % (key, wait))

    def call(self, function, **fields):
        return self.request("POST", "/v1/funcoes/" + function, fields)

    def until_settled(self, key, data=None, limit=60, **fields):
        """The key, again and again, as a till does that must know. It bears whatever happens to the hub."""
        end = time.monotonic() + limit
        while True:
            self.hub.revive()
            try:
                answer = self.sell(key, data, espera=5, **fields)
                if answer.state in ("done", "expired", "not-issued"):
                    return answer
            except (OSError, http.client.HTTPException):
                answer = None
            if time.monotonic() > end:
                raise TimeoutError("%s: %s" % (key, answer and answer.raw))
            time.sleep(0.05)


class Hub:
    def __init__(self, folder, **settings):
        self.folder = folder
        self.state = os.path.join(folder, "hub")
        self.locks = os.path.join(folder, "locks")
        self.config = os.path.join(folder, "hub.toml")
        self.socket = os.path.join(folder, "hub.sock")
        self.port = 0
        self.process = None
        os.makedirs(self.state, exist_ok=True)
        os.makedirs(self.locks, exist_ok=True)
        self.write_code(CODE)
        self.write_config(**settings)

    def write_code(self, code):
        path = os.path.join(self.folder, "code")
        new = path + ".new"
        with open(new, "w") as file:
            file.write(code + "\n")
        os.chmod(new, 0o400)
        os.rename(new, path)

    def write_config(self, device="sat0", serial=None):
        with open(self.config, "w") as file:
            file.write('state = "%s"\nlocks = "%s"\nlibrary = "%s"\n[listen]\nhttp = ["127.0.0.1:0"]\nsocket = "%s"\n'
                       '[[device]]\nemulator = "%s"\nactivation_code_file = "%s"\n'
                       % (self.state, self.locks, LIBRARY, self.socket, os.path.join(self.folder, device),
                          os.path.join(self.folder, "code")))
            if serial:
                file.write('serial = "%s"\n' % serial)

    def start(self, **variables):
        if variables:
            variables["LD_PRELOAD"] = SHIM
        self.log = open(os.path.join(self.folder, "hub.log"), "a")
        self.process = subprocess.Popen([HUB, "serve", "--config", self.config], stdout=subprocess.PIPE, text=True,
                                        stderr=self.log, env=environment(**variables))
        line = self.process.stdout.readline()
        if line:
            assert line.startswith("listening on http://127.0.0.1:"), line
            self.port = int(line.strip().rsplit(":", 1)[1])
        return line

    def revive(self):
        """As its supervisor would, a hub that the shim has killed."""
        if self.process.poll() is not None:
            self.end()
            self.start()

    def kill(self):
        self.process.kill()
        self.end()

    def stop(self):
        if self.process is None:
            return
        if self.process.poll() is None:
            self.process.terminate()
        try:
            self.end()
        except subprocess.TimeoutExpired:
            self.kill()
            raise

    def end(self):
        status = self.process.wait(60)
        self.process.stdout.close()
        self.log.close()
        return status

    def command(self, *arguments, status=0):
        done = subprocess.run([HUB, "--config", self.config, *arguments], capture_output=True, text=True, timeout=60,
                              env=environment())
        assert done.returncode == status, (arguments, done)
        return done.stdout

    def till(self, name, role="till"):
        return Till(self, self.command("till", "add", "--name", name, "--role", role).strip())

    def children(self):
        """Process ids of the device child."""
        path = "/proc/%d/task/%d/children" % (self.process.pid, self.process.pid)
        try:
            with open(path) as file:
                return [int(word) for word in file.read().split()]
        except FileNotFoundError:
            return []

    def journal(self):
        database = sqlite3.connect(os.path.join(self.state, "journal.sqlite"))
        database.row_factory = sqlite3.Row
        return database

    def rows(self, query):
        database = self.journal()
        try:
            return [dict(row) for row in database.execute(query)]
        finally:
            database.close()


class HubTest(unittest.TestCase):
    def setUp(self):
        signal.signal(signal.SIGALRM, self.ring)
        signal.alarm(ALARM)
        self.addCleanup(signal.alarm, 0)
        self.folder = tempfile.mkdtemp(prefix="hub.", dir="/tmp")
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    @staticmethod
    def ring(*_):
        raise TimeoutError("the test takes too long")

    def emulator(self, *options, name="sat0", serial=SERIAL):
        emulator = Emulator(self.folder, name, serial, *options)
        self.addCleanup(emulator.stop)
        return emulator

    def hub(self, start=True, **settings):
        hub = Hub(self.folder, **settings)
        self.addCleanup(hub.stop)
        if start:
            hub.start()
        return hub

    def ready(self, till):
        wait_for(lambda: till.request("GET", "/v1/equipamentos")["equipamentos"][0]["estado"] == "ready",
                 "the device is ready")

    def open_shop(self, *options):
        device, hub = self.emulator(*options), self.hub()
        till = hub.till("Caixa 1")
        self.ready(till)
        return device, hub, till

    def in_background(self, work):
        results = []
        thread = threading.Thread(target=lambda: results.append(work()), daemon=True)
        thread.start()
        return thread, results

    def assert_agreement(self, device, hub, *told):
        """Each receipt of the device is in the journal, under one operation; each till was told its own."""
        there = device.keys()
        rows = hub.rows("SELECT key, operation FROM receipt")
        self.assertEqual(sorted(there), sorted(row["key"] for row in rows), "device and journal differ")
        owners = [row["operation"] for row in rows if row["operation"] is not None]
        self.assertEqual(len(owners), len(set(owners)), "two receipts for one operation")
        for answer in told:
            self.assertEqual(answer.code, "06000", answer.raw)
            self.assertIn(answer.receipt, there)
        receipts = [answer.receipt for answer in told]
        self.assertEqual(len(receipts), len(set(receipts)), "two tills were told one receipt")


def main():
    unittest.main(argv=[sys.argv[0], "-v"] if len(sys.argv) == 1 else sys.argv)
