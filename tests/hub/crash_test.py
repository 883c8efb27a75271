"""What dies, when, and what is true afterwards. Every death is a real one; every test ends by asking emulator, journal and
tills, receipt by receipt."""

import os
import shutil
import signal
import sqlite3
import time

from support import CODE, HubTest, Emulator, main, sale, wait_for


class CrashTest(HubTest):
    # A sale makes some 20 calls that matter (writing, flushing, sending); this is where they end, with room.
    LAST_CALL = 60

    def test_hub_dies_at_each_call_of_a_sale(self):
        """Before queued is committed, after it, around sent, with the order half out, around done, before the answer."""
        device = self.emulator()
        hub = self.hub(start=False)
        hub.start()
        till = hub.till("Caixa 1")
        self.ready(till)
        hub.stop()
        told, deaths = [], 0
        for call in range(1, self.LAST_CALL):
            key = "k%d" % call
            if hub.start(HUB_SHIM_KILL=str(call)):
                try:
                    till.sell(key, espera=10)
                except OSError:
                    pass
            deaths += hub.process.poll() is not None
            told.append(till.until_settled(key, tentativa=2))
            hub.kill()
        self.assertGreater(deaths, 20)
        hub.start()
        self.ready(till)
        self.assert_agreement(device, hub, *told)

    def test_queued_runs_only_when_its_till_asks_again(self):
        device, hub, till = self.open_shop()
        device.stop()
        wait_for(lambda: not hub.children(), "the device is away")
        self.assertEqual(till.sell("k1", espera=0).state, "queued")
        hub.kill()
        device.start()
        hub.start()
        self.ready(till)
        time.sleep(1.5)  # long enough for a hub that sells unasked
        self.assertEqual(device.keys(), [])
        self.assertEqual(hub.rows("SELECT state FROM operation")[0]["state"], "queued")
        answer = till.until_settled("k1")
        self.assert_agreement(device, hub, answer)

    def sell_slowly(self, till, device, key="k1"):
        """A sale whose reply is two seconds away, once the device has it."""
        device.order("latency 2000")
        thread, results = self.in_background(lambda: self.quietly(till, key))
        wait_for(lambda: till.hub.rows("SELECT state FROM operation WHERE key = '%s' AND state = 'sent'" % key),
                 "the sale is sent")
        time.sleep(0.3)
        return thread

    @staticmethod
    def quietly(till, key):
        try:
            return till.sell(key)
        except OSError:
            return None

    def test_hub_dies_while_the_device_works(self):
        device, hub, till = self.open_shop()
        self.sell_slowly(till, device)
        children = hub.children()
        hub.kill()
        wait_for(lambda: not any(os.path.exists("/proc/%d" % child) for child in children), "the child dies with it")
        device.order("latency 0")
        hub.start()
        answer = till.until_settled("k1")
        self.assert_agreement(device, hub, answer)
        self.assertEqual(hub.rows("SELECT count(*) AS n FROM operation WHERE state = 'unknown'")[0]["n"], 0)

    def test_hub_dies_while_the_child_is_stopped(self):
        device, hub, till = self.open_shop()
        child = hub.children()[0]
        os.kill(child, signal.SIGSTOP)
        thread, _ = self.in_background(lambda: self.quietly(till, "k1"))
        wait_for(lambda: hub.rows("SELECT state FROM operation WHERE state = 'sent'"), "the sale is sent")
        hub.kill()
        hub.start()
        answer = till.until_settled("k1")
        self.assert_agreement(device, hub, answer)

    def test_an_older_child_that_lives_on_keeps_the_new_hub_waiting(self):
        """The lock, and nothing else, keeps a second owner away."""
        device, hub, till = self.open_shop()
        locks = [os.path.join(hub.locks, name) for name in os.listdir(hub.locks)]
        self.assertEqual(len(locks), 2, "one for the port, one for the serial number")
        hub.stop()
        import fcntl
        with open([name for name in locks if "port" in name][0]) as older:
            fcntl.flock(older, fcntl.LOCK_EX)
            hub.start()
            time.sleep(1)
            self.assertEqual(till.request("GET", "/v1/equipamentos")["equipamentos"][0]["estado"], "absent")
        self.ready(till)

    def test_a_second_hub_is_refused(self):
        _, hub, _ = self.open_shop()
        hub.command("serve", status=4)

    def test_child_dies_during_a_call(self):
        device, hub, till = self.open_shop()
        thread = self.sell_slowly(till, device)
        child = hub.children()[0]
        os.kill(child, signal.SIGKILL)
        begun = time.monotonic()
        wait_for(lambda: hub.children() not in ([], [child]), "a new child")
        self.assertLess(time.monotonic() - begun, 2)
        device.order("latency 0")
        thread.join()
        self.assert_agreement(device, hub, till.until_settled("k1"))

    def test_till_goes_away(self):
        device, hub, till = self.open_shop()
        device.order("latency 1000")
        import http.client
        import json
        from support import b64
        link = http.client.HTTPConnection("127.0.0.1", hub.port)
        link.request("PUT", "/v1/vendas/k1", json.dumps({"dadosVenda": b64(sale("k1"))}),
                     {"Authorization": "Bearer " + till.token})
        wait_for(lambda: hub.rows("SELECT state FROM operation WHERE state = 'sent'"), "the sale is sent")
        link.close()
        self.assert_agreement(device, hub, till.until_settled("k1"))

    def test_device_is_unplugged_and_comes_back_under_another_name(self):
        device, hub, till = self.open_shop()
        device.order("fault on EnviarDadosVenda nth=1 do hangup 5 back=500")
        answer = till.until_settled("k1")
        self.assert_agreement(device, hub, answer)

    def test_an_exchanged_device_settles_nothing(self):
        device, hub, till = self.open_shop()
        first = till.sell("k0")
        device.order("fault on EnviarDadosVenda nth=1 do no-reply")
        thread, results = self.in_background(lambda: till.sell("k1"))
        wait_for(lambda: len(device.keys()) == 2, "the receipt is issued")
        device.kill()
        # The other one's session counter says that it has never heard of this sale.
        other = self.emulator(serial="900000002")
        wait_for(lambda: till.request("GET", "/v1/equipamentos")["equipamentos"][0]["equipamento"] == "900000002",
                 "the other device is seen")
        time.sleep(2)
        self.assertEqual(till.look("k1").state, "unknown")
        self.assertEqual(other.keys(), [])
        other.stop()
        device.start()
        answer = till.until_settled("k1")
        thread.join()
        self.assert_agreement(device, hub, first, answer)

    def test_disk_fails_before_sent(self):
        device, hub, till = self.open_shop()
        hub.stop()
        broken = os.path.join(self.folder, "broken")
        hub.start(HUB_SHIM_FAIL=broken)
        self.ready(till)
        open(broken, "w").close()
        answer = till.sell("k1")
        self.assertEqual(answer.status, 503, answer.raw)
        self.assertEqual(till.call("ConsultarSAT").code, "08000")
        self.assertEqual(till.call("ConsultarStatusOperacional").code, "10000")
        self.assertEqual(device.keys(), [])
        os.remove(broken)
        self.assert_agreement(device, hub, till.until_settled("k1"))

    def test_disk_fails_after_the_reply(self):
        device, hub, till = self.open_shop()
        hub.stop()
        broken = os.path.join(self.folder, "broken")
        hub.start(HUB_SHIM_FAIL=broken)
        self.ready(till)
        device.order("latency 1500")
        thread, results = self.in_background(lambda: till.sell("k1"))
        wait_for(lambda: hub.rows("SELECT state FROM operation WHERE state = 'sent'"), "the sale is sent")
        open(broken, "w").close()
        thread.join()
        self.assertEqual((results[0].state, results[0].code), ("done", "06000"))
        device.order("latency 0")
        self.assertEqual(till.sell("k2").status, 503)
        self.assertEqual(till.call("ConsultarSAT").code, "08000")
        self.assertEqual(till.look("k1").receipt, results[0].receipt)
        hub.kill()
        os.remove(broken)
        hub.start()
        again = till.until_settled("k1")
        self.assertEqual(again.receipt, results[0].receipt)
        self.assert_agreement(device, hub, again)

    def backup(self, hub):
        source = sqlite3.connect(os.path.join(hub.state, "journal.sqlite"))
        target = sqlite3.connect(os.path.join(self.folder, "backup.sqlite"))
        source.backup(target)
        source.close()
        target.close()

    def restore(self, hub):
        for name in os.listdir(hub.state):
            if name.startswith("journal.sqlite"):
                os.remove(os.path.join(hub.state, name))
        shutil.copy(os.path.join(self.folder, "backup.sqlite"), os.path.join(hub.state, "journal.sqlite"))

    def test_a_restored_journal_begins_an_epoch(self):
        device, hub, till = self.open_shop()
        first = till.sell("k1")
        self.backup(hub)
        lost = till.sell("k2")
        hub.kill()
        self.restore(hub)
        hub.start()
        self.ready(till)
        # The receipt is there, nobody's; its key, asked again, is not sold a second time.
        answer = till.sell("k2", espera=1)
        self.assertEqual((answer.status, answer.state), (409, "undecided"), answer.raw)
        self.assertEqual(len(device.keys()), 2)
        boss = hub.till("Chefe", "supervisor")
        waiting = boss.request("GET", "/v1/operacoes?estado=undecided")["operacoes"][0]
        decided = boss.request("POST", "/v1/operacoes/%d/decisao" % waiting["id"],
                               {"decisao": "issued", "chaveConsulta": "CFe" + lost.receipt, "motivo": "cupom na gaveta"})
        self.assertEqual(decided.status, 200, decided.raw)
        again = till.sell("k2")
        self.assertEqual(again.receipt, lost.receipt)
        third = till.sell("k3")
        self.assert_agreement(device, hub, first, again, third)

    def test_nothing_is_sold_until_lost_receipts_are_read_of(self):
        device, hub, till = self.open_shop()
        first = till.sell("k1")
        hub.kill()
        # A device that was elsewhere: its sessions there are not in our journal's order.
        with Elsewhere(self, device) as elsewhere:
            elsewhere.sell(777000)
            elsewhere.sell(555000)
        hub.start()
        boss = hub.till("Chefe", "supervisor")
        epoch = wait_for(lambda: boss.request("GET", "/v1/operacoes?estado=undecided")["operacoes"], "the epoch")[0]
        self.assertEqual(epoch["funcao"], "Epoca")
        till.sell("k2", espera=1)
        self.assertEqual(len(device.keys()), 3)
        confirmed = boss.request("POST", "/v1/operacoes/%d/decisao" % epoch["id"],
                                 {"decisao": "confirmed", "motivo": "lido"})
        self.assertEqual(confirmed.status, 200, confirmed.raw)
        second = till.until_settled("k2")
        self.assertEqual(len(device.keys()), 4)
        self.assertNotEqual(first.receipt, second.receipt)

    def test_newer_and_damaged_journals_are_refused(self):
        _, hub, till = self.open_shop()
        hub.stop()
        database = hub.journal()
        database.execute("PRAGMA user_version = 99")
        database.commit()
        database.close()
        hub.command("serve", status=3)
        with open(os.path.join(hub.state, "journal.sqlite"), "r+b") as file:
            file.write(b"x" * 4096)
        hub.command("serve", status=3)


class Elsewhere:
    """Another program at the device, with the driver library."""

    def __init__(self, test, device):
        self.folder = os.path.join(test.folder, "elsewhere")
        os.makedirs(self.folder, exist_ok=True)
        with open(os.path.join(self.folder, "SAT.ini"), "w") as file:
            file.write("[SERIAL_PORT_CONFIG]\nFixarPorta=%s\n[SAT_TIMEOUT]\n[SAT_EMULATOR]\nEnable=0\n"
                       "[ARVOLEN]\nEnable=0\n[LOG]\nLogFilePath=Log\nLogMode=0\n" % os.path.realpath(device.link))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        pass

    def call(self, program):
        import subprocess
        import sys
        from support import LIBRARY, environment
        code = ("import ctypes, sys; lib = ctypes.CDLL(%r)\n"
                "for f in ('EnviarDadosVenda', 'ConsultarSAT'): getattr(lib, f).restype = ctypes.c_char_p\n" % LIBRARY
                + program)
        done = subprocess.run([sys.executable, "-c", code], cwd=self.folder, capture_output=True, timeout=60,
                              env=environment())
        return done.stdout.decode()

    def sell(self, session, item="stranger"):
        reply = self.call("print(lib.EnviarDadosVenda(%d, %r, %r).decode())" % (session, CODE.encode(), sale(item)))
        assert "|06000|" in reply, reply
        return reply


if __name__ == "__main__":
    main()
