"""Tills, keys and repeats at random, with faults, kills, stops and restored journals; then emulator, journal and tills are
compared receipt by receipt. A seed repeats the choices of a run.

    model_test.py [OPERATIONS [SEED]]
"""

import os
import random
import signal
import sys
import threading
import time
import http.client

from support import CODE, Emulator, Hub, b64, sale, wait_for

import shutil
import tempfile

TILLS = 6
FAULTS = ["no-reply", "drop-ack", "previous", "silence", "carry-out-nak", "stray-stx", "processing 1",
          "carry-out-return 06099", "carry-out-return 06097", "return 06010", "wrong-checksum 1", "nak 1", "stray 3",
          "split 7", "duplicate", "late 300"]
# What the library waits for by the second; seldom, or a run takes all day.
SLOW = {"no-reply", "drop-ack", "silence", "carry-out-nak", "stray-stx"}


class Model:
    def __init__(self, operations, seed):
        self.operations, self.seed = operations, seed
        self.random = random.Random(seed)
        self.folder = tempfile.mkdtemp(prefix="hubm.", dir="/tmp")
        self.device = Emulator(self.folder)
        self.hub = Hub(self.folder)
        self.hub.start()
        self.tills = [self.hub.till("till %d" % number) for number in range(TILLS)]
        self.boss = self.hub.till("boss", "supervisor")
        self.told = {}      # (till, key) -> receipts and refusals that it was told
        self.wrong = []
        self.lock = threading.Lock()
        self.left = operations
        self.gate = threading.Lock()  # held while the hub is away

    def next_operation(self):
        with self.lock:
            self.left -= 1
            return self.left >= 0

    # ---- One till: asks until it knows, and sometimes repeats, lies about the body, or gives up.

    def work(self, number):
        till, choice = self.tills[number], random.Random((self.seed, number).__repr__())
        count = 0
        while self.next_operation():
            count += 1
            key, data = "%d-%d" % (number, count), sale("till %d sale %d" % (number, count % 7))
            self.sell(till, number, key, data, choice)
            if choice.random() < 0.05:
                answer = self.ask(lambda: till.sell(key, sale("another body"), espera=0))
                if answer and answer.status not in (422, 503, 429):
                    self.wrong.append("%s: another body got %d %r" % (key, answer.status, answer.raw))
            if choice.random() < 0.1:
                self.sell(till, number, key, data, choice)

    def ask(self, request):
        try:
            return request()
        except (OSError, http.client.HTTPException):
            return None

    def sell(self, till, number, key, data, choice):
        attempt, end = 1, time.monotonic() + 300
        while time.monotonic() < end:
            wait = choice.choice([0, 1, 5, 20])
            answer = self.ask(lambda: till.sell(key, data, espera=wait, tentativa=attempt,
                                                paciencia=choice.choice([1, 5, 60])))
            if answer is None or answer.status in (202, 429, 503):
                time.sleep(0.02)
            elif answer.status == 409:
                self.settle(key)
            elif answer.state == "expired":
                attempt = answer["tentativa"] + 1
            elif answer.state in ("done", "not-issued"):
                return self.note(number, key, answer)
            else:
                self.wrong.append("%s: %d %r" % (key, answer.status, answer.raw))
                return
        self.wrong.append("%s: stuck" % key)

    def note(self, number, key, answer):
        with self.lock:
            former = self.told.setdefault((number, key), answer.json)
        for field in ("estado", "retorno"):
            if former.get(field) != answer.json.get(field):
                self.wrong.append("%s: told %s, then %s" % (key, former, answer.json))

    # ---- The supervisor: looks at the device, as a human would, and says what is so.

    def settle(self, key):
        waiting = self.ask(lambda: self.boss.request("GET", "/v1/operacoes?estado=undecided"))
        for operation in (waiting.json or {}).get("operacoes", []) if waiting else []:
            receipts = {row["key"] for row in self.hub.rows("SELECT key FROM receipt WHERE operation IS NOT NULL")}
            mine = [r for r in self.device.receipts()
                    if "%06d" % int(r["session"]) == operation.get("sessaoDoEquipamento")]
            unclaimed = [r["key"] for r in mine if r["key"].lower().replace("cfe", "") not in receipts]
            decision = {"decisao": "not-issued", "motivo": "visto"}
            if unclaimed:
                decision = {"decisao": "issued", "motivo": "visto", "chaveConsulta": unclaimed[-1]}
            self.ask(lambda: self.boss.request("POST", "/v1/operacoes/%d/decisao" % operation["id"], decision))

    # ---- What goes wrong

    def trouble(self):
        choice = self.random.random()
        if choice < 0.5:
            fault = self.random.choice(FAULTS)
            if fault in SLOW and self.random.random() < 0.8:
                return
            self.device.order("fault on EnviarDadosVenda nth=%d do %s" % (self.random.randint(1, 5), fault))
        elif choice < 0.6:
            self.device.order("fault clear")
        elif choice < 0.75:
            self.hub.kill()
            self.hub.start()
            self.move_tills()
        elif choice < 0.9:
            for child in self.hub.children():
                self.signal(child, signal.SIGKILL)
        elif choice < 0.97:
            for child in self.hub.children():
                self.signal(child, signal.SIGSTOP)
                time.sleep(self.random.random() * 0.3)
                self.signal(child, signal.SIGCONT)
        else:
            self.device.kill()
            time.sleep(self.random.random())
            self.device.start()

    @staticmethod
    def signal(process, number):
        try:
            os.kill(process, number)
        except ProcessLookupError:
            pass

    def move_tills(self):
        for till in [*self.tills, self.boss]:
            till.hub = self.hub

    def run(self):
        threads = [threading.Thread(target=self.work, args=(number,), daemon=True) for number in range(TILLS)]
        for thread in threads:
            thread.start()
        while any(thread.is_alive() for thread in threads):
            time.sleep(self.random.random() * 0.6)
            if self.left > 0:
                self.trouble()
        self.device.order("fault clear")
        self.hub.kill()
        self.hub.start()
        self.ask(lambda: wait_for(lambda: self.boss.request("GET", "/v1/equipamentos")["equipamentos"][0]["estado"] ==
                                  "ready", "ready", 120))
        return self.compare()

    def compare(self):
        there = self.device.keys()
        journal = {row["key"]: row["operation"] for row in self.hub.rows("SELECT key, operation FROM receipt")}
        owners = [operation for operation in journal.values() if operation is not None]
        told = {}
        wrong_till = 0
        for who, answer in self.told.items():
            receipt = answer.get("resposta", {}).get("chaveConsulta", "").lower().replace("cfe", "")
            if not receipt:
                continue
            wrong_till += receipt in told
            told[receipt] = who
        result = {
            "seed": self.seed, "keys": len(self.told), "receipts": len(there),
            "doubled": len(owners) - len(set(owners)) + len([r for r in there if r not in told]),
            "lost": len([r for r in told if r not in there]) + len(set(there) ^ set(journal)),
            "wrong till": wrong_till,
            "stuck": len(self.hub.rows("SELECT id FROM operation WHERE state IN ('queued', 'sent', 'unknown', 'undecided')")),
            "else": len(self.wrong),
        }
        return result

    def close(self):
        self.hub.stop()
        self.device.stop()
        shutil.rmtree(self.folder, ignore_errors=True)


def main():
    operations = int(sys.argv[1]) if len(sys.argv) > 1 else 3000
    seed = int(sys.argv[2]) if len(sys.argv) > 2 else random.randrange(1 << 30)
    print("model: %d operations, seed %d" % (operations, seed), flush=True)
    begun = time.monotonic()
    model = Model(operations, seed)
    try:
        result = model.run()
        print("model: %s in %d s" % (", ".join("%s %s" % item for item in result.items()), time.monotonic() - begun))
        for line in model.wrong[:20]:
            print(line)
        bad = any(result[name] for name in ("doubled", "lost", "wrong till", "stuck", "else"))
    finally:
        model.close()
    sys.exit(1 if bad else 0)


if __name__ == "__main__":
    main()
