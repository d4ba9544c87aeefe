"""Tries one change of the library: compiles what it touches, links a library, and lets the tests judge it.

Each job has a copy of the sources, the objects and the shared library of its own. The test programs are those of the
build; they find the job's library by the loader's search path. Programs on the static library are linked anew, by the
build's own command.
"""

import filecmp
import json
import os
import re
import resource
import shlex
import shutil
import signal
import subprocess
import time
from dataclasses import dataclass, field
from pathlib import Path

QUICK = "-O0"           # how mutants are compiled that are to run
THOROUGH = "-O1"        # and how they are compiled to see whether they make any difference
OBJECTS = "source/CMakeFiles/krvstats_objects.dir/"     # other targets may compile the same sources their own way
LEFT_OUT = re.compile(r"^(-O.*|-g.*|-W(?!l,).*|-D_FORTIFY_SOURCE=.*|-f(stack-|cf-).*|-DNDEBUG)$")
# When a test hangs. Time that goes by says little on a busy machine: what counts is that nothing runs, or runs too long.
LONGEST_QUIET = 8       # seconds in which no thread of a test and of what it started got any work done
LONGEST_RUN = 5         # seconds of the processor,
RUN_FACTOR = 8          # and so many times what the program takes with the library as it is
LONGEST_LIFE = 180      # seconds of a whole program
LONGEST_CASES = 40      # and of some of its cases
WAITING_COSTS = 0.05    # of what the same time of the processor costs, when it is chosen what to ask first
FAILED = re.compile(r"^\[  FAILED  \] ([\w/]+\.[\w/]+)", re.MULTILINE)
RUNS = re.compile(r"^\[ RUN      \] ([\w/]+\.[\w/]+)", re.MULTILINE)
MOST_OUTPUT = 200_000


class Trouble(Exception):
    """The run cannot go on."""


@dataclass
class Program:
    name: str
    path: Path
    isStatic: bool
    digest: str = ""
    cost: float | None = None           # when it passes, once that was seen
    isSound: bool = False               # was seen to pass with the library as it is
    cases: list[str] = field(default_factory=list)  # each wants a process of its own; empty: one for all is enough


@dataclass
class Verdict:
    passed: bool
    case: str = ""      # the case that failed, if one can be told
    cost: float = 0.0
    hung: bool = False


@dataclass
class Build:
    """What is taken from the build: compiler commands, test programs, gateway."""

    folder: Path
    source: Path                                            # the library's folder, source/
    modules: list[str] = field(default_factory=list)        # file names in source/c
    commands: dict[str, list[str]] = field(default_factory=dict)
    programs: list[Program] = field(default_factory=list)

    @staticmethod
    def read(folder, source):
        build = Build(folder.resolve(), source.resolve())
        database = build.folder / "compile_commands.json"
        if not database.exists():
            raise Trouble(f"{build.folder} holds no build")
        for entry in json.loads(database.read_text()):
            file = Path(entry["file"])
            if file.parent != build.source / "c":
                continue
            words = shlex.split(entry["command"])
            if not words[words.index("-o") + 1].startswith(OBJECTS):
                continue
            kept = [word for word in words[1:] if not LEFT_OUT.match(word)]
            kept = kept[: kept.index("-o")]
            kept = [word for word in kept if not word.startswith("-I")]
            if words[0].endswith("ccache"):
                words = words[1:]
            build.commands[file.name] = [words[0], *kept, "-w"]
            build.modules.append(file.name)
        build.modules.sort()
        for path in sorted((build.folder / "tests").iterdir()):
            if re.match(r"^(unit|session|tools)_\w+_test$", path.name) and os.access(path, os.X_OK):
                build.programs.append(Program(path.name, path, path.name.endswith("_static_test")))
        if not build.modules or not build.programs:
            raise Trouble(f"{build.folder} holds no library or no tests of it; build it first")
        return build


def workDone(session):
    """Nanoseconds that the threads of a session have run."""
    total = 0
    for stat in Path("/proc").glob("[0-9]*/stat"):
        try:
            if int(stat.read_text().rpartition(")")[2].split()[3]) == session:
                total += sum(int(task.read_text().split()[0]) for task in stat.parent.glob("task/*/schedstat"))
        except (OSError, IndexError):
            pass  # it ended meanwhile
    return total


@dataclass
class Ending:
    code: int
    hung: bool
    seconds: float      # of the processor, with what it started and waited for


sessions = set()  # of tests that run


def endSession(leader):
    sessions.discard(leader)
    try:
        os.killpg(leader, signal.SIGKILL)
    except ProcessLookupError:
        pass


def endSessions():
    for leader in list(sessions):
        endSession(leader)


def waitFor(process, longest):
    """Waits for a process that leads a session, and ends the session."""
    sessions.add(process.pid)
    begin = time.monotonic()
    quietSince = begin
    looked = begin
    done = -1
    hung = False
    pause = 0.002
    while True:
        pid, status, usage = os.wait4(process.pid, 0 if hung else os.WNOHANG)
        if pid:
            process.returncode = os.waitstatus_to_exitcode(status)
            endSession(process.pid)
            return Ending(process.returncode, hung, usage.ru_utime + usage.ru_stime)
        time.sleep(pause)
        pause = min(0.05, pause * 1.3)
        now = time.monotonic()
        if now < looked + 1:
            continue
        looked = now
        work = workDone(process.pid)
        if work != done:
            done = work
            quietSince = now
        if now > quietSince + LONGEST_QUIET or now > begin + longest:
            hung = True
            endSession(process.pid)


def keepPrograms(build, folder):
    """Goes on with the test programs as they are now, should they be built anew meanwhile."""
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    for program in build.programs:
        kept = folder / program.name
        try:
            os.link(program.path, kept)
        except OSError:
            shutil.copy2(program.path, kept)
        program.path = kept


class Job:
    """A place of its own for one mutant after the other."""

    def __init__(self, build, folder, source, like=None):
        """A job on a copy of `source`; what another one has compiled already is taken from there."""
        self.build = build
        self.folder = folder
        self.source = folder / "source"
        self.objects = folder / "objects"
        self.library = folder / "lib" / "libkrvstats.so.1"
        self.scratch = folder / "scratch"
        shutil.rmtree(folder, ignore_errors=True)
        for place in (self.library.parent, self.scratch):
            place.mkdir(parents=True)
        shutil.copytree(source, self.source)
        self.includes = dict(like.includes) if like else {}
        if like:
            shutil.copytree(like.objects, self.objects)
        else:
            self.objects.mkdir()
            self.compileAll()
        self.plantNothing()

    def compileAll(self):
        for module in self.build.modules:
            for level in (QUICK, THOROUGH):
                if not self.compile(module, level, self.original(module, level)):
                    raise Trouble(f"{module} does not compile as it is")

    def original(self, module, level):
        return self.objects / f"{module}{level}.o"

    def compile(self, module, level, target):
        command = [*self.build.commands[module], level, f"-I{self.source / 'h'}",
                   "-MMD", "-MF", str(self.folder / "includes"),
                   "-o", str(target), "-c", str(self.source / "c" / module)]
        done = subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=120)
        if done.returncode == 0 and module not in self.includes:
            self.includes[module] = (self.folder / "includes").read_text()
        return done.returncode == 0

    def objectsWith(self, changed):
        return [changed.get(module, self.original(module, QUICK)) for module in self.build.modules]

    def link(self, objects):
        machine = [word for word in self.build.commands[self.build.modules[0]] if word.startswith("-m")]
        # A program must not read the library half written, and one that hangs must not keep it busy.
        fresh = self.library.with_suffix(".new")
        subprocess.run(
            ["cc", *machine, "-shared", "-o", str(fresh), *map(str, objects), "-Wl,-soname,libkrvstats.so.1",
             f"-Wl,--version-script={self.source / 'krvstats.map'}", "-Wl,-Bsymbolic-functions"],
            check=True)
        fresh.replace(self.library)

    def affected(self, unit):
        if unit in self.build.modules:
            return [unit]
        return [module for module in self.build.modules if f"/{unit}" in self.includes[module]]

    def objectsOf(self, mutant, original, level):
        """The objects that a mutant changes, or None if it does not compile."""
        file = self.source / ("c" if mutant.unit.endswith(".cpp") else "h") / mutant.unit
        file.write_text(mutant.apply(original))
        changed = {}
        try:
            for module in self.affected(mutant.unit):
                target = self.folder / f"{module}.o"
                if not self.compile(module, level, target):
                    return None
                if not filecmp.cmp(target, self.original(module, level), shallow=False):
                    changed[module] = target
        finally:
            file.write_text(original)
        return changed

    def plant(self, mutant, original):
        """Makes the library of a mutant: None, or why there is nothing to judge."""
        self.unit = mutant.unit
        changed = self.objectsOf(mutant, original, QUICK)
        if changed is None:
            return "uncompilable"
        if not changed:
            return "same"
        self.planted = self.objectsWith(changed)
        self.link(self.planted)
        return None

    def makesNoDifference(self, mutant, original):
        """True if an optimising compiler makes the same of the mutant as of the original. Ends what was planted."""
        return not self.objectsOf(mutant, original, THOROUGH)

    def plantNothing(self):
        self.planted = self.objectsWith({})
        self.link(self.planted)

    def pathOf(self, program):
        if not program.isStatic:
            return program.path
        archive = self.folder / "libkrvstats.a"
        archive.unlink(missing_ok=True)
        subprocess.run(["ar", "qc", str(archive), *map(str, self.planted)], check=True)
        own = self.folder / program.name
        commands = subprocess.run(["ninja", "-C", str(self.build.folder), "-t", "commands", f"tests/{program.name}"],
                                  check=True, capture_output=True, text=True).stdout.splitlines()
        link = next(line for line in reversed(commands) if f"-o tests/{program.name}" in line)
        link = link.replace(f"-o tests/{program.name}", f"-o {shlex.quote(str(own))}")
        link = link.replace(" lib/libkrvstats.a", f" {shlex.quote(str(archive))}")
        done = subprocess.run(link, shell=True, cwd=self.build.folder, capture_output=True, text=True)
        if done.returncode != 0:
            raise Trouble(f"{program.name} cannot be linked:\n{done.stderr}")
        return own

    def run(self, program, cases=()):
        """Lets a program judge the planted library: all of it, or some of its cases."""
        path = self.pathOf(program)
        if not program.cases:
            return self.runOnce(program, path, cases)
        cost = 0.0
        for case in cases or program.cases:
            verdict = self.runOnce(program, path, [case])
            cost += verdict.cost
            if not verdict.passed:
                return verdict
        return Verdict(True, cost=cost)

    def environment(self):
        return dict(
            os.environ,
            LD_LIBRARY_PATH=str(self.library.parent),
            KRVSTATS_GATEWAY_PROGRAM=str(self.build.folder / "bin" / "krvgwsim"),
            TMPDIR=str(self.scratch),
        )

    def casesOf(self, program):
        listing = subprocess.run([str(self.pathOf(program)), "--gtest_list_tests"], env=self.environment(), check=True,
                                 capture_output=True, text=True)
        cases = []
        for line in listing.stdout.splitlines():
            name = line.partition("#")[0].rstrip()
            if not name.startswith(" "):
                suite = name
            elif suite.endswith("."):
                cases.append(suite + name.strip())
        return cases

    def measure(self, program):
        """Sees that a program passes with the library as it is, and how long that takes."""
        planted = self.planted
        self.plantNothing()
        for _ in range(3):
            program.cases = []
            verdict = self.run(program)
            if not verdict.passed:
                program.cases = self.casesOf(program)
                verdict = self.run(program)
            if verdict.passed:
                break
        if not verdict.passed:
            raise Trouble(f"{program.name} fails without any change: {verdict.case}")
        program.cost = verdict.cost
        program.isSound = True
        self.planted = planted
        self.link(planted)

    def runOnce(self, program, path, cases):
        shutil.rmtree(self.scratch, ignore_errors=True)
        self.scratch.mkdir()
        command = [str(path), "--gtest_fail_fast=1", "--gtest_color=no"]
        if cases:
            command.append("--gtest_filter=" + ":".join(cases))
        output = self.folder / "output"
        begin = time.monotonic()
        with output.open("wb") as sink:
            process = subprocess.Popen(command, cwd=self.scratch, env=self.environment(), stdin=subprocess.DEVNULL,
                                       stdout=sink, stderr=subprocess.STDOUT, start_new_session=True)
            longest = int(LONGEST_RUN + RUN_FACTOR * (program.cost or 1))
            resource.prlimit(process.pid, resource.RLIMIT_CPU, (longest, longest))
            ending = waitFor(process, LONGEST_CASES if cases else LONGEST_LIFE)
        cost = ending.seconds + WAITING_COSTS * (time.monotonic() - begin)
        if ending.code == 0 and not ending.hung:
            return Verdict(True, cost=cost)
        with output.open("rb") as source:
            source.seek(max(0, output.stat().st_size - MOST_OUTPUT))
            text = source.read().decode(errors="replace")
        named = FAILED.findall(text) or RUNS.findall(text)[-1:]
        return Verdict(False, named[0] if named else "", cost, ending.hung)
