"""Takes figures of a build and fails where one does not keep its limit.

gate.py --machine M --programs FOLDER --library FILE --strip PROGRAM MEASURE...
"""

import argparse
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "bench"))

from bars import COUNTED, judge
from counts import MEASURES, Built, Trouble


def optionsFrom(arguments):
    parser = argparse.ArgumentParser(prog="gate", description=__doc__.splitlines()[0])
    parser.add_argument("--machine", required=True)
    parser.add_argument("--programs", type=Path, required=True)
    parser.add_argument("--library", type=Path, required=True)
    parser.add_argument("--strip", default="strip")
    parser.add_argument("--limit", type=float, help="instead of the one that is written down, to see a gate close")
    parser.add_argument("measures", nargs="+", metavar="MEASURE")
    return parser.parse_args(arguments)


def verdict(name, figure, bar, limit):
    """A line, and whether the gate is open."""
    isKept = judge(figure, limit, bar.atLeast)
    text = MEASURES[name].form.format
    line = f"{MEASURES[name].what}: {text(figure)}, limit {text(limit)}"
    if bar.bar is not None and bar.bar != limit:
        line += f", bar {text(bar.bar)} {'met' if judge(figure, bar.bar, bar.atLeast) else 'not met'}"
    return line + ("" if isKept else ": TOO MUCH"), isKept


def main(arguments):
    options = optionsFrom(arguments)
    built = Built(options.machine, options.programs, options.library, options.strip)
    areKept = []
    for name in options.measures:
        bar = COUNTED[name][built.machine]
        limit = bar.limit if options.limit is None else options.limit
        if limit is None:
            sys.exit(f"gate: {name} has no limit on {built.machine}")
        try:
            line, isKept = verdict(name, MEASURES[name].take(built), bar, limit)
        except Trouble as trouble:
            line, isKept = f"{name}: {trouble}", False
        print(line)
        areKept.append(isKept)
    return 0 if all(areKept) else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
