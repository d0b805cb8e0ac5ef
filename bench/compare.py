#!/usr/bin/env python3
"""The library beside its peers: one row per pair, from one run.

    python3 bench/compare.py [--filter REGEX] [--repetitions N] [--json FILE]

Builds the benchmark program (preset "bench", peers from bench/install-deps.sh),
runs it once with repetitions interleaved at random, and prints for each pair
the library's throughput, the peer's, and their ratio (library over peer, each
side's best repetition: on a shared machine other work only slows a run down).
Before any timing the program checks that the library and the peer make the
same output where both define it; a difference stops it, and this script
fails.

Pairs, for every family that adds rows (see bench/pairs.hpp):
  - two benchmarks named BM_<Op>_tav and BM_<Op>_peer, with the same
    arguments, each counting the same bytes (SetBytesProcessed) or the same
    items (SetItemsProcessed);
  - the peer names itself with SetLabel, shown in the row;
  - TAV_BENCH_CHECK(<Op>) compares the outputs, where they are comparable
    (a benchmark that finds a difference itself and calls SkipWithError
    fails its row as well).
Other benchmarks run as before and make no row. With --json FILE the script
reads a Google Benchmark JSON output made earlier instead of running anything.

Python 3's standard library only.
"""
import argparse
import json
import os
import re
import subprocess
import sys
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
PROGRAM = os.path.join(ROOT, "build-bench", "bench", "tavutil_bench")
PAIR = re.compile(r"^BM_(?P<op>\w+?)_(?P<side>tav|peer)(?P<args>/.*)?$")


def build():
    for step in (["cmake", "--preset", "bench"], ["cmake", "--build", "build-bench", "--target",
                                                  "tavutil_bench"]):
        done = subprocess.run(step, cwd=ROOT, stdout=subprocess.DEVNULL)
        if done.returncode != 0:
            sys.exit("failed: " + " ".join(step))


def run(filter_regex, repetitions, min_time):
    with tempfile.NamedTemporaryFile(suffix=".json") as out:
        command = [PROGRAM, "--benchmark_filter=" + filter_regex,
                   "--benchmark_repetitions=%d" % repetitions,
                   "--benchmark_enable_random_interleaving=true",
                   "--benchmark_min_time=%g" % min_time,
                   "--benchmark_out_format=json", "--benchmark_out=" + out.name]
        done = subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                              text=True)
        if done.returncode != 0:
            sys.stderr.write(done.stderr)
            sys.exit("the benchmark program failed (exit %d)" % done.returncode)
        with open(out.name) as results:
            return json.load(results)


def throughputs(report):
    """(op, args) -> side -> (rate, unit, label, error), from its best repetition."""
    pairs = {}
    for bench in report["benchmarks"]:
        if bench.get("run_type", "iteration") != "iteration":
            continue
        match = PAIR.match(bench.get("run_name", bench["name"]))
        if not match:
            continue
        if "bytes_per_second" in bench:
            rate, unit = bench["bytes_per_second"] / (1 << 20), "MiB/s"
        elif "items_per_second" in bench:
            rate, unit = bench["items_per_second"] / 1000, "k/s"
        else:
            rate, unit = None, ""
        error = bench.get("error_message", "error") if bench.get("error_occurred") else None
        side = pairs.setdefault((match["op"], match["args"] or ""), {})
        best = side.get(match["side"])
        if best is None or (rate or 0) > (best[0] or 0) or error:
            side[match["side"]] = (rate, unit, bench.get("label", ""), error or (best and best[3]))
    return pairs


def rate_text(side):
    return "%10.1f %-5s" % (side[0], side[1]) if side and side[0] else "%10s %-5s" % ("-", "")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--filter", default=".", help="benchmarks to run (regular expression)")
    parser.add_argument("--repetitions", type=int, default=9)
    parser.add_argument("--min-time", type=float, default=0.05,
                        help="seconds per repetition of each benchmark")
    parser.add_argument("--json", help="read this Google Benchmark JSON instead of running")
    parser.add_argument("--no-build", action="store_true")
    options = parser.parse_args()

    if options.json:
        with open(options.json) as results:
            report = json.load(results)
    else:
        if not options.no_build:
            build()
        report = run(options.filter, options.repetitions, options.min_time)

    context = report.get("context", {})
    pairs = throughputs(report)
    failed = False
    print("%-24s %16s %16s %7s  %-6s %s" % ("pair", "library", "peer", "ratio", "output",
                                            "peer is"))
    for (op, args), sides in sorted(pairs.items()):
        tav, peer = sides.get("tav"), sides.get("peer")
        if (tav is None or peer is None or tav[3] or peer[3] or not tav[0] or not peer[0]
                or tav[1] != peer[1]):
            failed = True
            ratio = "  error"
        else:
            quotient = tav[0] / peer[0]
            ratio = ("%7.2f" if quotient >= 0.1 else "%7.4f") % quotient
        check = context.get("check " + op, "-")
        failed = failed or check not in ("same", "-")
        print("%-24s %s %s %s  %-6s %s" % (op + args, rate_text(tav), rate_text(peer), ratio,
                                            check, peer[2] if peer else "(no peer)"))
    print("(%s, %d CPUs, %s; the best of %s repetitions, interleaved)" % (
        context.get("host_name", "?"), context.get("num_cpus", 0), context.get("date", "?"),
        options.repetitions if not options.json else "the"))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
