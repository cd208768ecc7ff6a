"""What is run in each round of the benchmark."""

import os
import tempfile
from functools import partial
from pathlib import Path

from programs import PROGRAMS, measure, program

USUAL_WORD = 12
THREADS = (1, 8)
TARGETS = (1, 64)
LOGGING_THREADS = (1, 64)
LAUNCHES = 50  # of each kind in each round
REWRITES = 100
LINES = 50_000  # in a file, in each round
REALTIME = ("chrt", "--fifo", "1")


def message(file, threads, milliseconds, word=USUAL_WORD):
    return partial(measure, f"message_{file}", "batches", threads, milliseconds, word)


def with_configuration(name, *arguments):
    """A program whose configuration is there before it starts."""
    with tempfile.TemporaryDirectory(prefix="sorrel-bench-") as directory:
        Path(directory, "sorrel.cfg").write_text(f"target={PROGRAMS}/tally_target.so\n", encoding="ascii")
        return measure(name, *arguments, env=os.environ | {"SORL_PATH": directory})


def launches():
    """Milliseconds until the first message, of the first program with the library, of the second without."""
    programs = (program("launch_sorrel"), program("launch_none"))
    return with_configuration("launcher", LAUNCHES, *programs)


def of_messages(peers, milliseconds):
    return {
        ("message", name, threads): message(file, threads, milliseconds)
        for threads in THREADS
        for name, file in peers.items()
    }


def line(file, way):
    """A line in a file: the program removes the file again."""
    path = Path(tempfile.gettempdir(), f"sorrel-bench-{os.getpid()}.log")
    return partial(measure, f"lines_{file}", way, LINES, path)


def of_lines(peers):
    """What our targets and their peer need for a line, by turns."""
    ways = [("sorrel", "buffered"), ("sorrel", "always"), ("sorrel", "console")]
    if "spdlog" in peers:
        ways += [("spdlog", "buffered"), ("spdlog", "always")]
    return {("line", file, way): line(file, way) for file, way in ways}


def of_parts(peers, milliseconds, priority):
    """The parts of this library, and what they are compared with.

    On a busy machine the worst rewrite tells of the neighbours, unless they have to wait.
    """
    before = REALTIME if priority else ()
    runs = {
        ("filtered",): partial(measure, "costs", "filtered", milliseconds),
        ("launches",): launches,
        ("rewrite",): partial(measure, "costs", "rewrite", REWRITES, before=before),
        ("reloads",): partial(measure, "costs", "reloads", 10 * milliseconds),
        ("recorder",): partial(measure, "costs", "recorder", milliseconds),
        ("dump", "libsorrel"): partial(measure, "dump_sorrel", milliseconds, "characters"),
    }
    if "spdlog" in peers:
        for kind in ("characters", "plain"):
            runs["dump", kind] = partial(measure, "dump_spdlog", milliseconds, kind)
    for file in ("sorrel", "sendv"):
        if program(f"journal_{file}").exists():
            runs["journal", file] = partial(measure, f"journal_{file}", "read", milliseconds)
    for count in TARGETS:
        runs["targets", count] = partial(measure, "costs", "targets", count, milliseconds)
    for threads in LOGGING_THREADS:
        for file in ("sorrel", "none"):
            runs["memory", file, threads] = partial(with_configuration, f"memory_{file}", threads)
    return runs
