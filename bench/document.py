"""Writes docs/BENCHMARKS.md: fills benchmarks.md.in."""

from pathlib import Path
from string import Template

import curves
import runs
import sizes
from programs import ROOT


def markdown_table(rows):
    lines = ["| " + " | ".join(row) + " |" for row in rows]
    lines.insert(1, "|" + "---|" * len(rows[0]))
    return "\n".join(lines)


def with_spread(sample, digits):
    return f"{sample.median:.{digits}f} ({sample.low:.{digits}f} to {sample.high:.{digits}f})"


def rows_of_peers(peers, results):
    rows = [("Peer", "alone, ns", "libsorrel to it", "8 threads, ns", "libsorrel to it")]
    for name in peers:
        row = [name]
        for threads in runs.THREADS:
            row.append(with_spread(results.message(name, threads), 0))
            row.append(with_spread(results.over(name, threads), 2) if name != "libsorrel" else "")
        rows.append(row)
    return rows


def write(machine, command, figures, peers, results, rounds, priority):
    followed = results.sample("changes", "reloads") / results.sample("written", "reloads")
    template = Template(Path(__file__).with_name("benchmarks.md.in").read_text(encoding="utf-8"))
    text = template.substitute(
        here=markdown_table([("What", "Here"), ("Command", f"`{command}`"), *machine.items()]),
        rounds=rounds,
        figures=markdown_table(figures),
        peers=markdown_table(rows_of_peers(peers, results)),
        launches=runs.LAUNCHES,
        lines=f"{runs.LINES:,}",
        realtime=", with real-time priority" if priority else "",
        followed=f"{100 * followed.median:.0f}",
        many=sizes.MANY,
        few=sizes.FEW,
        one_number=f"{sizes.call_site(sizes.ONE_NUMBER):.0f}",
        curve_rounds=curves.ROUNDS,
    )
    (ROOT / "docs/BENCHMARKS.md").write_text(text, encoding="utf-8")
