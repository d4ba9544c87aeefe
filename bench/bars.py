"""What the library may cost: one row for each measure and kind of machine.

`bar` is the aim and `beyond` a further one; the table of ./scripts/bench shows both. `limit` is what the tests hold
(tests/cost): the bar where it is met, else what is there now, so that it does not get worse. Times have no limit: they
depend on what else the machine does.
"""

from dataclasses import dataclass

EVERY = ("x86_64", "i386")
KIB = 1024


@dataclass(frozen=True)
class Bar:
    bar: float | None = None      # None: reported only
    beyond: float | None = None
    limit: float | None = None    # None: not a test
    atLeast: bool = False         # the figure has to reach the bar, else to stay below


def each(bar):
    return {machine: bar for machine in EVERY}


# Counted: the same in every run.
COUNTED = {
    "parse-instructions": {
        "x86_64": Bar(60, 46, limit=60),
        "i386": Bar(80, 62, limit=80),
    },
    "parse-instructions-random": each(Bar()),
    "parse-instructions-ids": {
        "x86_64": Bar(limit=40),
        "i386": Bar(limit=50),
    },
    "step-instructions": {
        "x86_64": Bar(65, 48, limit=65),
        "i386": Bar(85, 62, limit=85),
    },
    "step-calls": each(Bar(0, 0, limit=0)),
    "query-calls": each(Bar(12, limit=12)),
    "query-calls-ignoring-sigpipe": each(Bar(12, 10, limit=10)),
    "query-allocations": each(Bar(0, limit=0)),
    "trace-points-10": each(Bar()),
    "trace-points-100": each(Bar(1.05, 1.02, limit=1.05)),
    "trace-points-1000": each(Bar(1.05, 1.02, limit=1.05)),
    "library-size": {
        "x86_64": Bar(96 * KIB, 72 * KIB, limit=120 * KIB),
        "i386": Bar(96 * KIB, 72 * KIB, limit=123 * KIB),
    },
}

# Timed, on x86-64: ratios to a floor of the same run, but for the rate. For peers: our time over theirs.
TIMED = {
    "query/100": Bar(1.12, 1.10),
    "query/1000": Bar(1.20, 1.15),
    "query/5000": Bar(1.45, 1.25),
    "parse/1000000": Bar(3.0, 1.15),
    "parse-rate/1000": Bar(7.5, 18, atLeast=True),   # GB of reply a second
    "parse-random": Bar(1.3),                        # over a loop that does not guess
    "growth": Bar(1.15, 1.05),
    "hiredis_hgetall/1000": Bar(1 / 6, 1 / 7),
    "hiredis_hgetall/5000": Bar(1 / 14, 1 / 20),
    "hiredis_hgetall/100000": Bar(1 / 30, 1 / 45),
}


def judge(figure, bound, atLeast=False):
    """Whether a figure keeps a bound. One that could not be taken keeps none."""
    if figure is None:
        return False
    return figure >= bound if atLeast else figure <= bound
