"""Where and when something was measured."""

import datetime
import os
import platform
import re
from pathlib import Path

from programs import ROOT, output_of
from sizes import compiler


def processor():
    names = re.findall(r"^model name\s*:\s*(.*)$", Path("/proc/cpuinfo").read_text(encoding="utf-8"), re.MULTILINE)
    return f"{os.cpu_count()} x {names[0] if names else platform.machine()}"


def memory():
    kib = re.search(r"^MemTotal:\s*(\d+)", Path("/proc/meminfo").read_text(encoding="utf-8"), re.MULTILINE).group(1)
    return f"{int(kib) / 2**20:.0f} GiB"


def system():
    release = Path("/etc/os-release").read_text(encoding="utf-8")
    name = re.search(r'^PRETTY_NAME="(.*)"$', release, re.MULTILINE).group(1)
    return f"{name}, Linux {platform.release()}"


def commit():
    measured = ("CMakeLists.txt", "bench", "cmake", "include", "src", "targets")
    changed = output_of("git", "status", "--porcelain", "--", *measured, cwd=ROOT)
    return output_of("git", "rev-parse", "--short", "HEAD", cwd=ROOT).strip() + (" with changes" if changed else "")


def peers():
    packages = ("libspdlog-dev", "liblog4cplus-dev", "libgoogle-glog-dev", "libboost-log-dev", "libsystemd-dev")
    return output_of("dpkg-query", "--show", "--showformat=${Package} ${Version}, ", *packages).rstrip(", ")


def description():
    """The state of now: ask before measuring."""
    return {
        "Machine": f"{processor()}, {memory()}",
        "System": system(),
        "Compiler": output_of(compiler(), "--version").splitlines()[0] + ", preset `release`",
        "Peers": peers(),
        "Date": f"{datetime.datetime.now(datetime.timezone.utc):%Y-%m-%d %H:%M} UTC",
        "Commit": commit(),
        "Load when it began": f"{os.getloadavg()[0]:.1f} (what else ran on the machine)",
    }
