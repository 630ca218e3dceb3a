"""Builds the mutants of src/registry and src/platform/wire and looks which of them the tests notice.

    mutate.py [--sample N] [--seed S] [--jobs J] [--resume] [--closest] [--list] [FILE]...        see scripts/mutate

Most mutants fit into one build of all programs, in build/mutate/switched, where each is behind a switch: a variable of
the environment tells a program which one it has. Only the others are built one by one.

The tree is never changed: a mutant lies in a folder of its own, which the compiler searches first. Of a mutated source
file that one object is compiled, of a mutated header several of those that include it. They are linked before all
others with the objects of the unchanged tree, and the linker takes the inline functions that it meets first. What
survives with the objects of the header's own source and test is judged again with all that include it.

What became of each mutant is added to build/mutate/results.jsonl as soon as it is known: --resume reads that.
"""

import argparse
import hashlib
import json
import math
import os
import random
import re
import resource
import shlex
import shutil
import signal
import subprocess
import sys
import time
from collections import Counter, defaultdict
from concurrent.futures import ThreadPoolExecutor
from dataclasses import asdict
from pathlib import Path
from queue import Queue

import figures
from mutants import Mutant, mutants_of, switched

PROJECT = Path(__file__).resolve().parents[2]
BUILD = PROJECT / "build" / "mutate"
RESULTS = BUILD / "results.jsonl"
KEPT = PROJECT / "tests" / "mutants.txt"
LEAST_KILLED = 90  # percent
ENVIRONMENT = {**os.environ, "SORVANE_MODEL_STEPS": "50000", "SORVANE_MODEL_SEED": "1"}
SWITCH = "SORVANE_MUTANT"
# Fewer mutants than this are sooner built one by one.
LEAST_SWITCHED = 100
MEMORY = 4 << 30  # bytes that a test program may take: a mutant may ask for all there is
# With how many objects beside those of its own source and test --closest tries a mutated header.
CLOSEST = 2

# What takes half a second and more: it runs only if all else passes.
SLOW = "*WhateverIsDone*:PortTable.DoesNotGrow*:PortTable.KeepsSearches*:*OfAReply*:*ForAReply:*ToItsLastByte"
# By folder: the test programs that are closest, each with the tests to run, in their order. Those that the build does
# not have are left out.
PROGRAMS = {
    "src/registry": [
        ("registry_tests", f"-{SLOW}"),
        ("registry_tests", SLOW),
        ("model_tests", "RegistrySequence.*"),
        ("nameserver_tests", "*"),
    ],
    "src/platform/wire": [
        ("platform_tests", "*Frame*:*BadHeader*:ByteBuffer*:ReplyBuffer*:Message*:Wire*"),
        ("registry_tests", f"-{SLOW}"),
        ("platform_tests", "*Server*:*Unfinished*:*Untaken*:NetConnection*"),
    ],
}


def run(words, **options):
    return subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **options)


def require(words):
    return require_in(PROJECT, words)


def require_in(folder, words):
    done = run(words, cwd=folder)
    if done.returncode:
        sys.exit(f"mutate: {' '.join(map(str, words))}\n{done.stdout}")
    return done.stdout


class Tree:
    """The unchanged build: how each object is compiled and each program is linked."""

    def __init__(self, folders, jobs):
        self.launcher = ["ccache"] if shutil.which("ccache") else []
        launcher = [f"-DCMAKE_CXX_COMPILER_LAUNCHER={each}" for each in self.launcher]
        # Without what debuggers need: each mutant is compiled and linked sooner.
        options = ["-DSORVANE_BENCHMARKS=OFF", "-DCMAKE_CXX_FLAGS_DEBUG=", *launcher]
        require(["cmake", "--preset", "debug", "-B", BUILD, *options])
        targets = require(["ninja", "-C", BUILD, "-t", "targets", "all"])
        wanted = {name for folder in folders for name, _ in PROGRAMS[folder]}
        self.names = sorted(name for name in wanted if f"\ntests/{name}:" in targets)
        require(["ninja", "-C", BUILD, f"-j{jobs}", *self.names])
        self.compile = {}
        for entry in json.loads((BUILD / "compile_commands.json").read_text()):
            words = shlex.split(entry["command"])
            self.compile[words[words.index("-o") + 1]] = entry
        self.linker = next(([f"-fuse-ld={each}"] for each in ("lld", "gold") if shutil.which(f"ld.{each}")), [])
        self.link = {name: self.link_command(name) for name in self.names}
        self.users = self.users_of_headers()
        self.includers = self.includers_of_headers()

    def link_command(self, name):
        commands = require(["ninja", "-C", BUILD, "-t", "commands", "-s", f"tests/{name}"]).strip().splitlines()
        match = re.match(r": && (.*?) && :$", commands[-1])
        return shlex.split(match[1]) if match else sys.exit(f"mutate: how {name} is linked is not understood")

    def users_of_headers(self):
        """By header below src/: the objects that include it."""
        users = defaultdict(set)
        current = None
        for line in require(["ninja", "-C", BUILD, "-t", "deps"]).splitlines():
            if line and not line[0].isspace():
                current = line.split(": #deps")[0]
            elif line:
                path = os.path.normpath(BUILD / line.strip())
                if path.startswith(f"{PROJECT}/src/") and path.endswith(".h") and current in self.compile:
                    users[os.path.relpath(path, PROJECT)].add(current)
        return users

    def source_of(self, output):
        return os.path.relpath(self.compile[output]["file"], PROJECT)

    def objects_of(self, file):
        """All objects that change with a file, of the programs that try it."""
        if file.endswith(".cpp"):
            objects = [each for each in self.compile if self.source_of(each) == file]
        else:
            objects = self.users[file]
        names = {name for name, _ in self.programs_for(file)}
        return sorted(each for each in objects if any(self.belongs(each, name) for name in names))

    def closest_objects(self, file, most):
        """The object of a source file; of a header, those of its source file and its test, and so many others."""
        if file.endswith(".cpp"):
            return self.objects_of(file)
        stem = Path(file).stem
        steps = self.steps_to(file)

        def order(output):
            source = self.source_of(output)
            own = Path(source).stem in (stem, f"{stem}Test")
            near = os.path.dirname(source).partition("/")[2] == os.path.dirname(file).partition("/")[2]
            return not own, not near, steps.get(source, len(steps)), not source.startswith("src/"), output

        objects = sorted(self.objects_of(file), key=order)
        own = [each for each in objects if not order(each)[0]]
        return objects[: len(own) + most]

    def steps_to(self, file):
        """By file of the project: how many includes lead from it to this one at least."""
        steps, reached = {file: 0}, [file]
        for each in reached:
            for other in self.includers[os.path.relpath(each, "src")]:
                if other not in steps:
                    steps[other] = steps[each] + 1
                    reached.append(other)
        return steps

    def includers_of_headers(self):
        """By header as the project includes it: the files that do so."""
        includers = defaultdict(set)
        for file in [*PROJECT.glob("src/**/*.[hc]*"), *PROJECT.glob("tests/**/*.[hc]*")]:
            for name in re.findall(r'^#include "([^"]+)"', file.read_text(), re.MULTILINE):
                includers[name].add(str(file.relative_to(PROJECT)))
        return includers

    def belongs(self, output, name):
        """Whether a program is linked with an object, be it by way of a library."""
        return output in self.link[name] or self.archive_of(output) in self.link[name]

    @staticmethod
    def archive_of(output):
        """The library that has an object in it, if it belongs to one."""
        folder, target = re.match(r"(.*)/CMakeFiles/(\w+)\.dir/", output).groups()
        return f"{folder}/lib{target}.a"

    def programs_for(self, file):
        return [each for each in PROGRAMS[os.path.dirname(file)] if each[0] in self.names]


class Limits:
    """What a test program may take: several times of what it takes without a mutant, seconds."""

    def __init__(self, processor, wall):
        self.processor = math.ceil(2 + 3 * processor)
        self.wall = 60 + 10 * wall  # long: other work on the machine must kill no mutant

    def apply(self):
        resource.setrlimit(resource.RLIMIT_CPU, (self.processor, self.processor))
        resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def run_tests(program, chosen, limits, mutant=0):
    """Runs a test program in a process group of its own, with that mutant switched on. Returns "passed", "failed" or
    "too slow"."""
    words = [program, f"--gtest_filter={chosen}", "--gtest_fail_fast", "--gtest_brief=1"]
    with subprocess.Popen(words, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, stdin=subprocess.DEVNULL,
                          cwd=BUILD / "tests", env={**ENVIRONMENT, SWITCH: str(mutant)}, preexec_fn=limits.apply,
                          start_new_session=True) as process:
        try:
            status = process.wait(limits.wall)
            if status == 0:
                return "passed"
            return "too slow" if status in (-signal.SIGXCPU, -signal.SIGKILL) else "failed"
        except subprocess.TimeoutExpired:
            return "too slow"
        finally:
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass


class Place:
    """A folder in which one mutant at a time is built and tried."""

    def __init__(self, tree, number, limits, closest):
        self.tree, self.limits, self.closest = tree, limits, closest
        self.folder = BUILD / "mutants" / str(number)

    def compile(self, output, target):
        """Compiles an object of the mutant. Returns whether that worked."""
        entry = self.tree.compile[output]
        words = shlex.split(entry["command"])
        words[words.index("-o") + 1] = str(target)
        source = self.folder / os.path.relpath(entry["file"], PROJECT)
        words = [str(source) if each == entry["file"] and source.exists() else each for each in words]
        words.insert(1, f"-I{self.folder / 'src'}")
        return run(words, cwd=entry["directory"]).returncode == 0

    def judge_with(self, mutant, objects):
        made, linked = {}, set()
        for name, chosen in self.tree.programs_for(mutant.file):
            mine = [each for each in objects if self.tree.belongs(each, name)]
            if not mine:
                continue
            for output in mine:
                if output not in made:
                    made[output] = str(self.folder / f"{len(made)}.o")
                    if not self.compile(output, made[output]):
                        return "not compiled"
            words = [each for each in self.tree.link[name] if each not in mine]
            words[words.index("-o") + 1] = str(self.folder / name)
            words[1:1] = [made[each] for each in mine]
            if name not in linked:
                linked.add(name)
                link = run([*words, *self.tree.linker], cwd=BUILD)
                if link.returncode:
                    sys.exit(f"mutate: {mutant} cannot be linked\n{link.stdout}")
            result = run_tests(self.folder / name, chosen, self.limits[name, chosen])
            if result != "passed":
                return "killed" if result == "failed" else "killed by time"
        return "survived"

    def judge(self, mutant):
        shutil.rmtree(self.folder, ignore_errors=True)
        file = self.folder / mutant.file
        file.parent.mkdir(parents=True)
        lines = (PROJECT / mutant.file).read_text().split("\n")
        lines[mutant.number] = mutant.after
        file.write_text("\n".join(lines))
        own = self.tree.closest_objects(mutant.file, 0)
        others = self.tree.closest_objects(mutant.file, CLOSEST) if self.closest else self.tree.objects_of(mutant.file)
        result = self.judge_with(mutant, own) if own else "survived"
        if result == "survived" and len(others) > len(own):
            result = self.judge_with(mutant, others)
        shutil.rmtree(self.folder, ignore_errors=True)
        return result


SELECTION = f"""#pragma once
#include <cstdlib>
inline const int sorvane_mutant = [] {{
  const char* const number = std::getenv("{SWITCH}");
  return number == nullptr ? 0 : std::atoi(number);
}}();
inline bool sorvane_mutant_is(int number) {{ return sorvane_mutant == number; }}
"""


class Switched:
    """All programs with all mutants in them that fit in."""

    def __init__(self, tree, mutants, jobs):
        self.tree, self.jobs = tree, jobs
        self.folder = BUILD / "switched"
        self.numbers = {mutant: number for number, mutant in enumerate(mutants, 1)}
        self.inside = set()
        self.kept_out = set()  # numbers
        shutil.rmtree(self.folder, ignore_errors=True)
        files = sorted({mutant.file for mutant in mutants})
        self.objects = sorted({output for file in files for output in tree.objects_of(file)})
        for file in files:
            self.write(file)
        (self.folder / "selection.h").write_text(SELECTION)
        # What does not compile in a header is found out with a few objects.
        self.compile_all([each for each in self.objects if tree.source_of(each) in files])
        self.compile_all(self.objects)
        for name in tree.names:
            self.link(name)
        print(f"{len(self.inside)} of {len(mutants)} mutants are in one build", flush=True)

    def path(self, output):
        return self.folder / output

    def write(self, file):
        mine = [(number, mutant) for mutant, number in self.numbers.items()
                if mutant.file == file and number not in self.kept_out]
        text, inside = switched((PROJECT / file).read_text(), mine)
        self.inside -= {number for mutant, number in self.numbers.items() if mutant.file == file}
        self.inside |= inside
        target = self.folder / file
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_text(text)

    def compile(self, output):
        """Returns the places of errors: pairs of file and line."""
        entry = self.tree.compile[output]
        words = shlex.split(entry["command"])
        self.path(output).parent.mkdir(parents=True, exist_ok=True)
        words[words.index("-o") + 1] = str(self.path(output))
        source = self.folder / os.path.relpath(entry["file"], PROJECT)
        words = [str(source) if each == entry["file"] and source.exists() else each for each in words]
        words[words.index("-o"):words.index("-o")] = ["-w", "-include", str(self.folder / "selection.h")]
        words.insert(1, f"-I{self.folder / 'src'}")
        done = run([*self.tree.launcher, *words], cwd=entry["directory"])
        if done.returncode == 0:
            return []
        found = re.findall(rf"\b{self.folder.name}/(\S+?):(\d+):\d+: error: ", done.stdout)
        return {(file, int(line) - 1) for file, line in found} or sys.exit(f"mutate: {output}\n{done.stdout}")

    def compile_all(self, objects):
        while objects:
            with ThreadPoolExecutor(self.jobs) as pool:
                errors = [place for places in pool.map(self.compile, objects) for place in places]
            changed = self.keep_out(errors)
            again = {output for file in changed for output in self.tree.objects_of(file)}
            objects = [each for each in objects if each in again]

    def keep_out(self, places):
        """Takes the mutants of these lines out; those of the whole file if a line has none. Returns the files that have
        changed."""
        inside = [(mutant, number) for mutant, number in self.numbers.items() if number in self.inside]
        with_mutants = {(mutant.file, mutant.number) for mutant, _ in inside}
        whole = {file for file, line in places if (file, line) not in with_mutants}
        if whole - {mutant.file for mutant, _ in inside}:
            sys.exit(f"mutate: the switched sources do not compile: {sorted(set(places))}")
        self.kept_out |= {number for mutant, number in inside
                          if mutant.file in whole or (mutant.file, mutant.number) in set(places)}
        changed = {file for file, _ in places}
        for file in changed:
            self.write(file)
        return changed

    def link(self, name):
        """Links a program as the tree does, with archives of its own."""
        words = list(self.tree.link[name])
        for at, word in enumerate(words):
            if word in self.objects:
                words[at] = str(self.path(word))
            elif word.endswith(".a") and not os.path.isabs(word):
                members = [each for each in self.tree.compile if self.tree.archive_of(each) == word]
                if members:
                    words[at] = str(self.path(word))
                    self.path(word).parent.mkdir(parents=True, exist_ok=True)
                    self.path(word).unlink(missing_ok=True)
                    members = [str(self.path(each) if each in self.objects else each) for each in members]
                    require_in(BUILD, ["ar", "qc", words[at], *members])
        at = words.index("-o")
        words[at + 1] = str(self.folder / name)
        require_in(BUILD, [*words, *self.tree.linker])

    def judge(self, mutant, limits):
        for name, chosen in self.tree.programs_for(mutant.file):
            result = run_tests(self.folder / name, chosen, limits[name, chosen], self.numbers[mutant])
            if result != "passed":
                return "killed" if result == "failed" else "killed by time"
        return "survived"

    def has(self, mutant):
        return self.numbers.get(mutant) in self.inside


def kept():
    """The mutants that no test can notice, from tests/mutants.txt: by file and texts, the reason."""
    reasons = {}
    file = before = after = None
    for line in KEPT.read_text().splitlines():
        if line.startswith("#") or not line.strip():
            continue
        if not line.startswith(" "):
            file = line.strip()
        elif line.startswith("  - "):
            before = line[4:].strip()
        elif line.startswith("  + "):
            after = line[4:].strip()
        elif line.startswith("    ") and (file, before, after) != (None, None, None):
            reasons[file, before, after] = (reasons.get((file, before, after), "") + " " + line.strip()).strip()
    return reasons


def baseline(tree, folders, programs):
    """What each program may take: without a mutant it must pass. `programs` is the folder that has them."""
    limits = {}
    for program, chosen in sorted({each for folder in folders for each in PROGRAMS[folder] if each[0] in tree.names}):
        began, before = time.monotonic(), resource.getrusage(resource.RUSAGE_CHILDREN)
        if run_tests(programs / program, chosen, Limits(600, 600)) != "passed":
            sys.exit(f"mutate: {program} {chosen} fails without a mutant")
        took, after = time.monotonic() - began, resource.getrusage(resource.RUSAGE_CHILDREN)
        limits[program, chosen] = Limits(after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime, took)
        print(f"{program} {chosen}: {took:.1f} s without a mutant", flush=True)
    return limits


def digest_of(file):
    return hashlib.sha256((PROJECT / file).read_bytes()).hexdigest()


def results_before():
    """What earlier runs have found out about mutants of files that are still the same: by mutant, the result."""
    found = {}
    if RESULTS.exists():
        for line in RESULTS.read_text().splitlines():
            row = json.loads(line)
            mutant = Mutant(**row["mutant"])
            if (PROJECT / mutant.file).exists() and row["digest"] == digest_of(mutant.file):
                found[mutant] = row["result"]
    return found


def all_mutants():
    files = [file for folder in PROGRAMS for file in sorted((PROJECT / folder).iterdir())]
    names = [str(file.relative_to(PROJECT)) for file in files if file.suffix in (".h", ".cpp")]
    return {name: mutants_of(name, (PROJECT / name).read_text()) for name in sorted(names)}


def chosen_mutants(arguments):
    every = all_mutants()
    names = arguments.files or sorted(every)
    for name in names:
        if name not in every:
            sys.exit(f"mutate: '{name}' is no file of {' or '.join(PROGRAMS)}")
    mutants = [mutant for name in names for mutant in every[name]]
    reasons = kept()
    stale = {key for key in reasons if key[0] in names} - {mutant.key() for mutant in mutants}
    if stale:
        sys.exit("mutate: no such mutants any more: " + "; ".join(" | ".join(key) for key in sorted(stale)))
    if arguments.sample and arguments.sample < len(mutants):
        drawn = set(random.Random(arguments.seed).sample(range(len(mutants)), arguments.sample))
        mutants = [mutant for number, mutant in enumerate(mutants) if number in drawn]
    return mutants, reasons


def judge_all(arguments, mutants, reasons):
    """Returns the results, in the order of the mutants."""
    before = results_before() if arguments.resume else {}
    same = Counter(mutant.key() for mutant in mutants)

    def is_listed(mutant):
        # An entry that fits several places of a file is for those of them that survive.
        return mutant.key() in reasons and (same[mutant.key()] == 1 or before.get(mutant) == "survived")

    waiting = [each for each in mutants if not is_listed(each) and before.get(each, "survived") == "survived"]
    to_judge = set(waiting)
    folders = sorted({os.path.dirname(mutant.file) for mutant in waiting})
    tree = Tree(folders, arguments.jobs)
    limits = baseline(tree, folders, BUILD / "tests")
    in_one = None
    if len(waiting) >= LEAST_SWITCHED:
        in_one = Switched(tree, [each for file in all_mutants().values() for each in file], arguments.jobs)
        limits_in_one = baseline(tree, folders, in_one.folder)
    places = Queue()
    for number in range(arguments.jobs):
        places.put(Place(tree, number, limits, arguments.closest))
    done = []

    def judge(mutant):
        if is_listed(mutant):
            return "listed"
        if mutant not in to_judge:
            return before[mutant]
        place = places.get()
        began = time.monotonic()
        is_in_one = in_one and in_one.has(mutant)
        result = in_one.judge(mutant, limits_in_one) if is_in_one else place.judge(mutant)
        took = time.monotonic() - began
        places.put(place)
        with RESULTS.open("a") as out:
            row = {"mutant": asdict(mutant), "digest": digest_of(mutant.file), "result": result}
            print(json.dumps(row), file=out)
        done.append(mutant)
        print(f"{len(done)} of {len(waiting)} {result} in {took:.1f} s: {mutant}", flush=True)
        return "listed" if result == "survived" and mutant.key() in reasons else result

    with ThreadPoolExecutor(arguments.jobs) as pool:
        return list(pool.map(judge, mutants))


def report(arguments, mutants, results):
    by_file = defaultdict(Counter)
    for mutant, result in zip(mutants, results, strict=True):
        by_file[mutant.file][result] += 1
    survivors = [mutant for mutant, result in zip(mutants, results, strict=True) if result == "survived"]
    columns = ("killed", "killed by time", "survived", "listed", "not compiled")
    print("\n" + f"{'file':<36}" + "".join(f"{each:>15}" for each in columns))
    for file, counts in sorted(by_file.items()):
        print(f"{file:<36}" + "".join(f"{counts[each]:>15}" for each in columns))
    total = sum(by_file.values(), Counter())
    print(f"{'all':<36}" + "".join(f"{total[each]:>15}" for each in columns))
    killed = total["killed"] + total["killed by time"]
    judged = killed + total["survived"] + total["listed"]
    share = 100 * killed / judged if judged else 100.0
    print(f"{killed} of {judged} killed: {share:.1f} percent")
    with (BUILD / "survivors.txt").open("w") as out:
        out.writelines(f"{each.file}\n  - {each.before.strip()}\n  + {each.after.strip()}\n    \n" for each in survivors)
    if survivors:
        print(f"\nsurvived (also in {BUILD.relative_to(PROJECT)}/survivors.txt):")
        print("\n".join(map(str, survivors)))
    if not arguments.files:
        size = f" (a sample of {arguments.sample}, seed {arguments.seed})" if arguments.sample else ""
        figures.write("mutate", [("mutants of `registry/` and `platform/wire/` that a test notices",
                                  f"{killed} of {judged}{size}")])
    return 1 if survivors or share < LEAST_KILLED else 0


def main():
    parser = argparse.ArgumentParser(prog="scripts/mutate")
    parser.add_argument("--sample", type=int, default=0)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--jobs", type=int, default=1)
    parser.add_argument("--resume", action="store_true")
    parser.add_argument("--closest", action="store_true")
    parser.add_argument("--list", action="store_true")
    parser.add_argument("files", nargs="*")
    arguments = parser.parse_args()
    mutants, reasons = chosen_mutants(arguments)
    if arguments.list:
        print("\n".join(map(str, mutants)))
        return 0
    return report(arguments, mutants, judge_all(arguments, mutants, reasons))


if __name__ == "__main__":
    sys.exit(main())
