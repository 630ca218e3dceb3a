"""The figures that the measuring scripts leave in build/figures/ for scripts/test-figures.

A file there is one measurement: a line a figure, what it is of and the figure itself with a tab between them. The file's
date is that of the measurement.

    figures.py NAME WHAT FIGURE...    writes such a file; pairs of WHAT and FIGURE
"""

import sys
from pathlib import Path

FOLDER = Path(__file__).resolve().parents[2] / "build" / "figures"


def write(name, rows):
    """Replaces the figures of a measurement by pairs of texts."""
    FOLDER.mkdir(parents=True, exist_ok=True)
    (FOLDER / name).write_text("".join(f"{what}\t{figure}\n" for what, figure in rows))


if __name__ == "__main__":
    words = sys.argv[2:]
    write(sys.argv[1], zip(words[::2], words[1::2], strict=True))
