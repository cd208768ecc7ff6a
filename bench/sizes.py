"""Sizes of code: the library, and one call in its caller."""

import re
import tempfile
from pathlib import Path

from programs import BUILD, ROOT, output_of

FEW, MANY = 100, 200
TARGETS = BUILD / "targets"

# The arguments of one call; {} is its number.
SAME_TEXT = '"%s %d %f", word, number, fraction'
OWN_TEXT = '"{} %s %d %f", word, number, fraction'
ONE_NUMBER = '"{} %d", number'


def compiler():
    cache = (BUILD / "CMakeCache.txt").read_text(encoding="utf-8")
    return re.search(r"^CMAKE_CXX_COMPILER:\w+=(.*)$", cache, re.MULTILINE).group(1)


def stripped_kib(library=BUILD / "libsorrel.so"):
    with tempfile.TemporaryDirectory() as directory:
        copy = Path(directory, "stripped.so")
        output_of("strip", "-o", copy, library)
        return copy.stat().st_size / 1024


def text_size(arguments, count):
    """The bytes of .text of a function with so many calls."""
    calls = "".join(f"    _sorrel(net, SR_INFO, {arguments.format(number)});\n" for number in range(count))
    code = (
        "#include <sorrel/sorrel.h>\n"
        "extern sorrel_component* net;\n"
        f"void calls(const char* word, int number, double fraction) {{\n{calls}}}\n"
    )
    with tempfile.TemporaryDirectory() as directory:
        source, compiled = Path(directory, "calls.cpp"), Path(directory, "calls.o")
        source.write_text(code, encoding="ascii")
        output_of(compiler(), "-std=c++17", "-O2", "-I", ROOT / "include", "-c", source, "-o", compiled)
        return int(re.search(r"^\.text\s+(\d+)", output_of("size", "-A", compiled), re.MULTILINE).group(1))


def call_site(arguments):
    return (text_size(arguments, MANY) - text_size(arguments, FEW)) / (MANY - FEW)
