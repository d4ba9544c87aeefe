"""What repeats exactly: instructions, system calls, allocations, sizes; most of it counted in runs of krvcount."""

import os
import re
import shutil
import subprocess
import tempfile
from dataclasses import dataclass
from pathlib import Path

FEWER = 10     # repeats: what a run with fewer takes is subtracted from what one with more takes
MORE = 30
MARKS = {"query begins": "query", "query ends": None, "walk begins": "walk", "walk ends": None}

# Of a protocol message: the header of an admin request or reply, and what an admin reply holds in front of its result.
HEADER = 34
REPLY_FIXED = 9
# Requests to the statistics object, without the name of the operation; the init call, and the body of its reply.
INIT_REQUEST = HEADER + 4
INIT_REPLY_BODY = 12
INVOKE_REQUEST = HEADER + 119


class Trouble(Exception):
    """A tool that is missing or failed: nothing was measured."""


@dataclass(frozen=True)
class Built:
    """What a build has for us."""

    machine: str       # x86_64 or i386
    programs: Path     # the folder of krvcount and its variants
    library: Path      # the shared library
    strip: str = "strip"


def run(command, **options):
    if shutil.which(command[0]) is None:
        raise Trouble(f"{command[0]} is missing")
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True, timeout=100, **options)
    if done.returncode != 0:
        raise Trouble(f"{' '.join(map(str, command))} ended with {done.returncode}:\n{done.stdout}{done.stderr}")
    return done


# ---- Instructions ----


def instructionsIn(report):
    """The number that callgrind closes with."""
    found = re.search(r"refs:\s+([\d,]+)", report)
    if not found:
        raise Trouble(f"callgrind has counted nothing:\n{report}")
    return int(found.group(1).replace(",", ""))


def instructions(program, task, shape, n, repeats, only=None):
    """Of a whole run, or of the calls of one function and all that they call."""
    # Where the C library copies by one repeated instruction, each repeat would count.
    tunables = "glibc.cpu.x86_rep_movsb_threshold=0x40000000:glibc.cpu.x86_rep_stosb_threshold=0x40000000"
    command = ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null"]
    if only:
        command.append(f"--toggle-collect={only}")
    done = run([*command, program, task, shape, n, repeats], env={**os.environ, "GLIBC_TUNABLES": tunables})
    return instructionsIn(done.stderr)


def instructionsOfOne(program, task, shape, n):
    """Of one repeat, without what starting up takes."""
    fewer, more = (instructions(program, task, shape, n, repeats) for repeats in (FEWER, MORE))
    return (more - fewer) / (MORE - FEWER)


def parseInstructions(built, shape):
    return instructionsOfOne(built.programs / "krvcount", "parse", shape, 1000) / 1000


def stepInstructions(built):
    # A walk of n elements: getFirstStat, and n calls of getNextStat, of which the last finds nothing.
    walks, n = 4, 1000
    return instructions(built.programs / "krvcount", "walk", "stats", n, walks, only="getNextStat") / (walks * n)


def tracePoints(built, n):
    def instructionsOf(kind):
        return instructionsOfOne(built.programs / f"krvcount_{kind}", "query-walk", "stats", n)

    return instructionsOf("traced") / instructionsOf("untraced")


# ---- System calls ----


def callsBetweenMarks(lines):
    """The names of the calls of each query and of each walk, in order, from what strace wrote."""
    found = {"query": [], "walk": []}
    inside = None
    for line in lines:
        mark = re.match(r'write\(-1, "([^"]*)"', line)
        if mark and mark.group(1) in MARKS:
            inside = MARKS[mark.group(1)]
            if inside:
                found[inside].append([])
            continue
        call = re.match(r"(\w+)\(", line)
        if inside and call:
            found[inside][-1].append(call.group(1))
    return found


def systemCalls(built, shape, n, repeats, *options):
    with tempfile.TemporaryDirectory() as folder:
        log = Path(folder) / "calls"
        run(["strace", "-qq", "-o", log, built.programs / "krvcount", "calls", shape, n, repeats, *options])
        found = callsBetweenMarks(log.read_text(errors="replace").splitlines())
    if any(len(each) != repeats for each in found.values()):
        raise Trouble(f"strace has not seen {repeats} queries and walks: {found}")
    return found


def queryCalls(built, *options):
    """The most that a query took."""
    return max(
        len(calls)
        for shape, n in (("stats", 10), ("stats", 1000), ("ids", 1000))
        for calls in systemCalls(built, shape, n, FEWER, *options)["query"]
    )


def stepCalls(built):
    n = 1000
    return max(
        len(calls) / n for shape in ("stats", "ids") for calls in systemCalls(built, shape, n, FEWER)["walk"]
    )


# ---- Allocations ----

ANSWERS = (("stats", 10), ("stats", 1000), ("stats", 100000), ("random", 1000), ("value", 30000), ("ids", 1000))


def namedAllocations(operation, reply):
    """The sizes that a query asks for in this order; `reply` is the whole size of its second reply."""
    body = reply - HEADER
    return [
        INIT_REQUEST, HEADER, INIT_REPLY_BODY,                              # the init call: request, header, body
        INVOKE_REQUEST + len(operation), HEADER, body, body - REPLY_FIXED,  # the operation, and its result
    ]


def unnamedAllocations(line, named):
    """How far "requests releases: size size ..." is from the named ones, each of them given back."""
    counts, sizes = line.split(":")
    requests, releases = map(int, counts.split())
    sizes = [int(size) for size in sizes.split()]
    wrong = sum(a != b for a, b in zip(sizes, named))
    return wrong + abs(requests - len(named)) + abs(releases - len(named))


def queryAllocations(built):
    """Of the queries after the first on a connection: allocations that are not named, or named and missing."""
    worst = 0
    for shape, n in ANSWERS:
        lines = run([built.programs / "krvcount", "allocations", shape, n, 4]).stdout.splitlines()
        if len(lines) != 5 or not lines[0].startswith("reply "):
            raise Trouble(f"krvcount allocations {shape} {n}: {lines}")
        named = namedAllocations("STAT_IDS" if shape == "ids" else "GET_STATS", int(lines[0].split()[1]))
        worst = max(worst, *(unnamedAllocations(line, named) for line in lines[2:]))
    return worst


# ---- Sizes ----


def librarySize(built):
    """Bytes of the file once it is stripped."""
    with tempfile.TemporaryDirectory() as folder:
        stripped = Path(folder) / "library"
        run([built.strip, "-o", stripped, built.library])
        return stripped.stat().st_size


@dataclass(frozen=True)
class Measure:
    what: str
    take: object       # a function of Built
    form: str = "{:.1f}"


MEASURES = {
    "parse-instructions": Measure("parse, instructions a statistic", lambda built: parseInstructions(built, "stats")),
    "parse-instructions-random": Measure(
        "parse, instructions a statistic of random lengths", lambda built: parseInstructions(built, "random")
    ),
    "parse-instructions-ids": Measure("parse, instructions an id", lambda built: parseInstructions(built, "ids")),
    "step-instructions": Measure("one getNextStat, instructions", stepInstructions),
    "step-calls": Measure("system calls an element of a walk", stepCalls, "{:.0f}"),
    "query-calls": Measure("system calls a query, n <= 1,000", queryCalls, "{:.0f}"),
    "query-calls-ignoring-sigpipe": Measure(
        "the same where the application ignores SIGPIPE", lambda built: queryCalls(built, "ignoring-sigpipe"), "{:.0f}"
    ),
    "query-allocations": Measure(
        "allocations a query beside the seven that messages need, any n", queryAllocations, "{:.0f}"
    ),
    "trace-points-10": Measure(
        "instructions of query and walk / without trace points, n = 10", lambda built: tracePoints(built, 10), "{:.3f}"
    ),
    "trace-points-100": Measure("the same, n = 100", lambda built: tracePoints(built, 100), "{:.3f}"),
    "trace-points-1000": Measure("the same, n = 1,000", lambda built: tracePoints(built, 1000), "{:.3f}"),
    "library-size": Measure("library, stripped, bytes", librarySize, "{:,.0f}"),
}
