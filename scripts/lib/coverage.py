"""Tells what the tests reach of src/, from the counts of the last run of scripts/coverage.

    coverage.py BUILD                 branches and lines a folder; status 1 if a folder is below its bound
    coverage.py BUILD --show FOLDER   each branch of a folder that was not reached, as FILE:LINE:COLUMN
"""

import json
import subprocess
import sys
from collections import defaultdict
from pathlib import Path

import figures

SOURCE = Path(__file__).resolve().parents[2] / "src"

# Percent of the branches.
BOUNDS = {
    "convert": 90,
    "defaults": 90,
    "infoserver": 90,
    "nameserver": 80,
    "platform/plist": 90,
    "platform/server": 80,
    "platform/wire": 90,
    "registry": 90,
}


def programs(build):
    """The instrumented programs: whatever can be started of the build's own."""
    for folder in ("bin", "tests", "tests/programs"):
        for file in sorted((build / folder).glob("*")):
            if file.is_file() and file.suffix == "" and file.stat().st_mode & 0o100:
                yield file


def exported(build):
    """What llvm-cov knows of all programs, with the counts of all of their processes."""
    counts = build / "profiles.profdata"
    raw = sorted(str(file) for file in (build / "profiles").glob("*.profraw"))
    if not raw:
        sys.exit("coverage: nothing was counted yet; run scripts/coverage first")
    subprocess.run(["llvm-profdata", "merge", "-sparse", "-o", counts, *raw], check=True)
    first, *others = programs(build)
    words = ["llvm-cov", "export", f"-instr-profile={counts}", first]
    for program in others:
        words += ["-object", program]
    out = subprocess.run(words, check=True, stdout=subprocess.PIPE).stdout
    return json.loads(out)["data"][0]


def inside(name):
    """The path of a source file below src/, or None for a file elsewhere."""
    path = Path(name)
    return path.relative_to(SOURCE) if path.is_relative_to(SOURCE) else None


def branches_of(data):
    """By file, by place: how often the condition was true and false. Instantiations of a template add up."""
    found = defaultdict(lambda: defaultdict(lambda: [0, 0]))
    for function in data["functions"]:
        for line, column, end_line, end_column, true, false, file, *_ in function["branches"]:
            path = inside(function["filenames"][file])
            if path is not None:
                counts = found[path][line, column, end_line, end_column]
                counts[0] += true
                counts[1] += false
    return found


def lines_of(data):
    """By file: the lines that hold code, and those that were reached."""
    found = {}
    for file in data["files"]:
        path = inside(file["filename"])
        if path is not None:
            lines = file["summary"]["lines"]
            found[path] = (lines["count"], lines["covered"])
    return found


def percent(part, whole):
    return 100.0 if whole == 0 else 100.0 * part / whole


def report(data):
    branches, lines = branches_of(data), lines_of(data)
    table = []
    below = []
    print(f"{'folder':<28} {'branches':>17} {'bound':>6} {'lines':>17}")
    for folder in sorted({str(path.parent) for path in lines}):
        counts = [each for path in branches if str(path.parent) == folder for each in branches[path].values()]
        sides, reached = 2 * len(counts), sum(side > 0 for each in counts for side in each)
        files = [lines[path] for path in lines if str(path.parent) == folder]
        code, run = sum(each[0] for each in files), sum(each[1] for each in files)
        bound = BOUNDS.get(folder)
        share = percent(reached, sides)
        print(f"{folder:<28} {share:6.1f} % of {sides:5} {bound if bound else '':>6} "
              f"{percent(run, code):6.1f} % of {code:5}")
        name = "main.cpp" if folder == "." else f"{folder}/"
        table.append((f"branches reached in `{name}`", f"{share:.1f} % of {sides}"))
        if bound is not None and share < bound:
            below.append(f"{folder} ({share:.1f} of {bound} percent)")
    figures.write("coverage", table)
    missing = sorted(set(BOUNDS) - {str(path.parent) for path in lines})
    if missing:
        sys.exit(f"coverage: no such folder: {', '.join(missing)}")
    if below:
        sys.exit(f"coverage: below the bound: {', '.join(below)}")


def show(data, folder):
    known = {str(path.parent) for path in lines_of(data)}
    if folder not in known:
        sys.exit(f"coverage: '{folder}' is none of: {' '.join(sorted(known))}")
    for path, places in sorted(branches_of(data).items()):
        if str(path.parent) != folder:
            continue
        text = (SOURCE / path).read_text().splitlines()
        for (line, column, end_line, end_column), (true, false) in sorted(places.items()):
            if true and false:
                continue
            what = "never true" if false else "never false" if true else "never reached"
            end = end_column - 1 if end_line == line else None
            print(f"src/{path}:{line}:{column}: {what}: {text[line - 1][column - 1:end]}")


def main():
    build = Path(sys.argv[1])
    data = exported(build)
    if sys.argv[2:3] == ["--show"]:
        show(data, sys.argv[3].rstrip("/"))
    else:
        report(data)


if __name__ == "__main__":
    main()
