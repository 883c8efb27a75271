"""Sales, cancellations and questions of tills through the hub."""

import base64
import threading

from support import HubTest, main, sale, wait_for


class SellingTest(HubTest):
    def test_a_sale_brings_its_receipt(self):
        device, hub, till = self.open_shop()
        answer = till.sell("k1", numeroSessao=4711)
        self.assertEqual(answer.status, 200, answer.raw)
        self.assertEqual(answer.state, "done")
        self.assertEqual(answer["equipamento"], "900000001")
        self.assertEqual(answer["tentativa"], 1)
        self.assertEqual(answer["resposta"]["numeroSessao"], "004711")
        self.assertEqual(answer["resposta"]["valorTotalCFe"], "10.00")
        self.assert_agreement(device, hub, answer)

    def test_the_same_key_is_the_same_sale(self):
        device, hub, till = self.open_shop()
        first = till.sell("k1")
        self.assertEqual(till.sell("k1").json, first.json)
        self.assertEqual(till.look("k1").json, first.json)
        self.assertEqual(till.sell("k1", sale("other")).status, 422)
        self.assert_agreement(device, hub, first)

    def test_keys_belong_to_their_till(self):
        device, hub, till = self.open_shop()
        other = hub.till("Caixa 2")
        first, second = till.sell("k1"), other.sell("k1")
        self.assertNotEqual(first.receipt, second.receipt)
        self.assertEqual(other.look("k2").status, 404)
        self.assert_agreement(device, hub, first, second)

    def test_a_refusal_is_the_devices_own(self):
        device, hub, till = self.open_shop()
        answer = till.sell("k1", b"<CFe/>")
        self.assertEqual((answer.status, answer.state, answer.code), (200, "done", "06010"))
        self.assert_agreement(device, hub)

    def test_a_cancellation(self):
        device, hub, till = self.open_shop()
        sold = till.sell("k1")
        answer = till.cancel("c1", sold.receipt)
        self.assertEqual((answer.status, answer.state, answer.code), (200, "done", "07000"), answer.raw)
        self.assertEqual(till.cancel("c1", sold.receipt).json, answer.json)
        self.assertEqual(len(device.keys()), 2)
        self.assert_agreement(device, hub)

    def test_a_closed_key_never_sells(self):
        device, hub, till = self.open_shop()
        self.assertEqual(till.request("DELETE", "/v1/vendas/k1").status, 200)
        self.assertEqual(till.sell("k1").state, "not-issued")
        sold = till.sell("k2")
        self.assertEqual(till.request("DELETE", "/v1/vendas/k2").status, 409)
        self.assert_agreement(device, hub, sold)

    def test_patience_ends_and_a_new_attempt_sells(self):
        device, hub, till = self.open_shop()
        device.stop()
        wait_for(lambda: not hub.children(), "the device is away")
        self.assertEqual(till.sell("k1", paciencia=1, espera=0).status, 202)
        # Asking keeps it alive, so nobody asks until its end is in the journal.
        wait_for(lambda: hub.rows("SELECT state FROM operation")[0]["state"] == "expired", "the patience ends")
        device.start()
        self.ready(till)
        late = till.sell("k1", espera=1)
        self.assertEqual((late.status, late.state), (200, "expired"))
        answer = till.sell("k1", tentativa=2)
        self.assertEqual((answer.state, answer["tentativa"]), ("done", 2))
        self.assert_agreement(device, hub, answer)

    def test_four_wait_for_each_till(self):
        device, hub, till = self.open_shop()
        device.stop()
        wait_for(lambda: not hub.children(), "the device is away")
        for number in range(4):
            self.assertEqual(till.sell("k%d" % number, espera=0).status, 202)
        answer = till.sell("k5", espera=0)
        self.assertEqual((answer.status, answer.headers["Retry-After"]), (429, "1"))
        self.assertEqual(hub.till("Caixa 2").sell("k", espera=0).status, 202)

    def test_tills_sell_at_once(self):
        device, hub, _ = self.open_shop()
        answers = []

        def work(till, name):
            for number in range(5):
                answers.append(till.sell("%s-%d" % (name, number)))

        tills = [(hub.till("till %d" % n), str(n)) for n in range(6)]
        threads = [threading.Thread(target=work, args=pair) for pair in tills]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(len(answers), 30)
        self.assert_agreement(device, hub, *answers)
        self.assertEqual(hub.rows("SELECT * FROM audit WHERE alarm = 1"), [])

    def test_questions(self):
        _, _, till = self.open_shop()
        answer = till.call("ConsultarSAT", numeroSessao=12)
        self.assertTrue(base64.b64decode(answer["retorno"]).startswith(b"000012|08000|"))
        self.assertEqual(till.call("ConsultarStatusOperacional")["resposta"]["NSERIE"], "900000001")
        self.assertEqual(till.call("EnviarDadosVenda").status, 404)
        self.assertEqual(till.call("BloquearSAT").status, 403)
        self.assertEqual(till.call("Nada").status, 404)

    def test_sessions_are_answered_from_the_journal(self):
        device, hub, till = self.open_shop()
        sold = till.sell("k1", numeroSessao=4711)
        asked = till.call("ConsultarNumeroSessao", numeroSessao=1, cNumeroDeSessao=4711)
        self.assertEqual(asked["retorno"], sold["retorno"])
        self.assertEqual(till.call("ConsultarUltimaSessaoFiscal", numeroSessao=2)["retorno"], sold["retorno"])
        other = hub.till("Caixa 2")
        self.assertEqual(other.call("ConsultarNumeroSessao", numeroSessao=1, cNumeroDeSessao=4711).code, "11003")
        self.assertEqual(other.call("ConsultarUltimaSessaoFiscal", numeroSessao=2).code, "19003")
        # What was said not to exist must not come into being.
        late = other.sell("late", numeroSessao=4711)
        self.assertEqual((late.state, late.code), ("done", "06097"))
        self.assert_agreement(device, hub, sold)

    def test_receipts_and_operations(self):
        device, hub, till = self.open_shop()
        sold = till.sell("k1")
        listed = till.request("GET", "/v1/recibos")["recibos"]
        self.assertEqual([r["chaveConsulta"] for r in listed], ["CFe" + sold.receipt])
        self.assertEqual(listed[0]["caixa"], "Caixa 1")
        xml = till.request("GET", "/v1/recibos/CFe%s.xml" % sold.receipt)
        self.assertIn(b"<infCFe", xml.raw)
        self.assertEqual(hub.till("Caixa 2").request("GET", "/v1/recibos")["recibos"], [])
        boss = hub.till("Chefe", "supervisor")
        self.assertEqual(boss.request("GET", "/v1/operacoes")["operacoes"][0]["estado"], "done")
        self.assertEqual(till.request("GET", "/v1/operacoes").status, 403)
        self.assertEqual(hub.command("receipts", "show", sold.receipt).encode(), xml.raw)

    def test_administration(self):
        device, hub, _ = self.open_shop()
        boss = hub.till("Chefe", "administrator")
        begun = boss.call("BloquearSAT")
        self.assertEqual(begun.status, 202, begun.raw)
        done = boss.request("GET", begun.headers["Location"] + "?wait=30")
        self.assertEqual((done.status, done.code), (200, "16000"), done.raw)

    def test_a_refused_code_is_not_sent_again(self):
        device, hub, till = self.open_shop()
        hub.stop()
        hub.write_code("errado-0000")
        hub.start()
        wait_for(lambda: till.request("GET", "/v1/equipamentos")["equipamentos"][0]["estado"] == "no-code",
                 "the code is refused")
        self.assertEqual(till.sell("k1").status, 503)
        self.assertEqual(till.call("ConsultarSAT").code, "08000")
        self.assertEqual(device.order("state")["state"].get("wrong_codes", 1), 1)
        hub.write_code("codigo-8642")
        self.ready(till)
        self.assert_agreement(device, hub, till.sell("k1"))


if __name__ == "__main__":
    main()
