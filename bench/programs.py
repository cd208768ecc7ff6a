"""Runs the benchmark's programs, and keeps what they say."""

import json
import os
import statistics
import subprocess
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
BUILD = ROOT / "build/release"
PROGRAMS = BUILD / "bench"

# Name in the tables: part of the programs' names.
PEERS = {
    "floor": "floor",
    "libsorrel": "sorrel",
    "spdlog": "spdlog",
    "spdlog (headers)": "spdlog_header_only",
    "log4cplus": "log4cplus",
    "Boost.Log": "boost_log",
    "glog": "glog",
    "syslog(3)": "syslog",
}


def program(name):
    return PROGRAMS / f"sorrel_bench_{name}"


def output_of(*command, check=True, **options):
    words = [str(word) for word in command]
    return subprocess.run(words, check=check, stdout=subprocess.PIPE, text=True, timeout=120, **options).stdout


def measure(name, *arguments, before=(), **options):
    """The line of JSON that a program prints. What comes before it starts it."""
    return json.loads(output_of(*before, program(name), *arguments, **options))


def found_peers():
    return {name: file for name, file in PEERS.items() if program(f"message_{file}").exists()}


def interleaved(rounds, runs):
    """Runs everything once in each round, every second time backwards: {key: [result of each round]}."""
    results = {key: [] for key in runs}
    for number in range(rounds):
        for key in list(runs)[:: 1 if number % 2 == 0 else -1]:
            results[key].append(runs[key]())
    return results


class Sample:
    """A value of each round. Calculating with two of them stays within the rounds."""

    def __init__(self, values):
        self.values = list(values)

    @property
    def median(self):
        return statistics.median(self.values)

    @property
    def low(self):
        return min(self.values)

    @property
    def high(self):
        return max(self.values)

    def __truediv__(self, other):
        return Sample(mine / theirs for mine, theirs in zip(self.values, other.values))

    def __sub__(self, other):
        return Sample(mine - theirs for mine, theirs in zip(self.values, other.values))

    def scaled(self, factor):
        return Sample(value * factor for value in self.values)
