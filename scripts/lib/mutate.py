"""Builds the mutants of src/registry and src/platform/wire and looks which of them the tests notice.

    mutate.py [--sample N] [--seed S] [--jobs J] [--list] [FILE]...        see scripts/mutate

The tree is never changed: a mutant lies in a folder of its own, which the compiler searches first. Of a mutated source
file that one object is compiled, of a mutated header the objects that use it most directly; they are linked before all
others with the objects of the unchanged tree, and the linker takes the inline functions that it meets first. Whatever
survives so, and any mutated header whose constants are compiled in everywhere, is judged again with all objects that
include the header.
"""

import argparse
import json
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
from pathlib import Path
from queue import Queue

import figures
from mutants import mutants_of

PROJECT = Path(__file__).resolve().parents[2]
BUILD = PROJECT / "build" / "mutate"
KEPT = PROJECT / "tests" / "mutants.txt"
LEAST_KILLED = 90  # percent
ENVIRONMENT = {**os.environ, "SORVANE_MODEL_STEPS": "50000", "SORVANE_MODEL_SEED": "1"}
MEMORY = 4 << 30  # bytes that a test program may take: a mutant may ask for all there is

# By folder: the test programs that are closest, each with the tests to run, in their order. Those that the build does
# not have are left out.
PROGRAMS = {
    "src/registry": [("registry_tests", "*"), ("model_tests", "RegistrySequence.*"), ("nameserver_tests", "*")],
    "src/platform/wire": [
        ("platform_tests", "Frame*:ByteBuffer*:ReplyBuffer*:Message*:Wire*"),
        ("registry_tests", "*"),
        ("platform_tests", "*Server*:*Unfinished*:*Untaken*:NetConnection*"),
    ],
}


def run(words, **options):
    return subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **options)


def require(words):
    done = run(words, cwd=PROJECT)
    if done.returncode:
        sys.exit(f"mutate: {' '.join(map(str, words))}\n{done.stdout}")
    return done.stdout


class Tree:
    """The unchanged build: how each object is compiled and each program is linked."""

    def __init__(self, folders):
        launcher = ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"] if shutil.which("ccache") else []
        # Without what debuggers need: each mutant is compiled and linked sooner.
        options = ["-DSORVANE_BENCHMARKS=OFF", "-DCMAKE_CXX_FLAGS_DEBUG=", *launcher]
        require(["cmake", "--preset", "debug", "-B", BUILD, *options])
        targets = require(["ninja", "-C", BUILD, "-t", "targets", "all"])
        wanted = {name for folder in folders for name, _ in PROGRAMS[folder]}
        self.names = sorted(name for name in wanted if f"\ntests/{name}:" in targets)
        require(["ninja", "-C", BUILD, "-j1", *self.names])
        self.compile = {}
        for entry in json.loads((BUILD / "compile_commands.json").read_text()):
            self.compile[entry["output"]] = entry
        self.link = {name: self.link_command(name) for name in self.names}
        self.users = self.users_of_headers()

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
        """All objects that change with a file."""
        if file.endswith(".cpp"):
            return sorted(each for each in self.compile if self.source_of(each) == file)
        return sorted(self.users[file])

    def closest_objects(self, file):
        """The object of a source file; of a header, those of its source file and its test, or of a few that use it."""
        objects = self.objects_of(file)
        stem = Path(file).stem
        close = [each for each in objects if Path(self.source_of(each)).stem in (stem, f"{stem}Test")]
        return close or objects[:2]

    def belongs(self, output, name):
        """Whether a program is linked with an object, be it by way of a library."""
        folder, target = re.match(r"(.*)/CMakeFiles/(\w+)\.dir/", output).groups()
        return output in self.link[name] or f"{folder}/lib{target}.a" in self.link[name]

    def programs_for(self, file):
        return [each for each in PROGRAMS[os.path.dirname(file)] if each[0] in self.names]


def limited():
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def run_tests(program, chosen, limit):
    """Runs a test program in a process group of its own. Returns "passed", "failed" or "too slow"."""
    words = [program, f"--gtest_filter={chosen}", "--gtest_fail_fast", "--gtest_brief=1"]
    with subprocess.Popen(words, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, stdin=subprocess.DEVNULL,
                          cwd=BUILD / "tests", env=ENVIRONMENT, preexec_fn=limited, start_new_session=True) as process:
        try:
            status = process.wait(limit)
            return "passed" if status == 0 else "failed"
        except subprocess.TimeoutExpired:
            return "too slow"
        finally:
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass


class Place:
    """A folder in which one mutant at a time is built and tried."""

    def __init__(self, tree, number, limits):
        self.tree, self.limits = tree, limits
        self.folder = BUILD / "mutants" / str(number)

    def compile(self, mutant, objects):
        """Compiles these objects of the mutant. Returns them by their name in the build, or None."""
        made = {}
        for output in objects:
            entry = self.tree.compile[output]
            target = self.folder / f"{len(made)}.o"
            words = shlex.split(entry["command"])
            words[words.index("-o") + 1] = str(target)
            source = self.folder / os.path.relpath(entry["file"], PROJECT)
            words = [str(source) if each == entry["file"] and source.exists() else each for each in words]
            words.insert(words.index("-o"), f"-I{self.folder / 'src'}")
            if run(words, cwd=entry["directory"]).returncode:
                return None
            made[output] = str(target)
        return made

    def judge_with(self, mutant, objects):
        made = self.compile(mutant, objects)
        if made is None:
            return "not compiled"
        for name, chosen in self.tree.programs_for(mutant.file):
            words = [each for each in self.tree.link[name] if each not in made]
            mine = [path for output, path in made.items() if self.tree.belongs(output, name)]
            if not mine:
                continue
            at = words.index("-o")
            words[at + 1] = str(self.folder / name)
            words[at:at] = mine
            if run(words, cwd=BUILD).returncode:
                return "not compiled"
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
        every = self.tree.objects_of(mutant.file)
        close = self.tree.closest_objects(mutant.file)
        result = "survived"
        if mutant.file.endswith(".cpp") or "constexpr" not in mutant.before:
            result = self.judge_with(mutant, close)
        if result == "survived" and mutant.file.endswith(".h"):
            result = self.judge_with(mutant, every)
        shutil.rmtree(self.folder, ignore_errors=True)
        return result


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


def baseline(tree, folders):
    """How long each program may take: the unchanged one must pass."""
    limits = {}
    for program, chosen in sorted({each for folder in folders for each in PROGRAMS[folder] if each[0] in tree.names}):
        began = time.monotonic()
        if run_tests(BUILD / "tests" / program, chosen, 600) != "passed":
            sys.exit(f"mutate: {program} {chosen} fails without a mutant")
        took = time.monotonic() - began
        limits[program, chosen] = 10 + 5 * took
        print(f"{program} {chosen}: {took:.1f} s without a mutant", flush=True)
    return limits


def chosen_mutants(arguments):
    every = [file for folder in PROGRAMS for file in sorted((PROJECT / folder).iterdir())]
    every = {str(file.relative_to(PROJECT)) for file in every if file.suffix in (".h", ".cpp")}
    names = arguments.files or sorted(every)
    for name in names:
        if name not in every:
            sys.exit(f"mutate: '{name}' is no file of {' or '.join(PROGRAMS)}")
    mutants = [mutant for name in names for mutant in mutants_of(name, (PROJECT / name).read_text())]
    reasons = kept()
    stale = {key for key in reasons if key[0] in names} - {mutant.key() for mutant in mutants}
    if stale:
        sys.exit("mutate: no such mutants any more: " + "; ".join(" | ".join(key) for key in sorted(stale)))
    if arguments.sample and arguments.sample < len(mutants):
        drawn = set(random.Random(arguments.seed).sample(range(len(mutants)), arguments.sample))
        mutants = [mutant for number, mutant in enumerate(mutants) if number in drawn]
    return mutants, reasons


def judge_all(mutants, reasons, jobs):
    """Returns the results, in the order of the mutants."""
    folders = sorted({os.path.dirname(mutant.file) for mutant in mutants})
    tree = Tree(folders)
    limits = baseline(tree, folders)
    places = Queue()
    for number in range(jobs):
        places.put(Place(tree, number, limits))

    def judge(mutant):
        if mutant.key() in reasons:
            return "kept"
        place = places.get()
        try:
            return place.judge(mutant)
        finally:
            places.put(place)

    results = []
    with ThreadPoolExecutor(jobs) as pool:
        for mutant, result in zip(mutants, pool.map(judge, mutants), strict=True):
            results.append(result)
            print(f"{len(results)} of {len(mutants)} {result}: {mutant}", flush=True)
    return results


def report(arguments, mutants, results, reasons):
    by_file = defaultdict(Counter)
    for mutant, result in zip(mutants, results, strict=True):
        by_file[mutant.file][result] += 1
    survivors = [mutant for mutant, result in zip(mutants, results, strict=True) if result == "survived"]
    columns = ("killed", "killed by time", "survived", "kept", "not compiled")
    print("\n" + f"{'file':<36}" + "".join(f"{each:>15}" for each in columns))
    for file, counts in sorted(by_file.items()):
        print(f"{file:<36}" + "".join(f"{counts[each]:>15}" for each in columns))
    total = sum(by_file.values(), Counter())
    print(f"{'all':<36}" + "".join(f"{total[each]:>15}" for each in columns))
    killed = total["killed"] + total["killed by time"]
    judged = killed + total["survived"] + total["kept"]
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
    parser.add_argument("--list", action="store_true")
    parser.add_argument("files", nargs="*")
    arguments = parser.parse_args()
    mutants, reasons = chosen_mutants(arguments)
    if arguments.list:
        print("\n".join(map(str, mutants)))
        return 0
    return report(arguments, mutants, judge_all(mutants, reasons, arguments.jobs), reasons)


if __name__ == "__main__":
    sys.exit(main())
