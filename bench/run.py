#!/usr/bin/env python3
"""Measures the library against the floor and prints the tables that docs/performance.md takes its figures from.

    run.py BUILD [--json FILE] [--scale N]

Both sides carry the same frames to the same instant device, in turn and in one process, and every figure is
the median of the pairs' ratios: a machine that is slow or busy is so for both. --scale divides the number of
pairs, for a first look.
"""

import argparse
import json
import os
import pathlib
import statistics
import subprocess
import sys
import tempfile

LOG_MODES = (0, 1, 5)

# Pairs that are measured, by case and LogMode. With a log, a frame of 92 blocks is written 92 times as a
# whole to the protocol log, and at LogMode 5 to the trace log too.
PAIRS = {
    "small": {0: 1500, 1: 1500, 5: 500},
    "sale": {0: 1000, 1: 1000, 5: 300},
    "large": {0: 40, 1: 5, 5: 3},
    "long-reply": {0: 40, 1: 30, 5: 20},
}
CASE_NAMES = {
    "small": "small: ConsultarSAT",
    "sale": "sale: 8 kB out, 9 kB in",
    "large": "large: 1.5 MB out",
    "long-reply": "long reply: 2 MB in",
}
USB_PAIRS = {"small": 400, "sale": 300}
FIRST_CALLS = 25
NO_DEVICE_CALLS = 300
GROWTH_SIZES = {1_000: 400, 4_000: 400, 16_000: 300, 64_000: 150, 250_000: 60, 1_000_000: 30, 4_000_000: 10,
                8_000_000: 8}
TRACED_CALLS = 20

USB_DEVICE = """P: /devices/pci0000:00/0000:00:14.0/usb1
N: bus/usb/001/001
E: DEVNAME=/dev/bus/usb/001/001
E: DEVTYPE=usb_device
E: SUBSYSTEM=usb
A: dev=189:0

P: /devices/pci0000:00/0000:00:14.0/usb1/1-1
N: bus/usb/001/002
E: DEVNAME=/dev/bus/usb/001/002
E: DEVTYPE=usb_device
E: SUBSYSTEM=usb
A: dev=189:1

P: /devices/pci0000:00/0000:00:14.0/usb1/1-1/1-1:1.0/tty/ttyACM0
N: ttyACM0
E: DEVNAME=/dev/ttyACM0
E: ID_MODEL=TALVEX_SAT
E: SUBSYSTEM=tty
A: dev=166:0
"""

# Has the library write its default SAT.ini in the working directory.
WRITE_DEFAULTS = "import ctypes, sys; ctypes.CDLL(sys.argv[1]).VersaoDllTalvex()"


def default_settings(library):
    """The default SAT.ini without its comments, which every lookup would have to pass by."""
    with tempfile.TemporaryDirectory(prefix="talvex-bench-") as folder:
        subprocess.run([sys.executable, "-c", WRITE_DEFAULTS, library.resolve()], cwd=folder, check=True)
        lines = pathlib.Path(folder, "SAT.ini").read_text().splitlines()
    return [line for line in lines if not line.startswith("#")]


def settings_for(defaults, fixed_port, mode):
    """These settings with a fixed port (or None) and a log mode."""
    lines = [f"LogMode={mode}" if line.startswith("LogMode=") else line for line in defaults]
    if fixed_port:
        lines.insert(lines.index("[SERIAL_PORT_CONFIG]") + 1, f"FixarPorta={fixed_port}")
    return "\n".join(lines).strip() + "\n"


class Bench:
    def __init__(self, build, scale):
        self.programs = build / "bin"
        self.library = build / "libtalvex.so"
        self.defaults = default_settings(self.library)
        self.scale = scale
        self.device = subprocess.Popen([self.programs / "instant-device"], stdout=subprocess.PIPE, text=True)
        self.port = self.device.stdout.readline().strip()

    def close(self):
        self.device.terminate()
        self.device.wait()

    def host(self, activity, case, calls, mode, *, device=None, wrapper=(), usb=False):
        """One run of the host program in a folder of its own; device is the value of FixarPorta."""
        with tempfile.TemporaryDirectory(prefix="talvex-bench-") as folder:
            settings = pathlib.Path(folder, "SAT.ini")
            settings.write_text(settings_for(self.defaults, None if usb else device or self.port, mode))
            # Written a while ago: the second call reads the settings again, later ones do not.
            os.utime(settings, (1_600_000_000, 1_600_000_000))
            port = "/dev/ttyACM0" if usb else self.port
            command = [self.programs / "bench-host", self.library, activity, case, str(calls), port]
            if usb:
                bus = pathlib.Path(folder, "bus.umockdev")
                bus.write_text(USB_DEVICE)
                testbed = (f'ln -sf {self.port} "$UMOCKDEV_DIR/dev/ttyACM0" && mkdir -p "$UMOCKDEV_DIR/sys/kernel"'
                           ' && echo 1000 > "$UMOCKDEV_DIR/sys/kernel/uevent_seqnum" && exec "$@"')
                command = ["umockdev-run", "--device", bus, "--", "sh", "-c", testbed, "sh", *command]
            result = subprocess.run([*wrapper, *command], cwd=folder, capture_output=True, text=True, check=False)
        if result.returncode != 0:
            raise SystemExit(f"{activity} {case}: {result.stderr.strip()}")
        return json.loads(result.stdout.splitlines()[-1])  # the library may print too

    def count(self, calls):
        return max(3, calls // self.scale)

    def pairs(self, case, calls, mode, **options):
        calls = self.count(calls)
        warm_up = max(2, min(50, calls // 10))
        return compare(self.host("pairs", case, calls + warm_up, mode, **options), warm_up)

    def first_calls(self, mode):
        runs = [self.host("pairs", "small", 1, mode) for _ in range(self.count(FIRST_CALLS))]
        merged = {side: {key: [run[side][key][0] for run in runs] for key in ("wall", "cpu", "children")}
                  for side in ("library", "floor")}
        return compare(merged, 0)

    def no_device(self, mode):
        run = self.host("library", "no-device", self.count(NO_DEVICE_CALLS) + 10, mode, device="/dev/nowhere0")
        return {"wall_us": microseconds(run["library"]["wall"][10:]), "cpu_us": microseconds(run["library"]["cpu"][10:])}

    def memory(self):
        idle = min(self.host("idle", "small", 0, 1)["peak_kb"] for _ in range(3))
        small = max(self.host("library", "small", 200, 1)["peak_kb"] for _ in range(3))
        return {"idle_kb": idle, "small_calls_kb": small}

    def waiting(self):
        run = self.host("library", "waiting", 2, 1)["library"]
        return {"wall_ms": run["wall"][1] / 1e6, "cpu_ms": run["cpu"][1] / 1e6}

    def growth(self):
        rows = [{"bytes": size, **self.pairs(f"send:{size}", calls, 0)} for size, calls in GROWTH_SIZES.items()]
        # The fastest call of each size: what else the machine does can only add to it.
        return {"rows": rows, "fit": straight_line([(row["bytes"], row["fastest_us"]) for row in rows])}

    def system_calls(self, activity):
        """System calls of one call: those of a long run less those of a run of two calls."""
        counts = []
        for calls in (2, 2 + TRACED_CALLS):
            with tempfile.NamedTemporaryFile("r", prefix="talvex-bench-") as summary:
                self.host(activity, "small", calls, 1, wrapper=("strace", "-c", "-f", "-o", summary.name))
                counts.append(read_strace(summary.read()))
        return {name: per_call for name, count in sorted(counts[1].items())
                if (per_call := round((count - counts[0].get(name, 0)) / TRACED_CALLS, 1)) > 0}


def microseconds(nanoseconds):
    return statistics.median(nanoseconds) / 1e3


def percentile(values, part):
    return sorted(values)[min(len(values) - 1, int(len(values) * part))]


def compare(run, warm_up):
    library = {key: values[warm_up:] for key, values in run["library"].items()}
    floor = {key: values[warm_up:] for key, values in run["floor"].items()}
    ratio = lambda key: statistics.median(a / b for a, b in zip(library[key], floor[key]))
    return {
        "pairs": len(library["wall"]),
        "wall_ratio": ratio("wall"),
        "cpu_ratio": ratio("cpu"),
        "wall_us": microseconds(library["wall"]),
        "floor_wall_us": microseconds(floor["wall"]),
        "cpu_us": microseconds(library["cpu"]),
        "floor_cpu_us": microseconds(floor["cpu"]),
        "children_us": statistics.mean(library["children"]) / 1e3,
        "fastest_us": min(library["wall"]) / 1e3,
        "floor_fastest_us": min(floor["wall"]) / 1e3,
        "p50_us": percentile(library["wall"], 0.5) / 1e3,
        "p99_us": percentile(library["wall"], 0.99) / 1e3,
        "floor_p99_us": percentile(floor["wall"], 0.99) / 1e3,
    }


def straight_line(points):
    """Least squares, weighted so that every size counts alike, and the largest deviation from the line."""
    weights = [1 / y**2 for _, y in points]
    total = sum(weights)
    mean_x = sum(w * x for w, (x, _) in zip(weights, points)) / total
    mean_y = sum(w * y for w, (_, y) in zip(weights, points)) / total
    slope = (sum(w * (x - mean_x) * (y - mean_y) for w, (x, y) in zip(weights, points))
             / sum(w * (x - mean_x) ** 2 for w, (x, _) in zip(weights, points)))
    start = mean_y - slope * mean_x
    return {"us": start, "us_per_kb": slope * 1000,
            "largest_deviation": max(abs(y / (start + slope * x) - 1) for x, y in points)}


def read_strace(text):
    counts = {}
    for line in text.splitlines():
        words = line.split()
        if len(words) >= 5 and words[0][0].isdigit() and words[-1] != "total":
            counts[words[-1]] = int(words[3])
    return counts


def micro_benchmarks(build):
    with tempfile.TemporaryDirectory(prefix="talvex-bench-") as folder:
        result = subprocess.run([build / "bin" / "micro-bench", "--benchmark_format=json", "--benchmark_min_time=0.2"],
                                cwd=folder, capture_output=True, text=True, check=True)
    return [{"name": b["name"], "ns": b["cpu_time"], "bytes_per_second": b.get("bytes_per_second")}
            for b in json.loads(result.stdout)["benchmarks"]]


def measure(build, scale):
    bench = Bench(build, scale)
    try:
        results = {"load_before": os.getloadavg(), "calls": []}
        for case, pairs in PAIRS.items():
            for mode in LOG_MODES:
                results["calls"].append({"case": case, "port": "fixed", "mode": mode,
                                         **bench.pairs(case, pairs[mode], mode)})
        for case, pairs in USB_PAIRS.items():
            for mode in LOG_MODES:
                results["calls"].append({"case": case, "port": "usb", "mode": mode,
                                         **bench.pairs(case, pairs, mode, usb=True)})
        results["first_call"] = [{"mode": mode, **bench.first_calls(mode)} for mode in LOG_MODES]
        results["no_device"] = [{"mode": mode, **bench.no_device(mode)} for mode in LOG_MODES]
        results["growth"] = bench.growth()
        results["memory"] = bench.memory()
        results["waiting"] = bench.waiting()
        results["system_calls"] = {side: bench.system_calls(side) for side in ("library", "floor")}
        results["micro"] = micro_benchmarks(build)
        results["load_after"] = os.getloadavg()
        return results
    finally:
        bench.close()


def rows_of_calls(rows, name):
    for row in rows:
        yield [name(row), str(row["mode"]), f"{row['wall_ratio']:.2f}", f"{row['cpu_ratio']:.2f}",
               f"{row['wall_us']:,.0f}", f"{row['floor_wall_us']:,.0f}", f"{row['p99_us']:,.0f}",
               f"{row['cpu_us']:,.0f}", f"{row['floor_cpu_us']:,.0f}", f"{row['children_us']:,.0f}"]


def print_table(title, heads, rows):
    rows = [heads, *rows]
    widths = [max(len(row[i]) for row in rows) for i in range(len(heads))]
    align = lambda row: "| " + " | ".join(cell.ljust(w) if i == 0 else cell.rjust(w)
                                          for i, (cell, w) in enumerate(zip(row, widths))) + " |"
    print(f"\n{title}\n")
    print(align(rows[0]))
    print("|" + "|".join("-" * (w + 1) + (":" if i else "-") for i, w in enumerate(widths)) + "|")
    for row in rows[1:]:
        print(align(row))


CALL_HEADS = ["call", "LogMode", "wall ratio", "CPU ratio", "wall us", "floor us", "p99 us", "CPU us",
              "floor CPU", "children"]


def report(results):
    load = ", ".join(f"{value:.1f}" for value in (results["load_before"][0], results["load_after"][0]))
    print(f"Load of the machine before and after: {load}")
    port = {"fixed": "", "usb": ", found on the mocked bus"}
    print_table("Steady state, port known by FixarPorta or found on the bus", CALL_HEADS,
                rows_of_calls(results["calls"], lambda row: CASE_NAMES[row["case"]] + port[row["port"]]))
    print_table("First call of a process (ConsultarSAT)", CALL_HEADS,
                rows_of_calls(results["first_call"], lambda row: "first call"))
    print_table("No device at the fixed port", ["LogMode", "wall us", "CPU us"],
                ([str(row["mode"]), f"{row['wall_us']:,.0f}", f"{row['cpu_us']:,.0f}"] for row in results["no_device"]))
    print_table("Growth with the size of the command, LogMode 0", ["bytes", "wall ratio", "fastest us", "floor us"],
                ([f"{row['bytes']:,}", f"{row['wall_ratio']:.2f}", f"{row['fastest_us']:,.0f}",
                  f"{row['floor_fastest_us']:,.0f}"] for row in results["growth"]["rows"]))
    fit = results["growth"]["fit"]
    print(f"\nStraight line: {fit['us']:.0f} us + {fit['us_per_kb']:.2f} us per kB, "
          f"largest deviation {fit['largest_deviation']:.0%}")
    memory, waiting = results["memory"], results["waiting"]
    print(f"Peak resident memory: {memory['idle_kb']:,} kB without a call, "
          f"{memory['small_calls_kb']:,} kB after 200 small calls")
    print(f"Waiting: {waiting['wall_ms']:,.0f} ms for a silent device cost {waiting['cpu_ms']:.2f} ms of processor")
    calls = results["system_calls"]
    names = sorted({*calls["library"], *calls["floor"]})
    print_table("System calls of one small call, LogMode 1", ["system call", "library", "floor"],
                [*([name, *(f"{calls[side].get(name, 0):g}" for side in ("library", "floor"))] for name in names),
                 ["together", *(f"{sum(calls[side].values()):g}" for side in ("library", "floor"))]])
    print_table("Parts", ["part", "ns", "MB/s"],
                ([b["name"], f"{b['ns']:,.0f}",
                  f"{b['bytes_per_second'] / 1e6:,.0f}" if b["bytes_per_second"] else ""] for b in results["micro"]))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--json", type=pathlib.Path)
    parser.add_argument("--scale", type=int, default=1)
    options = parser.parse_args()
    results = measure(options.build.resolve(), options.scale)
    report(results)
    if options.json:
        options.json.write_text(json.dumps(results, indent=2) + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
