"""Runs what ./scripts/bench has built and prints one table.

bench.py --build FOLDER --build-i386 FOLDER [--quick] [--peers]
"""

import argparse
import json
import math
import os
import subprocess
import sys
from collections import defaultdict
from dataclasses import dataclass
from pathlib import Path
from statistics import median

from bars import COUNTED, TIMED, Bar, judge
from counts import MEASURES, Built, Trouble

NO_BAR = Bar()
SIZES = (10, 100, 1000, 5000, 100000, 1000000)
PEER_SIZES = (10, 100, 1000, 5000, 100000)
PEERS = {   # program: the largest answer that it is asked for
    "krvpeer_hiredis": 100000,
    "krvpeer_http": 100000,
    "krvpeer_memcached": 100000,
    "krvpeer_snmp": 5000,
}
CONTENDERS = {"library": "with its walk", "prescribed": "prescribed calls alone", "ping_pong": "raw ping-pong"}

# What a large answer was held in is given back to the system, and asked for again by the next query, unless malloc is
# told to keep it.
MEMORY_IS_KEPT = "glibc.malloc.trim_threshold=1000000000:glibc.malloc.mmap_threshold=1000000000"
KEPT = " (memory kept)"


@dataclass
class Row:
    what: str
    figure: str
    floor: str = ""
    ratio: str = ""
    bar: str = ""
    beyond: str = ""
    met: str = ""


TITLES = Row("measure", "figure", "floor or peer", "ratio", "bar", "beyond", "met")


def optionsFrom(arguments):
    parser = argparse.ArgumentParser(prog="bench", description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=Path, required=True)
    parser.add_argument("--build-i386", type=Path, required=True)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--peers", action="store_true")
    return parser.parse_args(arguments)


# ---- How figures look ----


def ratioText(ratio):
    """Small ones as a fraction: 1/6.3."""
    return f"1/{1 / ratio:.1f}" if ratio < 0.5 else f"{ratio:.2f}"


def timeText(nanoseconds):
    for unit, size in (("ms", 1e6), ("us", 1e3)):
        if nanoseconds >= size:
            return f"{nanoseconds / size:.1f} {unit}"
    return f"{nanoseconds:.1f} ns"


def verdict(bar, value, text):
    """The last three columns."""
    if bar.bar is None:
        return ("", "", "")
    sign = ">= " if bar.atLeast else "<= "
    beyond = "" if bar.beyond is None else sign + text(bar.beyond)
    if not judge(value, bar.bar, bar.atLeast):
        met = "no"
    elif bar.beyond is not None and judge(value, bar.beyond, bar.atLeast):
        met = "yes, and beyond"
    else:
        met = "yes"
    return (sign + text(bar.bar), beyond, met)


def againstFloor(what, figure, floor, ratio, bar=NO_BAR, text=timeText):
    return Row(what, text(figure), text(floor), ratioText(ratio), *verdict(bar, ratio, ratioText))


def alone(what, figure, text, bar=NO_BAR):
    return Row(what, text(figure), "", "", *verdict(bar, figure, text))


# ---- In memory ----


def memoryTimes(program, quick):
    """Nanoseconds of the processor for each case: the median of repetitions in random order."""
    command = [
        program, "--benchmark_format=json", f"--benchmark_repetitions={5 if quick else 11}",
        f"--benchmark_min_time={0.01 if quick else 0.05}", "--benchmark_enable_random_interleaving=true",
    ]
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=True)
    samples, sizes = defaultdict(list), {}
    for each in json.loads(done.stdout)["benchmarks"]:
        if each["run_type"] == "iteration":
            samples[each["run_name"]].append(each["cpu_time"])
            sizes[each["run_name"]] = each["bytes_per_second"] * each["cpu_time"] / 1e9
    return {name: median(times) for name, times in samples.items()}, sizes


def memoryRows(program, quick):
    times, sizes = memoryTimes(program, quick)

    def against(what, task, case, floor, bar=NO_BAR):
        figure, least = times[f"{task}/{case}"], times[f"{floor}/{case}"]
        return againstFloor(what, figure, least, figure / least, bar)

    for n in SIZES:
        bar = TIMED.get(f"parse/{n}", NO_BAR)
        yield against(f"parse {n:,} statistics / memcpy of the reply", "parse", f"stats/{n}", "memcpy", bar)
    for n in SIZES:
        yield against(f"parse {n:,} statistics / a minimal loop", "parse", f"stats/{n}", "minimal_parse")
    rate = sizes["parse/stats/1000"] / times["parse/stats/1000"]
    yield alone("parse rate in cache, n = 1,000", rate, lambda value: f"{value:.1f} GB/s", TIMED["parse-rate/1000"])
    for n in (1000, 100000):
        yield against(
            f"parse {n:,} statistics of random lengths / a minimal loop", "parse", f"random/{n}", "minimal_parse",
            TIMED["parse-random"],
        )
    for n in (1000, 100000):
        yield against(f"parse {n:,} ids / memcpy of the reply", "parse", f"ids/{n}", "memcpy")
    for length in (1, 100, 1000, 10000, 32767):
        yield against(f"parse a value of {length:,} bytes / memcpy of the reply", "parse", f"value/{length}", "memcpy")
    for n in SIZES:
        yield against(f"walk {n:,} statistics / a minimal inline walk", "walk", f"stats/{n}", "minimal_walk")
    for n in (1000, 100000):
        yield alone(f"walk {n:,} ids", times[f"walk/ids/{n}"], timeText)


# ---- Whole queries ----


def rounds(command, **environment):
    """What programs built on runRounds print: for each n, and each contender, nanoseconds a round."""
    done = subprocess.run(
        [str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
        env={**os.environ, **environment},
    )
    if done.returncode != 0:
        raise Trouble(f"{Path(command[0]).name}: {done.stderr.strip() or done.returncode}")
    return [json.loads(line) for line in done.stdout.splitlines()]


def compare(contenders, name, floor, clock):
    """Medians of both, and the median of each round's ratio."""
    mine, least = contenders[name][clock], contenders[floor][clock]
    return median(mine), median(least), median(a / b for a, b in zip(mine, least))


def growthRows(growth, where=""):
    for name, bar in (("library", NO_BAR if where else TIMED["growth"]), ("prescribed", NO_BAR), ("ping_pong", NO_BAR)):
        slope = math.log10(growth[1000000][name] / growth[100000][name])
        what = f"growth of CPU from 100,000 to 1,000,000, log-log: {CONTENDERS[name]}{where}"
        yield alone(what, slope, "{:.2f}".format, bar)


def processorTimes(contenders):
    return {name: median(times["processor"]) for name, times in contenders.items()}


def queryRows(program, quick):
    patience = (7, 10) if quick else (21, 30)
    growth = {}
    for cores in ("one", "two"):
        for each in rounds([program, cores, *patience, *SIZES]):
            n, contenders = each["n"], each["contenders"]
            bar = TIMED.get(f"query/{n}", NO_BAR) if cores == "one" else NO_BAR
            for name, itsBar in (("library", bar), ("prescribed", NO_BAR)):
                what = f"{each['label']}, n = {n:,}: {CONTENDERS[name]} / raw ping-pong"
                yield againstFloor(what, *compare(contenders, name, "ping_pong", "wall"), itsBar)
            if cores == "one":
                growth[n] = processorTimes(contenders)
    yield from growthRows(growth)
    growth = {}
    for each in rounds([program, "one", *patience, *(n for n in SIZES if n >= 5000)], GLIBC_TUNABLES=MEMORY_IS_KEPT):
        n, contenders = each["n"], each["contenders"]
        what = f"query on one core, n = {n:,}: {CONTENDERS['library']}{KEPT} / raw ping-pong"
        yield againstFloor(what, *compare(contenders, "library", "ping_pong", "wall"))
        growth[n] = processorTimes(contenders)
    yield from growthRows(growth, KEPT)


# ---- Counts ----


def countedRows(built):
    for name, measure in MEASURES.items():
        bar = COUNTED[name][built.machine]
        try:
            figure = measure.take(built)
        except Trouble as trouble:
            yield Row(f"{built.machine}: {measure.what}", f"not measured: {trouble}")
            continue
        yield alone(f"{built.machine}: {measure.what}", figure, measure.form.format, bar)


# ---- Peers ----


def peerRows(programs, quick):
    """Our time of the processor over theirs."""
    for program, most in PEERS.items():
        command = [programs / program, 5 if quick else 9, 10 if quick else 30, *(n for n in PEER_SIZES if n <= most)]
        for environment, where in (({}, ""), ({"GLIBC_TUNABLES": MEMORY_IS_KEPT}, KEPT)):
            try:
                found = rounds(command, **environment)
            except (Trouble, OSError) as trouble:
                yield Row(program, f"not measured: {trouble}")
                break
            for each in found:
                for peer in each["contenders"]:
                    if peer != "library":
                        bar = NO_BAR if where else TIMED.get(f"{peer}/{each['n']}", NO_BAR)
                        what = f"client CPU of a query, n = {each['n']:,} / {peer.replace('_', ' ')}{where}"
                        yield againstFloor(what, *compare(each["contenders"], "library", peer, "processor"), bar)


def show(rows):
    """As a table in Markdown, each row as soon as it is known."""
    widths = (88, 12, 14, 8, 12, 12, 15)
    for row in rows:
        cells = (row.what, row.figure, row.floor, row.ratio, row.bar, row.beyond, row.met)
        padded = [cells[0].ljust(widths[0]), *(cell.rjust(width) for cell, width in zip(cells[1:], widths[1:]))]
        print(f"| {' | '.join(padded)} |", flush=True)


def allRows(options):
    programs = options.build / "bin"
    yield TITLES
    yield Row(*["---"] * 7)
    yield from queryRows(programs / "krvquery", options.quick)
    yield from memoryRows(programs / "krvmemory", options.quick)
    for machine, build in (("x86_64", options.build), ("i386", options.build_i386)):
        yield from countedRows(Built(machine, build / "bin", build / "lib" / "libkrvstats.so"))
    if options.peers:
        yield from peerRows(programs, options.quick)


if __name__ == "__main__":
    show(allRows(optionsFrom(sys.argv[1:])))
