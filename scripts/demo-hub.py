#!/usr/bin/env python3
"""Three tills that share one device through the hub, a hub that is killed in the middle of a sale, and the till's key that
brings the receipt. scripts/demo starts it.

    demo-hub.py BUILD-FOLDER WORK-FOLDER EMULATOR-LINK ACTIVATION-CODE EMULATOR-CONTROL
"""

import base64
import json
import os
import signal
import socket
import subprocess
import sys
import threading
import time
import urllib.error
import urllib.request

build, work, device, code, control = sys.argv[1:]
TOP = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
CONFIG = os.path.join(work, "hub.toml")
HUB = [os.path.join(build, "bin", "talvex-hub"), "--config", CONFIG]


def configure():
    os.makedirs(os.path.join(work, "hub"), exist_ok=True)
    os.makedirs(os.path.join(work, "locks"), exist_ok=True)
    with open(os.open(os.path.join(work, "code"), os.O_WRONLY | os.O_CREAT, 0o400), "w") as file:
        file.write(code)
    with open(CONFIG, "w") as file:
        file.write('state = "%s/hub"\nlocks = "%s/locks"\nlibrary = "%s/libtalvex.so.2"\n[listen]\n'
                   'http = ["127.0.0.1:0"]\nsocket = "%s/hub.sock"\n[[device]]\nemulator = "%s"\n'
                   'activation_code_file = "%s/code"\n' % (work, work, build, work, device, work))


def start():
    hub = subprocess.Popen([*HUB, "serve"], stdout=subprocess.PIPE, text=True)
    line = hub.stdout.readline().strip()
    print(line)
    return hub, line.split()[-1]


def order(text):
    with socket.socket(socket.AF_UNIX) as link:
        link.connect(control)
        link.sendall(text.encode() + b"\n")
        link.recv(65536)


def request(method, url, token, body=None):
    message = urllib.request.Request(url, body and json.dumps(body).encode(), {"Authorization": "Bearer " + token},
                                     method=method)
    try:
        with urllib.request.urlopen(message, timeout=90) as answer:
            return json.load(answer)
    except urllib.error.HTTPError as error:
        return json.load(error)


with open(os.path.join(TOP, "examples", "venda.xml"), "rb") as sale:
    SALE = {"dadosVenda": base64.b64encode(sale.read()).decode()}


def sell(address, token, key):
    return request("PUT", "%s/v1/vendas/%s" % (address, key), token, SALE)


def receipt_of(answer):
    return answer.get("resposta", {}).get("chaveConsulta", json.dumps(answer))


def three_tills(address, tokens):
    def work_at(name):
        for number in range(3):
            key = "%s-%d" % (name, number)
            print("%-12s %s" % (key, receipt_of(sell(address, tokens[name], key))))

    threads = [threading.Thread(target=work_at, args=(name,)) for name in tokens]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()


def main():
    configure()
    print("== The hub: three tills sell at once, the device takes a quarter of a second for a sale")
    hub, address = start()
    try:
        tokens = {name: subprocess.check_output([*HUB, "till", "add", "--name", name], text=True).strip()
                  for name in ("caixa1", "caixa2", "caixa3")}
        order("latency 250")
        three_tills(address, tokens)

        print("== The hub is killed (SIGKILL) while the device has the sale caixa1-99")
        order("latency 2000")
        lost = threading.Thread(target=lambda: attempt(address, tokens["caixa1"], "caixa1-99"))
        lost.start()
        time.sleep(1)
        hub.send_signal(signal.SIGKILL)
        hub.wait()
        lost.join()
        order("latency 0")
        hub, address = start()
        print("== Its till asks again, with the same key")
        answer = sell(address, tokens["caixa1"], "caixa1-99")
        print("%-12s %s" % ("caixa1-99", receipt_of(answer)))
        again = sell(address, tokens["caixa1"], "caixa1-99")
        listed = request("GET", address + "/v1/recibos", tokens["caixa1"])["recibos"]
        keys = [receipt["chaveConsulta"] for receipt in listed]
        print("== caixa1 has %d receipts for 4 sales" % len(keys))
        good = receipt_of(answer) == receipt_of(again) and keys.count(receipt_of(answer)) == 1 and len(keys) == 4
        return 0 if good else 1
    finally:
        hub.terminate()
        hub.wait()


def attempt(address, token, key):
    try:
        print("%-12s %s" % (key, receipt_of(sell(address, token, key))))
    except OSError as error:
        print("%-12s no answer: %s" % (key, error))


sys.exit(main())
