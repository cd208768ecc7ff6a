#!/usr/bin/env python3
"""Measures libsorrel beside its peers. Everything has to be built; see scripts/bench."""

import argparse
import sys

import curves
import document
import figures
import machine
import plots
import runs
from programs import found_peers, interleaved, output_of, program


def parse_arguments():
    parser = argparse.ArgumentParser(prog="scripts/bench", description=__doc__)
    parser.add_argument("--quick", action="store_true", help="one minute, only the table, and nothing is written")
    parser.add_argument("--priority", action="store_true", help="run before what else runs on the machine (root)")
    return parser.parse_args()


def check_texts(peers):
    """Whatever is compared has to deliver the same bytes."""
    texts = {name: output_of(program(f"message_{file}"), "texts") for name, file in peers.items()}
    different = [name for name, text in texts.items() if text != texts["floor"]]
    if different:
        sys.exit(f"other texts than the floor's arrive from {', '.join(different)}")
    print(f"The same {len(texts['floor'].splitlines())} texts arrive from {', '.join(peers)}.\n")


def table_of(all_figures):
    rows = [("", "measured", "spread", "limit", "aim", "met")]
    for figure in all_figures:
        rows.append((figure.item, figure.value, figure.spread, f"{figure.limit:g}", f"{figure.aim:g}", figure.met))
    return rows


def print_table(rows):
    widths = [max(len(row[column]) for row in rows) for column in range(len(rows[0]))]
    for row in rows:
        print("  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip())


def times_of(peers, results):
    samples = {name: results.message(name, 1) for name in peers}
    return {name: (sample.median, sample.low, sample.high) for name, sample in samples.items()}


def main():
    arguments = parse_arguments()
    rounds, milliseconds = (7, 50) if arguments.quick else (21, 200)
    about_machine = machine.description()
    peers = found_peers()
    check_texts(peers)
    all_runs = runs.of_messages(peers, milliseconds) | runs.of_parts(peers, milliseconds, arguments.priority)
    all_runs |= runs.of_lines(peers)
    results = figures.Results(interleaved(rounds, all_runs))
    rows = table_of(figures.all_figures(results))
    print_table(rows)
    if not arguments.quick:
        all_curves = curves.all_curves(peers, milliseconds)
        plots.draw_all(times_of(peers, results), all_curves)
        command = "scripts/bench" + " --priority" * arguments.priority
        document.write(about_machine, command, rows, peers, results, rounds, arguments.priority)


if __name__ == "__main__":
    main()
