"""The package as pip installs it: built without a network, and used without the sources."""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

from support import NameServer

SOURCES = Path(__file__).resolve().parents[3] / "clients" / "python"

PROGRAM = """
import importlib.metadata, importlib.resources, sys, asyncio
import sorvane, sorvane.aio
assert sys.argv[2] in sorvane.__file__, sorvane.__file__
assert importlib.metadata.version("sorvane") == sorvane.__version__
assert importlib.resources.files("sorvane").joinpath("py.typed").is_file()
with sorvane.Registration("db1", "127.0.0.1", int(sys.argv[1])) as registration:
    async def find():
        async with sorvane.aio.Client("127.0.0.1", int(sys.argv[1])) as client:
            return await client.find("db1")
    assert asyncio.run(find()).number == registration.number
print("used")
"""


class Wheel(unittest.TestCase):
    def run_program(self, *command: str | Path) -> str:
        environment = {key: text for key, text in os.environ.items() if key != "PYTHONPATH"}
        done = subprocess.run([sys.executable, *command], capture_output=True, text=True, cwd="/", env=environment)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        return done.stdout

    def test_is_built_installed_and_used(self) -> None:
        with tempfile.TemporaryDirectory() as name, NameServer() as server:
            folder = Path(name)
            shutil.copytree(SOURCES, folder / "sources", ignore=shutil.ignore_patterns("__pycache__"))
            offline = ("--disable-pip-version-check", "--no-deps", "--no-index")
            self.run_program(
                "-m", "pip", "wheel", "--no-build-isolation", *offline, "-w", folder / "wheels", folder / "sources"
            )
            (wheel,) = (folder / "wheels").iterdir()
            self.assertRegex(wheel.name, r"^sorvane-[0-9.]+-py3-none-any\.whl$")
            self.run_program("-m", "pip", "install", *offline, "--target", folder / "installed", wheel)
            program = folder / "installed" / "program.py"
            program.write_text(PROGRAM)
            self.assertEqual(self.run_program(program, str(server.port), str(folder / "installed")), "used\n")


if __name__ == "__main__":
    unittest.main()
