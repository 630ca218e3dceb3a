"""Makes mutants of C++ source: the same file with one small mistake in it.

Works on the text, a line at a time, with comments and the insides of literals left alone. A mutant that does not compile
is found out when it is built.
"""

import os
import re
from dataclasses import dataclass

# By operator, as it stands in the code between blanks: what it is replaced by.
RELATIONS = {
    "==": ["!="],
    "!=": ["=="],
    "<": ["<=", ">="],
    "<=": ["<", ">"],
    ">": [">=", "<="],
    ">=": [">", "<"],
}
LOGIC = {"&&": ["||"], "||": ["&&"]}
ARITHMETIC = {
    "+": ["-"],
    "-": ["+"],
    "*": ["+"],
    "/": ["*"],
    "%": ["+"],
    "+=": ["-="],
    "-=": ["+="],
    "|=": ["&="],
    "&=": ["|="],
    "^=": ["|="],
    "<<": [">>"],
    ">>": ["<<"],
    "|": ["&"],
    "&": ["|"],
    "^": ["|"],
}
BETWEEN_BLANKS = {**RELATIONS, **LOGIC, **ARITHMETIC}

NUMBER = re.compile(r"(?<![\w.'])(0x[0-9a-fA-F']+|\d[\d']*)([uUlL]*)(?![\w.'])")
STEP = re.compile(r"\+\+|--")
WORD = re.compile(r"\b(true|false|nullptr)\b")
CONDITION = re.compile(r"\b(if|while) \((?!const\b|auto\b)")
TERNARY = re.compile(r" = (?P<condition>[^=?]+?) \? | return (?P<returned>[^?]+?) \? ")
RETURN = re.compile(r"return (?!true;|false;)(?P<value>[^;{}]+);")
STATEMENT = re.compile(r"^\s*(?P<statement>[\w:*>.\[\]()&+-][^{}]*;)\s*$")
# What begins a line that is no statement, or one whose removal says nothing.
NO_STATEMENT = re.compile(
    r"(return\b|using\b|namespace\b|const\b|auto\b|static\b|constexpr\b|inline\b|template\b|typename\b|struct\b|"
    r"class\b|enum\b|friend\b|explicit\b|virtual\b|extern\b|std::\w+ \w+[;={(]|std::\w+<|\[\[|#|public:|private:|case\b|"
    r"break;|default\b|static_assert|mutable\b|thread_local\b|constinit\b|[\w:<>*& ]+ [\w:]+\([^)]*\)( const)?;|"
    r".*= (default|delete);|.* : \d+ = |[A-Za-z_][\w:<>,]*[*&]? (const )?\w+( = [^;]*|\{[^;]*\}|)?;|\)|:|\?|&&|\|\|)"
)


@dataclass(frozen=True)
class Mutant:
    """One line of a file, before and after. `what` names the kind of the mistake."""

    file: str  # below the project's folder
    number: int  # of the line, from 0
    before: str
    after: str
    what: str

    def key(self):
        return self.file, self.before.strip(), self.after.strip()

    def __str__(self):
        return f"{self.file}:{self.number + 1}: {self.what}\n  - {self.before.strip()}\n  + {self.after.strip()}"


def code_only(lines):
    """The same lines with blanks in place of comments and of what stands inside literals."""
    for line in lines:
        shown = list(line)
        quote = None
        at = 0
        while at < len(line):
            here = line[at]
            if quote:
                if here == "\\":
                    shown[at : at + 2] = "  "[: len(line) - at]
                    at += 2
                    continue
                if here == quote:
                    quote = None
                else:
                    shown[at] = " "
            elif here == '"' or (here == "'" and not (at and line[at - 1].isalnum())):
                quote = here
            elif line.startswith("//", at):
                shown[at:] = " " * (len(line) - at)
                break
            at += 1
        yield "".join(shown)


def closing(text, begin):
    """The place of the parenthesis that closes the one at `begin`, or -1 when that is on another line."""
    depth = 0
    for at in range(begin, len(text)):
        depth += {"(": 1, ")": -1}.get(text[at], 0)
        if depth == 0:
            return at
    return -1


def is_one_relation(condition):
    """Whether a condition is a single comparison: its opposite is among the mistakes in relations."""
    found = re.findall(r" ([=!]=|[<>]=?|&&|\|\||\?) ", condition)
    return len(found) == 1 and found[0] in RELATIONS


def opens_statement(code, number):
    """Whether a statement begins on this line, so that all of it stands there if it ends there."""
    for before in range(number - 1, -1, -1):
        text = code[before].strip()
        if text:
            return text.endswith((";", "{", "}", ":", "else")) or text.startswith("#")
    return True


def of_line(line, code):
    """Pairs of another text for the line and the kind of the mistake."""
    for match in re.finditer(r"(?<= )([=!<>+\-*/%|&^]{1,2})(?= )", code):
        for other in BETWEEN_BLANKS.get(match[1], []):
            if match[1] in "*&" and re.search(r"\b(auto|const|char)\s?$", code[: match.start()]):
                continue
            what = "relation" if match[1] in RELATIONS else "logic" if match[1] in LOGIC else "arithmetic"
            yield line[: match.start()] + other + line[match.end() :], what
    for match in STEP.finditer(code):
        yield line[: match.start()] + ("--" if match[0] == "++" else "++") + line[match.end() :], "step"
    for match in WORD.finditer(code):
        other = {"true": "false", "false": "true"}.get(match[0])
        if other:
            yield line[: match.start()] + other + line[match.end() :], "constant"
    for match in NUMBER.finditer(code):
        value = int(match[1].replace("'", ""), 0)
        for other in (value + 1, value - 1) if value > 0 else (1,):
            yield line[: match.start()] + str(other) + match[2] + line[match.end() :], "constant"
    for match in CONDITION.finditer(code):
        end = closing(code, match.end() - 1)
        inner = code[match.end() : end]
        if end > 0 and ";" not in inner and not re.search(r"[^=!<>]=[^=]", inner) and not is_one_relation(inner):
            yield line[: match.end()] + "!(" + line[match.end() : end] + ")" + line[end:], "condition"
    for match in TERNARY.finditer(code):
        name = "condition" if match["condition"] else "returned"
        if is_one_relation(match[name]):
            continue
        begin, end = match.span(name)
        yield line[:begin] + "!(" + line[begin:end] + ")" + line[end:], "condition"


def of_returns(lines, code):
    """Functions of one line that return a condition: the opposite."""
    for number, text in enumerate(code):
        match = RETURN.search(text)
        if match and re.search(r"==|!=|&&|\|\||<=|>=| < | > |^!", match["value"]) and "?" not in match["value"]:
            begin, end = match.span("value")
            line = lines[number]
            yield number, line[:begin] + "!(" + line[begin:end] + ")" + line[end:], "returned"


def of_statements(lines, code):
    """Statements of one line that are left out."""
    for number, text in enumerate(code):
        match = STATEMENT.match(text)
        if match and not NO_STATEMENT.match(text.strip()) and opens_statement(code, number):
            if text.count("(") == text.count(")") and not text.strip().startswith(("//", "}")):
                begin = match.start("statement")
                yield number, lines[number][:begin] + ";", "statement left out"


def mutants_of(name, source):
    """All mutants of a file, in the order of its lines, each text once."""
    lines = source.splitlines()
    code = list(code_only(lines))
    found = []
    for number, (line, text) in enumerate(zip(lines, code, strict=True)):
        if re.match(r"\s*(#|static_assert|template|using |namespace|\[\[nodiscard\]\] inline constexpr)", text):
            continue
        found += [(number, after, what) for after, what in of_line(line, text)]
    found += of_returns(lines, code)
    found += of_statements(lines, code)
    mutants = {}
    for number, after, what in sorted(found, key=lambda each: each[0]):
        if after != lines[number]:
            mutants.setdefault((number, after), Mutant(name, number, lines[number], after, what))
    return list(mutants.values())


def parts_of(line, code, number, lines_of_code):
    """What can be exchanged while the program runs: begin and end in the line, and the kind of what stands there (a
    value, a condition or statements)."""
    if "constexpr" in code or "constinit" in code:
        return
    loop = re.search(r"\bfor \(", code)
    if loop:
        end = closing(code, loop.end() - 1)
        marks = [at for at in range(loop.end(), max(end, 0)) if code[at] == ";"]
        if len(marks) == 2:
            first = code.find(" = ", loop.end(), marks[0])
            if first > 0:
                yield first + 3, marks[0], "value"
            yield marks[0] + 2, marks[1], "condition"
            yield marks[1] + 2, end, "value"
        return
    for match in re.finditer(r"\b(if|while) \(", code):
        end = closing(code, match.end() - 1)
        inner = code[match.end() : max(end, 0)]
        if inner.count(";") == 1:
            yield match.end() + inner.index(";") + 2, end, "condition"
        elif end > 0 and ";" not in inner and not re.match(r"(const|auto)\b", inner):
            yield match.end(), end, "condition"
    for match in re.finditer(r"\breturn [^;]+;", code):
        yield match.start(), match.end(), "statements"
    statement = not re.match(r"\s*[\w:]+ \w+\[", code) and STATEMENT.match(code)
    if statement and opens_statement(lines_of_code, number) and code.count("(") == code.count(")"):
        if not NO_STATEMENT.match(code.strip()) or re.match(r"return\b", code.strip()):
            yield statement.start("statement"), statement.end("statement"), "statements"
        elif " = " in code:
            yield code.index(" = ") + 3, code.rindex(";"), "value"


def switched(source, numbered):
    """The source with mutants in it that are switched on while the program runs. `numbered` has pairs of a number and a
    mutant. Returns the text and the set of those numbers that are in it: the other mutants do not fit in."""
    lines = source.splitlines()
    code = list(code_only(lines))
    inside = set()
    by_line = {}
    for number, mutant in numbered:
        by_line.setdefault(mutant.number, []).append((number, mutant))
    for at, mutants in by_line.items():
        line = lines[at]
        parts = list(parts_of(line, code[at], at, code))
        exchanged = {}
        for number, mutant in mutants:
            begin = len(os.path.commonprefix([line, mutant.after]))
            same = len(os.path.commonprefix([line[begin:][::-1], mutant.after[begin:][::-1]]))
            end = len(line) - same
            part = next((each for each in parts if each[0] <= begin and end <= each[1]), None)
            if part:
                text = mutant.after[part[0] : len(mutant.after) - (len(line) - part[1])]
                exchanged.setdefault(part, []).append((number, text))
                inside.add(number)
        for part in list(exchanged):
            if any(part != each and part[0] <= each[0] and each[1] <= part[1] for each in exchanged):
                inside.difference_update(number for number, _ in exchanged.pop(part))
        # From the right, so that the places of those further left stay the same.
        for begin, end, kind in sorted(exchanged, reverse=True):
            own = line[begin:end]
            others = exchanged[begin, end, kind]
            if kind == "statements":
                texts = [f"if (sorvane_mutant_is({number})) {{ {text} }} else" for number, text in others]
                whole = f"{{ {' '.join(texts)} {{ {own} }} }}"
            else:
                cast = "static_cast<bool>" if kind == "condition" else ""
                texts = [f"sorvane_mutant_is({number}) ? {cast}({text}) :" for number, text in others]
                whole = f"({' '.join(texts)} {cast}({own}))"
            line = line[:begin] + whole + line[end:]
        lines[at] = line
    return "\n".join(lines) + "\n", inside
