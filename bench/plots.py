"""Draws the pictures of docs/benchmarks with gnuplot."""

import math
import subprocess

from programs import ROOT

DIRECTORY = ROOT / "docs/benchmarks"

# A library has the same one everywhere.
COLOURS = {
    "floor": "#7f7f7f",
    "libsorrel": "#d62728",
    "spdlog": "#1f77b4",
    "spdlog (headers)": "#17becf",
    "log4cplus": "#2ca02c",
    "Boost.Log": "#9467bd",
    "glog": "#ff7f0e",
    "syslog(3)": "#8c564b",
}

HEAD = """set encoding utf8
set terminal svg size 720,400 font "sans-serif,13" background "white"
set output "{file}"
set title "{title}"
set xlabel "{x}"
set ylabel "{y}"
set grid ytics
set border 3
set tics nomirror
"""


def draw(name, title, x, y, commands):
    DIRECTORY.mkdir(exist_ok=True)
    script = HEAD.format(file=DIRECTORY / f"{name}.svg", title=title, x=x, y=y) + commands
    subprocess.run(["gnuplot"], input=script, check=True, text=True, timeout=60)


def block(points):
    return "".join(f"{x} {y}\n" for x, y in points) + "e\n"


def plot_lines(lines):
    colours = [f'linecolor rgb "{COLOURS[name]}"' if name in COLOURS else "" for name in lines]
    parts = [f"'-' with linespoints linewidth 2 {colour} title \"{name}\"" for name, colour in zip(lines, colours)]
    return f"plot {', '.join(parts)}\n" + "".join(block(points) for points in lines.values())


def draw_curve(name, title, x, y, lines, settings):
    draw(name, title, x, y, f"{settings}\nset autoscale xfix\nset key outside right top\n" + plot_lines(lines))


def draw_peers(times):
    """{name: (median, lowest, highest)}, in nanoseconds."""
    rows = "".join(
        f'{number} {median} {low} {high} "{name}" "{median:.0f}"\n'
        for number, (name, (median, low, high)) in enumerate(times.items())
    )
    draw(
        "peers",
        "A message into a sink that only counts, 1 thread",
        "",
        "ns",
        "set logscale y\nset xrange [-0.5:]\nset yrange [50:10000]\nset xtics rotate by -15\nset style fill solid 0.6\nunset key\n"
        f"$times << END\n{rows}END\n"
        "plot $times using 1:2:3:4:(0.6):xtic(5) with boxerrorbars, '' using 1:2:6 with labels offset 0,1\n",
    )


def draw_calls(lines):
    """The axis of shares is stretched towards the end: each nine takes the same room."""
    nines = {name: [(-math.log10(1 - share), time) for share, time in points] for name, points in lines.items()}
    draw_curve(
        "calls",
        "Single calls, 1 thread",
        "share of the calls that take no longer",
        "ns",
        nines,
        "set logscale y\nset xtics ('0' 0, '50 %%' 0.301, '90 %%' 1, '99 %%' 2, '99.9 %%' 3, '99.99 %%' 4)",
    )


def draw_all(times, curves):
    draw_peers(times)
    draw_calls(curves["calls"])
    for name, title, x, y, settings in (
        ("threads", "Threads that log", "threads", "ns for each message", "set logscale x 2\nset yrange [0:]"),
        ("words", "Length of the string", "bytes", "ns for each message", "set logscale x 10\nset yrange [0:]"),
        ("targets", "Null targets", "targets", "ns for each message", "set yrange [0:]"),
        ("components", "Components", "components", "ns", "set logscale xy 10"),
        ("lines", "Reading a configuration", "lines", "µs", "set logscale xy 10"),
    ):
        draw_curve(name, title, x, y, curves[name], settings)
