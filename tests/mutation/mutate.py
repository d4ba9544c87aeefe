"""Changes the library in one place at a time and sees whether the tests notice.

A change that no test notices is either a missing test or makes no difference; those of the second kind stand in
equivalents.txt with the reason. See `scripts/mutate`.
"""

import argparse
import hashlib
import json
import os
import queue
import random
import resource
import shutil
import signal
import sys
import threading
import time
from collections import Counter, defaultdict
from pathlib import Path

from equivalents import readEquivalents
from mutants import mutantsOf
from trial import QUICK, Build, Job, Trouble, endSessions, keepPrograms

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent.parent
CHEAP = 0.5              # seconds of the processor that a case takes
CASES_AT_ONCE = 8        # of one program, when those that noticed earlier changes are asked first
PROGRAMS_ASKED_FIRST = 4
# Of a program that did not run yet, by its name or its kind.
EXPECTED_COSTS = {
    "unit": 0.05,
    "session": 0.1,
    "tools": 1,
    "session_busy_connections_test": 0.8,
    "session_cut_answers_test": 1,
    "session_cut_conversations_test": 1.2,
    "session_deadlines_test": 3.4,
    "session_failing_locks_test": 0.6,
    "session_failing_trace_test": 0.9,
    "session_host_fork_test": 2.4,
    "session_host_left_alone_test": 3.3,
    "session_host_signals_test": 1.6,
    "session_interruption_test": 0.5,
    "session_query_wire_test": 3.6,
    "session_soiled_memory_test": 0.6,
    "session_threads_test": 4.1,
    "session_trace_conversation_test": 4.9,
    "unit_forked_child_static_test": 0.4,
    "unit_parse_generated_test": 1.5,
}
LINKING_COSTS = 0.4      # likewise, of a program on the static library
TRUSTED = 2              # changes of a file that a case has noticed twice in a row each
MOST_MEMORY = 8 << 30
MOST_FILE = 512 << 20
STATES = ("killed", "listed", "survived", "same", "uncompilable")


def optionsFrom(arguments):
    parser = argparse.ArgumentParser(prog="mutate", description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=Path, required=True, help="a build of this checkout, with its tests")
    parser.add_argument("--work", type=Path, help="where mutants and results lie (default: BUILD/mutation)")
    parser.add_argument("--module", action="append", default=[], help="only this one (diag, gwytok, wire.h, ...)")
    parser.add_argument("--function", action="append", default=[], help="only in this function")
    parser.add_argument("--without", action="append", default=[], help="leave out this test program")
    parser.add_argument("--sample", type=int, help="so many mutants, drawn at random; keeps no results")
    parser.add_argument("--seed", type=int, default=1, help="of the sample")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="mutants at the same time")
    parser.add_argument("--again", action="store_true", help="forget the results so far")
    parser.add_argument("--list", action="store_true", help="show the mutants and their results, run nothing")
    return parser.parse_args(arguments)


def unitsOf(source, wanted):
    """The files that are changed: every module, and the headers that hold code or constants."""
    files = sorted((source / "c").glob("stapi_krv_*.cpp")) + sorted((source / "h").glob("stapi_krv_*.h"))
    if not wanted:
        return files
    byName = {file.name.removeprefix("stapi_krv_"): file for file in files}
    names = [name if "." in name else f"{name}.cpp" for name in wanted]
    unknown = [name for name in names if name not in byName]
    if unknown:
        raise Trouble(f"no such module: {', '.join(unknown)}")
    return [byName[name] for name in names]


def digestOf(*files):
    digest = hashlib.sha256()
    for file in files:
        digest.update(file.read_bytes())
    return digest.hexdigest()[:16]


class Results:
    """What is known of mutants from earlier runs, and which cases noticed changes where."""

    def __init__(self, file, keep):
        self.file = file if keep else None
        self.known = {}     # of a sample only what it finds itself
        self.killersOfFunction = defaultdict(Counter)
        self.killersOfUnit = defaultdict(Counter)
        self.cost = {}
        self.lock = threading.Lock()
        if file.exists():
            for line in file.read_text().splitlines():
                self.note(json.loads(line))
        if not keep:
            self.known = {}

    def note(self, result):
        self.known[(result["digest"], *result["key"])] = result
        if result["state"] == "killed":
            unit, function = result["key"][:2]
            killer = (result["program"], result["case"])
            self.killersOfFunction[unit, function][killer] += 1
            self.killersOfUnit[unit][killer] += 1
            self.cost[killer] = min(result["cost"], self.cost.get(killer, result["cost"]))

    def add(self, result):
        with self.lock:
            self.note(result)
            if self.file:
                with self.file.open("a") as sink:
                    sink.write(json.dumps(result) + "\n")

    def likelyCases(self, mutant):
        """Per program, the cases that noticed changes of this function, then of this file, and what they cost."""
        with self.lock:
            ranked = [killer for killer, _ in self.killersOfFunction[mutant.unit, mutant.function].most_common(16)]
            ranked += [killer for killer, _ in self.killersOfUnit[mutant.unit].most_common(12) if killer not in ranked]
            asked = {}
            for program, case in ranked:
                dear = self.cost[program, case] > CHEAP
                if case and len(asked.setdefault((program, dear), [])) < CASES_AT_ONCE:
                    asked[program, dear].append(case)
            return sorted(((program, cases, max(self.cost[program, case] for case in cases))
                           for (program, _), cases in list(asked.items())[:PROGRAMS_ASKED_FIRST]),
                          key=lambda one: (one[0].endswith("_static_test"), one[2]))

    def rank(self, unit, program):
        """Programs that notice more at less cost come first. Those on the static library have to be linked, too."""
        with self.lock:
            kills = sum(count for (name, _), count in self.killersOfUnit[unit].items() if name == program.name)
        kind = program.name.partition("_")[0]
        cost = program.cost or EXPECTED_COSTS.get(program.name, EXPECTED_COSTS[kind])
        return -(kills + 1) / (max(cost, 0.05) + LINKING_COSTS * program.isStatic)


class Run:
    def __init__(self, options, build, results):
        self.options = options
        self.build = build
        self.results = results
        self.programs = {program.name: program for program in build.programs}
        self.listed = readEquivalents(HERE / "equivalents.txt")
        self.unlisted = []  # entries that hold no longer
        self.measuring = threading.Lock()

    def judge(self, job, mutant, original, passed):
        """What comes of a mutant. Programs that have passed with it, as they are now, are not asked again."""
        state = job.plant(mutant, original)
        if state:
            return {"state": state}
        left = {name: program for name, program in self.programs.items() if passed.get(name) != program.digest}
        likely = [(left[name], cases, cost) for name, cases, cost in self.results.likelyCases(mutant) if name in left]
        for program, cases, _ in (one for one in likely if one[2] <= CHEAP):
            verdict = self.verdict(job, program, cases)
            if verdict:
                return verdict
        if job.makesNoDifference(mutant, original):
            return {"state": "same"}
        job.plant(mutant, original)
        attempts = [(program, (), self.results.rank(mutant.unit, program)) for program in left.values()]
        attempts += [(program, cases, -20 / cost) for program, cases, cost in likely if cost > CHEAP]
        for program, cases, _ in sorted(attempts, key=lambda one: one[2]):
            verdict = self.verdict(job, program, cases)
            if verdict:
                return verdict
        passed = passed | {name: program.digest for name, program in left.items()}
        return {"state": "listed" if mutant.key() in self.listed else "survived", "passed": passed}

    def verdict(self, job, program, cases=()):
        verdict = job.run(program, cases)
        if not verdict.passed and not program.isSound:
            with self.measuring:  # a program that judges mutants has to pass with the library as it is
                if not program.isSound:
                    job.measure(program)
            verdict = job.run(program, cases)
        if verdict.passed:
            if program.cost is None and not cases:
                program.cost = verdict.cost
            return None
        # On a busy machine a test may fail once without a reason. One that has proved itself here is believed at once.
        known = self.results.killersOfUnit[job.unit][(program.name, verdict.case)]
        if verdict.hung or known < TRUSTED or not verdict.case:
            again = job.run(program, [verdict.case] if verdict.case else cases)
            if again.passed and verdict.case:
                again = job.run(program, cases)  # alone, a case may miss what those before it left behind
            if again.passed:
                return None
        return {"state": "killed", "program": program.name, "case": verdict.case, "hung": verdict.hung,
                "cost": round(verdict.cost, 3)}

    def work(self, first, folder, pending, done):
        try:
            job = Job(self.build, folder, self.source, like=first) if folder else first
            while True:
                mutant, original, digest = pending.get_nowait()
                begin = time.monotonic()
                result = self.judge(job, mutant, original, self.programsPassed(mutant, digest))
                result |= {"key": mutant.key(), "digest": digest, "seconds": round(time.monotonic() - begin, 2)}
                self.results.add(result)
                done.put((mutant, result))
        except queue.Empty:
            done.put(None)
        except Exception as trouble:  # the others must not wait for this one
            done.put(trouble)

    def programsPassed(self, mutant, digest):
        """By name, the digests of the programs that did not notice a mutant."""
        return self.results.known.get((digest, *mutant.key()), {}).get("passed", {})

    def isKnown(self, mutant, digest):
        known = self.results.known.get((digest, *mutant.key()))
        if not known:
            return None
        if known["state"] in ("survived", "listed"):
            if any(known["passed"].get(program.name) != program.digest for program in self.build.programs):
                return None
            known["state"] = "listed" if mutant.key() in self.listed else "survived"
        return known

    def all(self, work):
        options = self.options
        # Checkout and build may change meanwhile.
        keepPrograms(self.build, work / "tests")
        for program in self.build.programs:
            program.digest = digestOf(program.path)
        self.source = work / "source"
        work.mkdir(parents=True, exist_ok=True)
        shutil.rmtree(self.source, ignore_errors=True)
        shutil.copytree(self.build.source, self.source)
        units = unitsOf(self.source, options.module)
        first = Job(self.build, work / "job0", self.source)
        every = []
        for file in units:
            source = file.read_text()
            # Results hold as long as the compiler makes the same of the file.
            digest = digestOf(*(first.original(module, QUICK) for module in first.affected(file.name)))
            every += [(mutant, source, digest) for mutant in mutantsOf(file.name, source)]
        found = {mutant.key() for mutant, _, _ in every}
        names = {file.name for file in units}
        self.unlisted = [entry for entry in self.listed if entry[0] in names and entry not in found]
        if options.function:
            every = [one for one in every if one[0].function in options.function]

        outcome = []
        if options.sample:
            print(f"mutate: a sample of {options.sample} of {len(every)}, seed {options.seed}", flush=True)
            every = random.Random(options.seed).sample(every, min(options.sample, len(every)))
            outcome = [(one[0], {"state": "listed"}) for one in every if one[0].key() in self.listed]
            every = [one for one in every if one[0].key() not in self.listed]
        # What is likely to show that tests are missing comes first.
        every.sort(key=lambda one: (one[0].key() in self.listed, one[0].isOfTheTrace()))
        pending = queue.Queue()
        for one in every:
            known = self.isKnown(one[0], one[2])
            if known:
                outcome.append((one[0], known))
            else:
                pending.put(one)
        if options.list:
            return outcome
        total = pending.qsize()
        print(f"mutate: {total} to try, {len(outcome)} known", flush=True)

        done = queue.Queue()
        workers = [threading.Thread(target=self.work, args=(first, folder, pending, done), daemon=True)
                   for folder in [None, *(work / f"job{index}" for index in range(1, options.jobs))]]
        for worker in workers:
            worker.start()
        left = len(workers)
        tried = 0
        while left:
            got = done.get()
            if got is None:
                left -= 1
            elif isinstance(got, Exception):
                raise got
            else:
                outcome.append(got)
                tried += 1
                mutant, result = got
                if result["state"] == "survived" or (result["state"] == "killed" and mutant.key() in self.listed):
                    print(f"mutate: {result['state']} {mutant.unit}:{mutant.number} {mutant.change}", flush=True)
                elif tried % (5 if self.options.sample else 50) == 0:
                    print(f"mutate: {tried} of {total}", flush=True)
        return outcome


def report(outcome, run):
    counts = defaultdict(Counter)
    for mutant, result in outcome:
        counts[mutant.unit][result["state"]] += 1
    print(f"{'':<30}{'mutants':>9}" + "".join(f"{state:>13}" for state in STATES))
    for unit in [*sorted(counts), "all"]:
        row = counts[unit] if unit != "all" else sum(counts.values(), Counter())
        print(f"{unit:<30}{row.total():>9}" + "".join(f"{row[state]:>13}" for state in STATES))

    survivors = [mutant for mutant, result in outcome if result["state"] == "survived"]
    stale = [(mutant, result) for mutant, result in outcome
             if result["state"] == "killed" and mutant.key() in run.listed]
    for mutant in sorted(survivors, key=lambda one: (one.unit, one.number)):
        print(f"\nsurvived: {mutant.unit}:{mutant.number}\n"
              f"  in: {mutant.unit} {mutant.function}\n  line: {mutant.line}\n  change: {mutant.change}")
    for mutant, result in stale:
        print(f"\nlisted, but noticed by {result['program']} {result['case']}: {mutant.unit}:{mutant.number}\n"
              f"  line: {mutant.line}\n  change: {mutant.change}")
    for unit, function, line, change in run.unlisted:
        print(f"\nlisted, but not to be found any more: {unit} {function}\n  line: {line}\n  change: {change}")
    return not survivors and not stale and not run.unlisted


def main():
    options = optionsFrom(sys.argv[1:])
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    resource.setrlimit(resource.RLIMIT_AS, (MOST_MEMORY, MOST_MEMORY))
    resource.setrlimit(resource.RLIMIT_FSIZE, (MOST_FILE, MOST_FILE))
    try:
        build = Build.read(options.build, ROOT / "source")
        build.programs = [program for program in build.programs if program.name not in options.without]
        work = (options.work or options.build / "mutation").resolve()
        work.mkdir(parents=True, exist_ok=True)
        if options.again:
            (work / "results.jsonl").unlink(missing_ok=True)
        run = Run(options, build, Results(work / "results.jsonl", keep=not options.sample))
        # Whoever looks at the results must not disturb the run that finds them.
        place = work / "list" if options.list else work / "sample" if options.sample else work
        good = report(run.all(place), run)
    except Trouble as trouble:
        print(f"mutate: {trouble}", file=sys.stderr)
        return 2
    finally:
        endSessions()
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
