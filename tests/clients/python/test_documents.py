"""What docs/clients.md and the docstrings show, run as it is printed: on a host of its own, named dbhost, with a name
server on the usual port. To be run by own_host.sh."""

import asyncio
import doctest
import importlib
import os
import pkgutil
import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

import sorvane
from support import PROGRAMS, NameServer

TREE = Path(__file__).resolve().parents[3]
PORT = 20221


def examples() -> list[tuple[str, str, str, str]]:
    """The chapter of each example, its language, its text and what it prints."""
    lines = (TREE / "docs" / "clients.md").read_text().splitlines()
    found: list[tuple[str, str, str, str]] = []
    chapter, language, block = "", None, ""
    for line in lines:
        if language is None and line.startswith("## "):
            chapter = line[3:]
        elif line.startswith("```"):
            if language is None:
                language, block = line[3:], ""
            else:
                if language == "text":
                    found[-1] = (*found[-1][:3], block)
                elif language != "cpp":  # built and run by the tests of the library
                    found.append((chapter, language, block, ""))
                language = None
        elif language is not None:
            block += line + "\n"
    return found


class Documents(unittest.TestCase):
    def setUp(self) -> None:
        self.server = self.enterContext(NameServer(base=PORT))

    def hold(self, number: int = 20222) -> sorvane.Registration:
        held = self.enterContext(sorvane.Registration("db1", number=number))
        held.set_state("running")
        with sorvane.Client() as client:
            while client.states() != {"db1": "running"}:
                pass
        return held

    def run_example(self, language: str, text: str) -> str:
        words = {"python": [sys.executable], "sh": ["sh", "-eu"]}[language]
        with tempfile.TemporaryDirectory() as folder:
            path = Path(folder) / "example"
            path.write_text(text)
            done = subprocess.run(
                [*words, path], cwd=folder, timeout=60, capture_output=True, text=True,
                env=os.environ | {"PATH": f"{PROGRAMS.resolve()}:{os.environ['PATH']}"},
            )
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return "".join(line.rstrip() + "\n" for line in done.stdout.splitlines())

    def test_the_examples_print_what_stands_below_them(self) -> None:
        ran = set()
        for chapter, language, text, printed in examples():
            with self.subTest(text):
                if chapter != "Registering a database":
                    self.hold()
                self.assertEqual(self.run_example(language, text), printed)
                ran.add((chapter, language))
            self.doCleanups()
            self.setUp()
        chapters = ("Registering a database", "Finding a database", "Watching databases")
        self.assertEqual(ran, {(chapter, language) for chapter in chapters for language in ("python", "sh")})

    def test_the_docstrings_show_what_happens(self) -> None:
        modules = [sorvane] + [
            importlib.import_module(module.name) for module in pkgutil.walk_packages(sorvane.__path__, "sorvane.")
        ]
        tried = 0
        for module in modules:
            for test in doctest.DocTestFinder(exclude_empty=True).find(module, extraglobs={"asyncio": asyncio}):
                if not test.examples:
                    continue
                with self.subTest(test.name), sorvane.Registration("db1", number=20222, registered_host="dbhost"):
                    with sorvane.Client() as client:  # the numbers before those that the examples get
                        for _ in range(1 if test.name.startswith("sorvane.registration") else 2):
                            client.ask({"newPort": "", "portName": "n", "portHost": "h", "portType": "t"})
                    tried += len(test.examples)
                    runner = doctest.DocTestRunner(optionflags=doctest.NORMALIZE_WHITESPACE)
                    said: list[str] = []
                    runner.run(test, out=said.append)
                    self.assertEqual("".join(said), "")
            self.doCleanups()
            self.setUp()
        self.assertGreaterEqual(tried, 9)

    def test_every_public_name_is_described(self) -> None:
        for module in (sorvane, sorvane.aio):
            for name in module.__all__:
                value = getattr(module, name)
                if not callable(value):
                    continue
                self.assertTrue((value.__doc__ or "").strip(), name)
                self.assertFalse(value.__doc__.startswith(f"{name}("), f"{name} has a made-up docstring")
                for member, function in vars(value).items():
                    if not member.startswith("_") and (callable(function) or isinstance(function, property)):
                        self.assertTrue((function.__doc__ or "").strip(), f"{name}.{member}")

    def test_the_versions_of_the_package_and_of_the_tree_are_the_same(self) -> None:
        version = re.search(r"project\(sorvinfo VERSION ([0-9.]+)", (TREE / "CMakeLists.txt").read_text())
        assert version
        self.assertEqual(sorvane.__version__, version[1])


if __name__ == "__main__":
    unittest.main()
