"""Which changes of a C++ source file the mutation run tries.

Reads the file as tokens, which is enough for the plain style of the library: what a change makes of the program is the
compiler's business, and a change that does not compile is passed over. Binary operators are told from the marks of
declarations and templates by the blanks on both of their sides.
"""

import re
from dataclasses import dataclass

TOKEN = re.compile(
    r"""
    (?P<blank>\s+)
  | (?P<comment>//[^\n]*|/\*.*?\*/)
  | (?P<directive>^[ \t]*\#(?:\\\n|[^\n])*)
  | (?P<text>"(?:\\.|[^"\\\n])*")
  | (?P<character>'(?:\\.|[^'\\\n])*')
  | (?P<number>(?:0[xX][0-9a-fA-F]+|[0-9]+)[uUlL]*)
  | (?P<word>[A-Za-z_]\w*)
  | (?P<mark><<=|>>=|\.\.\.|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|::|.)
    """,
    re.VERBOSE | re.DOTALL | re.MULTILINE,
)

# What a binary operator is changed to.
OPERATORS = {
    "<": ["<=", ">="],
    "<=": ["<", ">"],
    ">": [">=", "<="],
    ">=": [">", "<"],
    "==": ["!="],
    "!=": ["=="],
    "&&": ["||"],
    "||": ["&&"],
    "+": ["-"],
    "-": ["+"],
    "*": ["/"],
    "/": ["*"],
    "%": ["*"],
    "&": ["|"],
    "|": ["&"],
    "<<": [">>"],
    ">>": ["<<"],
    "+=": ["-="],
    "-=": ["+="],
    "|=": ["&="],
}
STEPS = {"++": "--", "--": "++"}
TRACE_KINDS = {
    "traceExc": "traceEvent",
    "traceEvent": "traceExc",
    "traceEntry": "traceExit",
    "traceExit": "traceEntry",
    "traceDebug": "traceEvent",
    "traceExcUnlocked": "traceExc",
    "traceEntryWithPreviousTimestamp": "traceEntry",
}
WORDS = {"true": "false", "false": "true"}
TRACE_CALL = re.compile(r"^trace(Exc|Event|Entry|Exit|Debug|Data)")
CONSTANT = re.compile(r"^[A-Z][A-Z0-9]*(_[A-Z0-9]+)*$")
NOT_CONSTANTS = {"FILE", "NULL", "TRACE_FORMAT", "KRVSTATS_VERSION_BANNER"}
TRACE_NUMBER = re.compile(r"^[123]\d\d\d -> ")
CONVERSION = re.compile(r"%(?:%|[-0-9.]*[a-zA-Z])|\\.")


@dataclass(frozen=True)
class Mutant:
    unit: str       # file name
    function: str   # the function or table it lies in, empty outside
    line: str       # the source line that it begins in, without the blanks around it
    change: str     # "what it was -> what it becomes" (or "nothing"), with "#n" for the n'th such change of such a line
    start: int
    end: int
    text: str       # stands in the place of [start, end)
    number: int     # of the line

    def key(self):
        return (self.unit, self.function, self.line, self.change)

    def isOfTheTrace(self):
        """A trace line's number, kind or words."""
        return self.change[0] == '"' or self.change.startswith("trace") or bool(TRACE_NUMBER.match(self.change))

    def apply(self, source):
        return source[: self.start] + self.text + source[self.end :]


@dataclass
class Token:
    kind: str
    text: str
    start: int
    end: int


def tokensOf(source):
    return [
        Token(match.lastgroup, match.group(), match.start(), match.end())
        for match in TOKEN.finditer(source)
        if match.lastgroup not in ("blank", "comment", "directive")
    ]


def matching(tokens, at):
    """The index of the mark that closes the one at `at`."""
    pairs = {"(": ")", "{": "}", "[": "]"}
    opening, closing = tokens[at].text, pairs[tokens[at].text]
    depth = 0
    for index in range(at, len(tokens)):
        if tokens[index].text == opening:
            depth += 1
        elif tokens[index].text == closing:
            depth -= 1
            if depth == 0:
                return index
    raise ValueError(f"nothing closes the {opening} at {tokens[at].start}")


def regionsOf(tokens):
    """(first, last, name, isFunction) of every function and every initialised object outside of functions."""
    regions = []
    at = 0
    begin = 0
    while at < len(tokens):
        text = tokens[at].text
        if text in (";", "}"):
            begin = at + 1
        elif text == "{":
            head = tokens[begin:at]
            texts = [token.text for token in head]
            if texts and (texts[0] == "namespace" or texts[:1] == ["extern"] and len(texts) == 2):
                begin = at + 1
                at += 1
                continue
            last = matching(tokens, at)
            if "=" in texts:
                regions.append((begin, last, nameOfObject(head), False))
            elif ")" in texts:
                regions.append((begin, last, nameOfFunction(head), True))
            elif texts and texts[0] in ("enum", "struct", "union", "typedef"):
                name = texts[1] if len(texts) > 1 and texts[1] != "{" else texts[0]
                regions.append((begin, last, name, False))
            at = last
            if at + 1 < len(tokens) and tokens[at + 1].text == ";":
                at += 1
            begin = at + 1
        elif text == "=":
            end = at
            while tokens[end].text != ";":
                end = matching(tokens, end) + 1 if tokens[end].text in "({[" else end + 1
            regions.append((begin, end, nameOfObject(tokens[begin:at]), False))
            at = end
            begin = at + 1
        at += 1
    return regions


def nameOfObject(head):
    """The word in front of its value, or of its length."""
    for before, token in zip(head, head[1:]):
        if token.text in ("=", "["):
            return before.text
    return head[-1].text


def nameOfFunction(head):
    """The word in front of the last list in parentheses that is no attribute's."""
    name = ""
    at = 0
    while at < len(head):
        if head[at].text == "(":
            before = head[at - 1].text if at else ""
            if not before.startswith("__attribute"):
                name = before
            at = matching(head, at)
        at += 1
    return name


def changedCharacter(text):
    inner = text[1:-1]
    if len(inner) == 1:
        return f"'{chr(ord(inner) + 1)}'" if inner.isalnum() else "'#'"
    return "'#'"


def changedText(text):
    """A text with one of its own characters changed, or None where there is none."""
    plain = CONVERSION.sub(lambda match: " " * len(match.group()), text[1:-1])
    letters = [index for index, character in enumerate(plain) if character.isalpha()]
    if letters:
        at = letters[len(letters) // 2] + 1
        return text[:at] + text[at].swapcase() + text[at + 1 :]
    marks = [index for index, character in enumerate(plain) if not character.isspace()]
    if marks:
        at = marks[0] + 1
        return text[:at] + "#" + text[at + 1 :]
    if text[1:-1].strip(" ") == "" and len(text) > 2:
        return '"#' + text[2:]
    return None


def changedNumber(text):
    suffix = text.rstrip("uUlL")
    value = int(suffix, 0)
    ending = text[len(suffix) :]
    changed = [value + 1] if value == 0 or value >= 1000 else [value + 1, value - 1]
    form = hex if suffix[:2] in ("0x", "0X") else str
    return [form(one) + ending for one in changed]


class Finder:
    def __init__(self, unit, source):
        self.unit = unit
        self.source = source
        self.tokens = tokensOf(source)
        self.found = []
        self.seen = {}

    def add(self, function, start, end, was, becomes):
        lineStart = self.source.rfind("\n", 0, start) + 1
        lineEnd = self.source.find("\n", start)
        line = self.source[lineStart:lineEnd].strip()
        change = f"{' '.join(was.split())} -> {becomes or 'nothing'}"
        number = self.source.count("\n", 0, start) + 1
        key = (function, line, change)
        nth = self.seen[key] = self.seen.get(key, 0) + 1
        if nth > 1:
            change += f" #{nth}"
        self.found.append(Mutant(self.unit, function, line, change, start, end, becomes, number))

    def isBinary(self, token):
        return self.source[token.start - 1] in " \n" and self.source[token.end] in " \n"

    def tokenChanges(self, function, first, last, isFunction):
        tokens = self.tokens
        at = first
        while at <= last:
            token = tokens[at]
            before = tokens[at - 1].text if at else ""
            after = tokens[at + 1].text if at + 1 < len(tokens) else ""
            if token.text in ("__attribute__", "static_assert", "extern") and after in ("(", '"C"'):
                at = matching(tokens, at + 1) + 1 if after == "(" else at + 2
                continue
            changes = []
            if token.kind == "number":
                changes = changedNumber(token.text)
            elif token.kind == "character":
                changes = [changedCharacter(token.text)]
            elif token.kind == "text":
                changed = changedText(token.text)
                changes = [changed] if changed else []
            elif token.kind == "word":
                if token.text in WORDS:
                    changes = [WORDS[token.text]]
                elif token.text in TRACE_KINDS and after == "(":
                    changes = [TRACE_KINDS[token.text]]
                elif token.text.startswith("KRVSTAT_"):
                    other = "KRVSTAT_NULL_BUFFER" if token.text == "KRVSTAT_OUT_OF_MEMORY" else "KRVSTAT_OUT_OF_MEMORY"
                    changes = [other] if token.text == "KRVSTAT_OK" else [other, "KRVSTAT_OK"]
                elif (
                    CONSTANT.match(token.text)
                    and len(token.text) > 1
                    and token.text not in NOT_CONSTANTS
                    and not token.text.startswith("__")
                    and after not in ("(", "=") and not after.isidentifier() and after not in ("*", "&", "::")
                    and before not in ("enum", "struct", "::")
                ):
                    changes = [f"({token.text} + 1)"]
            elif token.text in OPERATORS and self.isBinary(token):
                changes = OPERATORS[token.text]
            elif token.text in STEPS:
                changes = [STEPS[token.text]]
            elif token.text == "!" and isFunction:
                changes = [""]
            for becomes in changes:
                self.add(function, token.start, token.end, token.text, becomes)
            at += 1

    def statementChanges(self, function, first, last):
        """Statements left out, values returned as nothing, bare conditions turned round."""
        tokens = self.tokens
        at = first
        while at <= last:
            token = tokens[at]
            if token.text in ("if", "while") and tokens[at + 1].text == "(":
                close = matching(tokens, at + 1)
                inner = tokens[at + 2 : close]
                if inner and not any(one.text in OPERATORS or one.text == "!" for one in inner):
                    text = self.source[inner[0].start : inner[-1].end]
                    self.add(function, inner[0].start, inner[-1].end, text, f"!({text})")
            if self.beginsStatement(at):
                end = at
                while end <= last and tokens[end].text != ";":
                    end = matching(tokens, end) + 1 if tokens[end].text in "({[" else end + 1
                self.statementChange(function, at, end)
            at += 1

    def beginsStatement(self, at):
        before = self.tokens[at - 1].text
        if before in (";", "{", "}", "else", "do"):
            return True
        if before == ")":
            depth = 0
            for index in range(at - 1, -1, -1):
                if self.tokens[index].text == ")":
                    depth += 1
                elif self.tokens[index].text == "(":
                    depth -= 1
                    if depth == 0:
                        return self.tokens[index - 1].text in ("if", "while", "for")
        return False

    def statementChange(self, function, at, end):
        tokens = self.tokens
        if end >= len(tokens) or tokens[end].text != ";" or end == at:
            return
        first = tokens[at]
        becomes = None
        if first.text == "return" and end - at > 2:
            becomes = "return {}"
        elif first.text in ("return", "break", "continue") and end - at == 1:
            becomes = ""
        elif first.kind == "word" and not TRACE_CALL.match(first.text) and self.isExpression(at, end):
            becomes = ""
        elif first.text == "*" and self.isExpression(at + 1, end):
            becomes = ""
        if becomes is not None:
            start, stop = first.start, tokens[end - 1].end
            self.add(function, start, stop, self.source[start:stop], becomes)

    def isExpression(self, at, end):
        """A call or an assignment, and no declaration."""
        declares = ("const", "constexpr", "auto", "static", "struct", "using", "case", "default", "if", "while", "for",
                    "do", "switch", "else", "goto", "typedef", "extern", "public", "enum", "union")
        first, second = self.tokens[at], self.tokens[at + 1]
        if first.text in declares or second.kind == "word" or second.text in ("*", "&", "::", "<"):
            return False
        texts = [token.text for token in self.tokens[at:end]]
        return second.text == "(" or any(mark in texts for mark in ("=", "+=", "-=", "|=", "++", "--"))

    def all(self):
        for first, last, name, isFunction in regionsOf(self.tokens):
            self.tokenChanges(name, first, last, isFunction)
            if isFunction:
                body = next(index for index in range(first, last) if self.tokens[index].text == "{"
                            and self.tokens[index - 1].text in (")", "noexcept", "const"))
                self.statementChanges(name, body + 1, last - 1)
        self.found.sort(key=lambda mutant: (mutant.start, mutant.end, mutant.change))
        return self.found


def mutantsOf(unit, source):
    return Finder(unit, source).all()
