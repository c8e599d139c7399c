#!/usr/bin/env python3
"""What orders cost a program that allocates at full speed: bench/orders_cost.py BIN_FOLDER [ORDERS]

Runs the churning test program under ktl_memrun and takes its events in each second of its processor time in turns, left
alone and asked: a quarter each of status, paths, checkpoint and mark. Prints the ratio of both; 1.00 is no loss.
"""

import json
import os
import pathlib
import statistics
import subprocess
import sys
import tempfile
import time

TURNS = 5
QUIET_SECONDS = 5
KINDS = (("status",), ("paths",), ("checkpoint",), ("mark",))


def main():
    programs, orders = pathlib.Path(sys.argv[1]).resolve(), int(sys.argv[2]) if len(sys.argv) > 2 else 1000
    with tempfile.TemporaryDirectory() as folder:
        counters = pathlib.Path(folder, "counters")
        counters.write_bytes(bytes(64))
        reports = pathlib.Path(folder, "reports")
        run = subprocess.Popen([programs / "ktl_memrun", "-o", reports, "-q", programs / "memrun_subject", "churn", "1", counters],
                               stdout=subprocess.PIPE)
        try:
            run.stdout.readline()
            made = iter(range(orders))

            def ask(*order):
                return subprocess.run([programs / "ktl_memctl", reports, *order, "--json", "--timeout", "60"], check=True,
                                      capture_output=True).stdout

            def processor_seconds(pid):
                fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
                return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

            def look():
                time.sleep(0.2)  # figures are renewed ten times a second
                process = json.loads(ask("status"))["processes"][0]
                return process["events"], processor_seconds(process["pid"])

            def rate(work):
                events, seconds = look()
                work()
                events_then, seconds_then = look()
                return (events_then - events) / (seconds_then - seconds)

            def be_asked():
                for number in (next(made) for _ in range(orders // TURNS)):
                    kind = KINDS[number % len(KINDS)]
                    ask(*kind, *([f"m{number}"] if kind == ("mark",) else []))

            time.sleep(1)
            quiet, asked = [], []
            for _ in range(TURNS):
                quiet.append(rate(lambda: time.sleep(QUIET_SECONDS)))
                asked.append(rate(be_asked))
            print(f"events a second of the processor: {statistics.median(quiet):,.0f} alone, {statistics.median(asked):,.0f} asked {orders} times: "
                  f"ratio {statistics.median(asked) / statistics.median(quiet):.3f}")
        finally:
            run.terminate()
            run.wait()


if __name__ == "__main__":
    main()
