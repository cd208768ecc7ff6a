"""The table of figures: each with what it must not exceed, and what is aimed at."""

import json
from dataclasses import dataclass

import runs
import sizes
from programs import ROOT, Sample, output_of, program

COUNTER = ROOT / "bench/count_instructions"


@dataclass
class Figure:
    item: str
    sample: Sample  # none where nothing was measured
    unit: str
    limit: float
    aim: float
    digits: int = 2

    def text(self, value):
        return f"{value:.{self.digits}f}"

    @property
    def value(self):
        return f"{self.text(self.sample.median)} {self.unit}".strip() if self.sample else "not measured"

    @property
    def spread(self):
        if not self.sample or len(self.sample.values) == 1:
            return ""
        return f"{self.text(self.sample.low)} to {self.text(self.sample.high)}"

    @property
    def met(self):
        if not self.sample:
            return ""
        if self.sample.median <= self.aim:
            return "aim"
        return "limit" if self.sample.median <= self.limit else "**no**"


class Results:
    """What the rounds gave, by the keys of runs.py."""

    def __init__(self, results):
        self.results = results

    def sample(self, field, *key):
        return Sample(result[field] for result in self.results[key]) if key in self.results else None

    def message(self, name, threads):
        """Alone the median message counts; with several threads all of them in the time that all took."""
        return self.sample("p50" if threads == 1 else "wall", "message", name, threads)

    def over(self, name, threads):
        theirs = self.message(name, threads)
        return theirs and self.message("libsorrel", threads) / theirs

    def dump_over_spdlog(self, kind):
        theirs = self.sample("p50", "dump", kind)
        return theirs and self.sample("p50", "dump", "libsorrel") / theirs

    def over_sendv(self):
        """Processor time of the thread that logs."""
        theirs = self.sample("cpu", "journal", "sendv")
        return theirs and self.sample("cpu", "journal", "sorrel") / theirs

    def line(self, way, peer, way_of_peer):
        theirs = self.sample("cpu", "line", peer, way_of_peer)
        return theirs and self.sample("cpu", "line", "sorrel", way) / theirs

    def further_target(self):
        one, many = (self.sample("message", "targets", count) for count in runs.TARGETS)
        return (many - one).scaled(1 / (runs.TARGETS[1] - runs.TARGETS[0]))

    def recorder(self):
        return self.sample("message", "recorder") - self.sample("message", "targets", runs.TARGETS[0])

    def memory(self, threads):
        with_library = self.sample("resident", "memory", "sorrel", threads)
        return with_library - self.sample("resident", "memory", "none", threads)


def counted():
    """Instructions are exact, hence counted once."""
    counts = json.loads(output_of(COUNTER, program("counts"), "--json", check=False))
    return [
        Figure("filtered `_sorrel`, instructions", Sample([counts["filtered"]]), "", 66, 50, 0),
        Figure("filtered through the inline check, instructions", Sample([counts["inline"]]), "", 16, 8, 0),
        Figure("passing, 1 null target, instructions", Sample([counts["passing"]]), "", 1400, 1000, 0),
    ]


def beside_peers(results):
    limits = (("log4cplus", 0.4, 0.25), ("Boost.Log", 0.2, 0.1), ("glog", 0.1, 0.06), ("syslog(3)", 0.1, 0.06))
    return [
        Figure("passing, of the straight floor", results.over("floor", 1), "", 0.35, 0.2),
        Figure("passing, of spdlog", results.over("spdlog", 1), "", 1, 0.7),
        Figure("8 threads, of spdlog", results.over("spdlog", 8), "", 1, 0.75),
        *(Figure(f"passing, of {name}", results.over(name, 1), "", limit, aim) for name, limit, aim in limits),
        Figure("hex dump of 64 KiB, of spdlog's with characters", results.dump_over_spdlog("characters"), "", 1, 0.55),
        Figure("the same, of spdlog's without characters", results.dump_over_spdlog("plain"), "", 1, 0.55),
    ]


def of_parts(results):
    start = results.sample("first", "launches") - results.sample("second", "launches")
    tail = results.sample("changing", "reloads") / results.sample("quiet", "reloads")
    rewrite = results.sample("worst", "rewrite").scaled(1e-3)
    return [
        Figure("filtered through the inline check", results.sample("check", "filtered"), "ns", 1, 1),
        Figure("each further null target", results.further_target(), "ns", 15, 8, 1),
        Figure("recorder, over a null target", results.recorder(), "ns", 120, 70, 1),
        Figure("start to first message, over a program without the library", start, "ms", 0.8, 0.4),
        Figure("resident, over a program without the library, 1 thread", results.memory(1), "KiB", 500, 300, 0),
        Figure("the same, 64 threads", results.memory(64), "KiB", 800, 450, 0),
        Figure("rewritten file to level in effect, worst of 100", rewrite, "ms", 10, 1),
        Figure("99.9th percentile while targets come and go, of quiet", tail, "", 5, 3),
    ]


def of_targets(results):
    buffered = results.line("buffered", "spdlog", "buffered")
    at_once = results.line("always", "spdlog", "always")
    console = results.line("console", "sorrel", "always")
    return [
        Figure("buffered line in a file, of spdlog's", buffered, "", 0.7, 0.45),
        Figure("line in a file that is written at once, of spdlog's", at_once, "", 0.9, 0.7),
        Figure("line of the console in a file, of the file target's", console, "", 1, 1),
        Figure("journal target, of sd_journal_sendv", results.over_sendv(), "", 0.9, 0.9),
    ]


def of_code():
    targets = (("console", sizes.TARGETS / "sorrel-console.so"), ("file", sizes.TARGETS / "sorrel-file.so"))
    same, own = sizes.call_site(sizes.SAME_TEXT), sizes.call_site(sizes.OWN_TEXT)
    return [
        Figure("shared object, stripped", Sample([sizes.stripped_kib()]), "KiB", 140, 110, 1),
        *(
            Figure(f"{name} target, stripped", Sample([sizes.stripped_kib(path)]), "KiB", 120, 60, 1)
            for name, path in targets
        ),
        Figure("code of a call, all with the same text", Sample([same]), "bytes", 40, 37, 0),
        Figure("code of a call, each with its own text", Sample([own]), "bytes", 40, 37, 0),
    ]


def all_figures(results):
    return counted() + beside_peers(results) + of_parts(results) + of_targets(results) + of_code()
