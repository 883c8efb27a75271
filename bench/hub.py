#!/usr/bin/env python3
"""What the hub costs, against the targets that it is built for. Emulator, hub and tills on one machine, in one run.

    bench/hub.py BUILD-FOLDER        with talvex-hub, sat-emulator, libtalvex.so and libhub-shim.so in it
"""

import ctypes
import http.client
import json
import os
import statistics
import sys
import threading
import time

build = os.path.abspath(sys.argv[1])
os.environ.update(TALVEX_HUB=build + "/bin/talvex-hub", SAT_EMULATOR=build + "/bin/sat-emulator",
                  TALVEX_LIBRARY=build + "/libtalvex.so", HUB_SHIM=build + "/libhub-shim.so")
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "hub"))

import shutil  # noqa: E402
import tempfile  # noqa: E402

from support import CODE, Emulator, Hub, b64, sale, wait_for  # noqa: E402

SALES = 300


class Shop:
    def __init__(self, tills=1, **shim):
        self.folder = tempfile.mkdtemp(prefix="hubb.", dir="/tmp")
        self.device = Emulator(self.folder)
        self.hub = Hub(self.folder)
        self.hub.start(**shim)
        self.tills = [self.hub.till("till %d" % number) for number in range(tills)]
        wait_for(lambda: self.tills[0].request("GET", "/v1/equipamentos")["equipamentos"][0]["estado"] == "ready", "ready")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.hub.stop()
        self.device.stop()
        shutil.rmtree(self.folder)


class Line:
    """A till that keeps its connection."""

    def __init__(self, till):
        self.till = till
        self.link = http.client.HTTPConnection("127.0.0.1", till.hub.port, timeout=100)

    def sell(self, key):
        self.link.request("PUT", "/v1/vendas/" + key, json.dumps({"dadosVenda": b64(sale(key))}),
                          {"Authorization": "Bearer " + self.till.token})
        answer = json.loads(self.link.getresponse().read())
        assert answer["resposta"]["EEEEE"] == "06000", answer


def timed(work):
    begun = time.perf_counter()
    work()
    return (time.perf_counter() - begun) * 1000


def percentiles(times):
    times = sorted(times)
    return statistics.median(times), times[int(len(times) * 0.99)]


def through_hub(**shim):
    with Shop(**shim) as shop:
        line = Line(shop.tills[0])
        for number in range(20):
            line.sell("warm%d" % number)
        return percentiles([timed(lambda: line.sell("k%d" % number)) for number in range(SALES)])


def direct():
    folder = tempfile.mkdtemp(prefix="hubb.", dir="/tmp")
    device = Emulator(folder)
    with open(os.path.join(folder, "SAT.ini"), "w") as file:
        file.write("[SERIAL_PORT_CONFIG]\nFixarPorta=%s\n[SAT_TIMEOUT]\n[SAT_EMULATOR]\nEnable=0\n[ARVOLEN]\nEnable=0\n"
                   "[LOG]\nLogFilePath=Log\nLogMode=0\n" % os.path.realpath(device.link))
    os.chdir(folder)
    library = ctypes.CDLL(build + "/libtalvex.so")
    library.EnviarDadosVenda.restype = ctypes.c_char_p

    def sell(session):
        reply = library.EnviarDadosVenda(session, CODE.encode(), sale("k%d" % session))
        assert b"|06000|" in reply, reply

    for number in range(20):
        sell(number + 1)
    times = [timed(lambda: sell(1000 + number)) for number in range(SALES)]
    device.stop()
    os.chdir("/")
    shutil.rmtree(folder)
    return percentiles(times)


def twenty_tills(seconds=60):
    with Shop(tills=20) as shop:
        shop.device.order("latency 1000")
        counts, end = [0] * 20, time.monotonic() + seconds

        def work(number):
            line = Line(shop.tills[number])
            while time.monotonic() < end:
                line.sell("%d-%d" % (number, counts[number]))
                counts[number] += 1

        threads = [threading.Thread(target=work, args=(number,)) for number in range(20)]
        begun = time.monotonic()
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        took = time.monotonic() - begun
        busy = sum(counts) * 1.0 / took
        fairness = sum(counts) ** 2 / (20 * sum(count * count for count in counts))
        return busy, fairness


def memory_of_idle_tills():
    with Shop(tills=1) as shop:
        lines = [Line(shop.tills[0]) for _ in range(200)]
        for line in lines:
            line.link.request("GET", "/v1/equipamentos", headers={"Authorization": "Bearer " + line.till.token})
            line.link.getresponse().read()
        with open("/proc/%d/stat" % shop.hub.process.pid) as file:
            ticks = sum(map(int, file.read().split()[13:15]))
        time.sleep(10)
        with open("/proc/%d/stat" % shop.hub.process.pid) as file:
            used = sum(map(int, file.read().split()[13:15])) - ticks
        with open("/proc/%d/status" % shop.hub.process.pid) as file:
            rss = [int(line.split()[1]) for line in file if line.startswith("VmRSS")][0]
        return rss / 1024, used / os.sysconf("SC_CLK_TCK") / 10


def main():
    d50, d99 = direct()
    h50, h99 = through_hub()
    print("direct                    p50 %6.2f ms   p99 %6.2f ms" % (d50, d99))
    print("hub                       p50 %6.2f ms   p99 %6.2f ms" % (h50, h99))
    print("hub adds                  p50 %+6.2f ms   p99 %+6.2f ms     (targets +3, +15)" % (h50 - d50, h99 - d99))
    s50, _ = through_hub(HUB_SHIM_SLOW="10")
    print("fdatasync takes 10 ms     p50 %+6.2f ms                      (target +35)" % (s50 - d50))
    busy, fairness = twenty_tills()
    print("20 tills, 1 s a sale      busy %.1f %%   fairness %.4f       (targets 98 %%, 0.99)" % (busy * 100, fairness))
    rss, share = memory_of_idle_tills()
    print("200 idle tills            %.1f MB   %.2f %% of a processor    (targets 40 MB, none)" % (rss, share * 100))


if __name__ == "__main__":
    main()
