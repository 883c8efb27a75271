"""Input that no honest till sends, and what must not leave the hub."""

import json
import os
import re
import socket
import time

from support import CODE, HubTest, b64, main, sale, wait_for


class HostileTest(HubTest):
    def connect(self, hub):
        link = socket.create_connection(("127.0.0.1", hub.port), timeout=30)
        self.addCleanup(link.close)
        return link

    @staticmethod
    def converse(link, data):
        link.sendall(data)
        answer = b""
        while True:
            try:
                piece = link.recv(65536)
            except ConnectionResetError:
                return answer
            if not piece:
                return answer
            answer += piece

    @staticmethod
    def get(path, host="127.0.0.1", more=""):
        return ("GET %s HTTP/1.1\r\nHost: %s\r\n%s\r\n" % (path, host, more)).encode()

    def test_bad_requests_name_what_is_wrong(self):
        _, _, till = self.open_shop()
        for body, field in ((b"", None), (b"{", None), (b'{"dadosVenda": "?"}', "dadosVenda"),
                            (b"[" * 100000, None), (b'{"dadosVenda": "AAAA"}', "dadosVenda"),
                            (json.dumps({"dadosVenda": b64(sale("x")), "paciencia": 1e9}).encode(), "paciencia")):
            answer = till.request("PUT", "/v1/vendas/k", body)
            self.assertEqual((answer.status, answer.json.get("campo")), (400, field), answer.raw)
            self.assertEqual(answer.headers["Content-Type"], "application/problem+json")
        self.assertEqual(till.request("PUT", "/v1/vendas/" + "k" * 101, b"{}").json["campo"], "chave")
        self.assertEqual(till.request("PATCH", "/v1/vendas/k").status, 405)
        self.assertEqual(till.request("GET", "/v1/nada").status, 404)
        self.assertEqual(till.request("GET", "/v1/vendas/nunca").status, 404)

    def test_tokens(self):
        from support import Till
        _, hub, till = self.open_shop()
        self.assertEqual(Till(hub, "").sell("k").status, 401)
        self.assertEqual(Till(hub, "0" * 64).sell("k").status, 401)
        hub.command("till", "revoke", "--name", "Caixa 1")
        self.assertEqual(till.sell("k").status, 401)
        self.assertEqual(hub.till("Olho", "viewer").sell("k").status, 403)

    def test_wrong_hosts_are_refused(self):
        _, hub, _ = self.open_shop()
        self.assertIn(b" 421 ", self.converse(self.connect(hub), self.get("/healthz", "evil.example", "Connection: close\r\n")))
        self.assertIn(b" 200 ", self.converse(self.connect(hub), self.get("/healthz", "localhost:80", "Connection: close\r\n")))

    def test_pipelined_requests_are_answered_in_order(self):
        _, hub, till = self.open_shop()
        bearer = "Authorization: Bearer %s\r\n" % till.token
        answer = self.converse(self.connect(hub), self.get("/healthz") + self.get("/v1/equipamentos", more=bearer) +
                               self.get("/v1/nada", more="Connection: close\r\n"))
        codes = re.findall(rb"HTTP/1\.1 (\d+)", answer)
        self.assertEqual(codes, [b"200", b"200", b"404"])

    def test_what_is_too_large_is_refused(self):
        _, hub, till = self.open_shop()
        link = self.connect(hub)
        head = "PUT /v1/vendas/k HTTP/1.1\r\nHost: localhost\r\nContent-Length: 100000000\r\n\r\n".encode()
        self.assertIn(b" 413 ", self.converse(link, head))
        self.assertIn(b" 431 ", self.converse(self.connect(hub), self.get("/healthz", more="X: %s\r\n" % ("y" * 20000))))
        self.assertIn(b" 400 ", self.converse(self.connect(hub), b"\x16\x03\x01\x02\x00\x01\x00\r\n\r\n"))
        self.assertEqual(till.sell("k").code, "06000")

    def test_silent_connections_cost_no_till_its_turn(self):
        device, hub, till = self.open_shop()
        links = []
        for number in range(500):
            link = socket.create_connection(("127.0.0.1", hub.port), timeout=30)
            links.append(link)
            if number % 2:
                link.sendall(b"PUT /v1/vendas/slow HTTP/1.1\r\nHost: local")
        begun = time.monotonic()
        answers = [till.sell("k%d" % number) for number in range(20)]
        self.assertLess(time.monotonic() - begun, 20)
        for link in links:
            link.close()
        self.assert_agreement(device, hub, *answers)

    def test_a_request_that_does_not_arrive_is_dropped(self):
        _, hub, _ = self.open_shop()
        link = self.connect(hub)
        link.settimeout(60)
        begun = time.monotonic()
        self.converse(link, b"PUT /v1/vendas/k HTTP/1.1\r\n")
        self.assertGreater(time.monotonic() - begun, 25)

    def test_nothing_secret_is_left_anywhere(self):
        _, hub, till = self.open_shop()
        till.sell("k1")
        till.call("ConsultarStatusOperacional")
        hub.stop()
        hub.start()
        self.ready(till)
        for name, text in self.files():
            self.assertNotIn(till.token.encode(), text, name)
            if name != os.path.join(self.folder, "code") and not os.path.basename(name).startswith("device-9"):
                self.assertNotIn(CODE.encode(), text, name)

    def files(self):
        for folder, _, names in os.walk(self.folder):
            for name in names:
                path = os.path.join(folder, name)
                if os.path.isfile(path):
                    with open(path, "rb") as file:
                        yield path, file.read()


if __name__ == "__main__":
    main()
