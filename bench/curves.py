"""Cost curves, and the distribution of single calls."""

import statistics
from functools import partial

import runs
from programs import interleaved, measure

ROUNDS = 5
CALLS = 2000  # batches of 64
COUNTS = (1, 2, 4, 8, 16, 32, 64)
WORDS = (10, 30, 100, 300, 1000, 2000)  # bytes of the string among the arguments
LINES = (1, 10, 100, 1000, 10000)
MOST_COMPONENTS = 100000


def medians(results, field):
    """One number instead of the results of all rounds."""
    return {key: statistics.median(result[field] for result in of_key) for key, of_key in results.items()}


def lines_by_name(points):
    """{(name, x): y} as {name: [(x, y)]}."""
    lines = {}
    for (name, x), y in points.items():
        lines.setdefault(name, []).append((x, y))
    return lines


def some(peers, *names):
    return {name: peers[name] for name in names if name in peers}


def by_threads(peers, milliseconds):
    compared = some(peers, "floor", "spdlog", "libsorrel")
    all_runs = {
        (name, count): runs.message(file, count, milliseconds) for name, file in compared.items() for count in COUNTS
    }
    return lines_by_name(medians(interleaved(ROUNDS, all_runs), "wall"))


def by_word(peers, milliseconds):
    compared = some(peers, "floor", "spdlog", "libsorrel")
    all_runs = {
        (name, length): runs.message(file, 1, milliseconds, length)
        for name, file in compared.items()
        for length in WORDS
    }
    return lines_by_name(medians(interleaved(ROUNDS, all_runs), "p50"))


def by_targets(milliseconds):
    all_runs = {("libsorrel", count): partial(measure, "costs", "targets", count, milliseconds) for count in COUNTS}
    return lines_by_name(medians(interleaved(ROUNDS, all_runs), "message"))


def by_components():
    rounds = [measure("costs", "components", MOST_COMPONENTS)["components"] for _ in range(ROUNDS)]
    lines = {"creation": [], "lookup": []}
    for stage in zip(*rounds):
        for what, points in lines.items():
            points.append((stage[0]["count"], statistics.median(of_round[what] for of_round in stage)))
    return lines


def by_lines():
    results = interleaved(ROUNDS, {count: partial(measure, "costs", "configuration", count) for count in LINES})
    return {
        "new components": list(medians(results, "first").items()),
        "known components": list(medians(results, "again").items()),
    }


def of_calls(peers):
    """{name: [(share, ns)]}: so many calls took no longer than this."""
    all_runs = {name: partial(measure, f"message_{file}", "calls", CALLS) for name, file in peers.items()}
    lines = {}
    for name, results in interleaved(ROUNDS, all_runs).items():
        shares = results[0]["quantiles"]
        lines[name] = [
            (float(share), statistics.median(result["quantiles"][share] for result in results)) for share in shares
        ]
    return lines


def all_curves(peers, milliseconds):
    return {
        "calls": of_calls(peers),
        "threads": by_threads(peers, milliseconds),
        "words": by_word(peers, milliseconds),
        "targets": by_targets(milliseconds),
        "components": by_components(),
        "lines": by_lines(),
    }
