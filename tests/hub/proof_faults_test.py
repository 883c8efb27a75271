"""Each rule of proof, with the fault of the device that calls for it."""

import fcntl
import os
import time

from crash_test import Elsewhere
from support import HubTest, main, sale, wait_for


class ProofTest(HubTest):
    def survive(self, fault, sends=None):
        """A sale under this fault, and one after it: each has one receipt."""
        device, hub, till = self.open_shop()
        before = till.sell("k0")
        device.order("fault on EnviarDadosVenda nth=1 do " + fault)
        answer = till.until_settled("k1", sale("k1"), limit=100)
        after = till.sell("k2")
        self.assert_agreement(device, hub, before, answer, after)
        self.assertEqual(len(device.keys()), 3)
        return device, hub, till

    def test_the_reply_is_lost(self):
        self.survive("no-reply")

    def test_the_acknowledgement_is_lost(self):
        self.survive("drop-ack")

    def test_the_command_is_lost(self):
        self.survive("silence")

    def test_the_command_is_refused_by_the_link(self):
        self.survive("nak 4")

    def test_the_reply_of_the_call_before(self):
        self.survive("previous")

    def test_a_garbled_acknowledgement_sends_twice(self):
        self.survive("carry-out-nak")

    def test_a_stray_stx_before_the_acknowledgement(self):
        self.survive("stray-stx")

    def test_in_process(self):
        self.survive("processing 1")

    def test_issued_but_said_to_be_an_invalid_session(self):
        self.survive("carry-out-return 06097")

    def test_issued_but_said_to_be_in_process(self):
        self.survive("carry-out-return 06098")

    def test_issued_but_said_to_be_an_unknown_error(self):
        self.survive("carry-out-return 06099")

    def test_issued_but_the_refusal_is_what_is_stored(self):
        self.survive("carry-out-return 06099 stored=yes")

    def test_a_stored_refusal_proves_nothing(self):
        self.survive("return 06099")

    def test_another_functions_code(self):
        self.survive("return 08000")

    def test_the_checksum_is_wrong_to_the_last(self):
        self.survive("wrong-checksum 3")

    def test_a_stranger_holds_the_port(self):
        device, hub, till = self.open_shop()
        stranger = os.open(device.link, os.O_RDWR | os.O_NOCTTY | os.O_NONBLOCK)
        fcntl.flock(stranger, fcntl.LOCK_EX)
        self.assertIn(till.sell("k1", espera=1).state, ("queued", "sent"))
        wait_for(lambda: hub.rows("SELECT * FROM audit WHERE text LIKE '%another program%'"), "the alarm")
        os.close(stranger)
        self.assert_agreement(device, hub, till.until_settled("k1"))

    def test_somebody_else_used_the_device(self):
        device, hub, till = self.open_shop()
        first = till.sell("k1")
        Elsewhere(self, device).sell(777000)
        second = till.sell("k2")
        self.assertEqual((first.code, second.code), ("06000", "06000"))
        self.assertTrue(hub.rows("SELECT * FROM audit WHERE text LIKE '%somebody else%'"))

    def test_undecided_and_settled_by_hand(self):
        device, hub, till = self.open_shop()
        first = till.sell("k1")
        # The sale is lost on the line; before anybody can look, a stranger sells.
        device.order("fault on EnviarDadosVenda nth=1 do silence")
        device.order("fault on ConsultarStatusOperacional nth=1 do processing 3")
        thread, results = self.in_background(lambda: till.sell("k2"))
        wait_for(lambda: hub.rows("SELECT * FROM operation WHERE key = 'k2' AND state = 'unknown'"), "unknown", 60)
        elsewhere = Elsewhere(self, device)
        wait_for(lambda: "|06000|" in elsewhere.call(
            "print(lib.EnviarDadosVenda(777000, b'codigo-8642', %r).decode())" % sale("stranger")), "the stranger sells")
        wait_for(lambda: till.look("k2").state == "undecided", "undecided", 90)
        thread.join()
        self.assertEqual(till.look("k2").status, 409)
        self.assertEqual(till.sell("k3", espera=1).state, "queued")
        boss = hub.till("Chefe", "supervisor")
        waiting = boss.request("GET", "/v1/operacoes?estado=undecided")["operacoes"][0]
        path = "/v1/operacoes/%d/decisao" % waiting["id"]
        self.assertEqual(till.request("POST", path, {"decisao": "not-issued", "motivo": "x"}).status, 403)
        self.assertEqual(boss.request("POST", path, {"decisao": "issued", "motivo": "x", "chaveConsulta": "CFe" +
                                                     first.receipt}).status, 409)
        self.assertEqual(boss.request("POST", path, {"decisao": "not-issued", "motivo": "visto"}).status, 200)
        self.assertEqual(till.sell("k2").state, "not-issued")
        # Now that nothing is in doubt, the one that waited is sold.
        self.assertEqual(till.until_settled("k3").code, "06000")
        self.assertEqual(len(device.keys()), 3)


if __name__ == "__main__":
    main()
