"""The list of changes that make no difference.

An entry is a paragraph: where ("in:" file and function), the source line, one or more changes of it, and the reason.
Lines are named by their text, so that an entry outlives changes above it.
"""

from pathlib import Path

FIELDS = ("in", "line", "change", "reason")


def readEquivalents(file: Path):
    """The key of every listed mutant, with its reason."""
    listed = {}
    for number, paragraph in enumerate(file.read_text().split("\n\n"), 1):
        fields = []
        for line in paragraph.splitlines():
            if line.startswith("#") or not line.strip():
                continue
            name, _, value = line.partition(": ")
            if name in FIELDS or line.endswith(":") and name.rstrip(":") in FIELDS:
                fields.append([name.rstrip(":"), value.strip()])
            elif fields and line.startswith(" "):
                fields[-1][1] += " " + line.strip()
            else:
                raise ValueError(f"{file}: paragraph {number}: {line}")
        if not fields:
            continue
        values = {name: [value for one, value in fields if one == name] for name in FIELDS}
        if len(values["in"]) != 1 or len(values["line"]) != 1 or not values["change"] or len(values["reason"]) != 1:
            raise ValueError(f"{file}: paragraph {number} is no entry: {paragraph}")
        unit, _, function = values["in"][0].partition(" ")
        for change in values["change"]:
            key = (unit, function, values["line"][0], change)
            if key in listed:
                raise ValueError(f"{file}: twice: {key}")
            listed[key] = values["reason"][0]
    return listed
