"""The table of docs/testing.md.

    test_figures.py              prints it
    test_figures.py --write      replaces the one in the document
"""

import re
import subprocess
import sys
from datetime import date, datetime, timezone
from pathlib import Path

import figures

PROJECT = Path(__file__).resolve().parents[2]
DOCUMENT = PROJECT / "docs" / "testing.md"
BEGIN, END = "<!-- figures -->\n", "<!-- end of figures -->\n"


def lines_of(*folders):
    """The lines that are not empty, of all C++ and Python files."""
    count = 0
    for folder in folders:
        for file in (PROJECT / folder).rglob("*"):
            if file.suffix in (".cpp", ".h", ".inc", ".py"):
                count += sum(bool(line.strip()) for line in file.read_text().splitlines())
    return f"{count:,}"


def number_of_tests():
    """Those of the plain build, or nothing where that is not built."""
    build = PROJECT / "build" / "debug"
    if not (build / "tests" / "registry_tests").exists():
        return None
    listed = subprocess.run(["ctest", "--test-dir", build, "--show-only"], stdout=subprocess.PIPE, text=True, check=True)
    total = re.search(r"Total Tests: (\d+)", listed.stdout)
    return f"{int(total[1]):,}"


def rows():
    today = date.today().isoformat()
    tests = number_of_tests()
    if tests:
        yield "tests of the plain build", tests, today
    yield "lines of code, in `src/` and `tools/`", lines_of("src", "tools"), today
    yield "lines of test, in `tests/` and `fuzz/`", lines_of("tests", "fuzz"), today
    for file in sorted(figures.FOLDER.glob("*")):
        day = datetime.fromtimestamp(file.stat().st_mtime, timezone.utc).date().isoformat()
        for line in file.read_text().splitlines():
            what, figure = line.split("\t")
            yield what, figure, day


def main():
    table = "| What | Figure | Day |\n|---|---|---|\n"
    table += "".join(f"| {what} | {figure} | {day} |\n" for what, figure, day in rows())
    if sys.argv[1:] != ["--write"]:
        print(table, end="")
        return
    text = DOCUMENT.read_text()
    before, begin, rest = text.partition(BEGIN)
    _, end, after = rest.partition(END)
    if not begin or not end:
        sys.exit(f"test-figures: {DOCUMENT} has no place for the figures")
    DOCUMENT.write_text(before + begin + "\n" + table + "\n" + end + after)


if __name__ == "__main__":
    main()
