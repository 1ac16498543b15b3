#!/usr/bin/python3
"""Writes the results of field.py into docs/, as tables and plots.

Each table is in docs/performance.md, between two comments that name it. The
text around them does not change.
"""

import json
import pathlib
import re
import statistics
import subprocess
import tempfile

import matplotlib

import supervisors

matplotlib.use("svg")
from matplotlib import pyplot  # noqa: E402  The backend is chosen first.

DOCS = pathlib.Path(__file__).resolve().parents[2] / "docs"
RESULTS = supervisors.BUILD / "field.json"

LAUNCHER = supervisors.Launcher.name
DEBUG = supervisors.LauncherDebug.name
DEFAULT_STACKS = supervisors.LauncherDefaultStacks.name
BARE_LOOP = supervisors.BareLoop.name
PEERS = [peer.name for peer in supervisors.PEERS]

MILLISECOND = 1e6  # In ns, like all times in the results.
MICROSECOND = 1e3
KIBIBYTE = 1  # All sizes in the results are in KiB.

BINARIES = {
    LAUNCHER: [
        supervisors.STAGE / "MacOS" / "launcher",
        supervisors.STAGE / "Frameworks" / "liblogger.so.1",
    ],
    "runit": ["/usr/bin/runsvdir", "/usr/bin/runsv"],
    "s6": ["/usr/bin/s6-svscan", "/usr/bin/s6-supervise"],
    "daemontools": ["/usr/bin/svscan", "/usr/bin/supervise"],
    "supervisor": ["/usr/bin/python3"],
}


class Results:
    def __init__(self, path):
        document = json.loads(path.read_text())
        self.day = document["day"]
        self.loads = document["loads"]
        self.values = {}
        for entry in document["results"]:
            for name, value in entry["values"].items():
                key = (*entry["key"], name)
                self.values.setdefault(key, []).append(value)

    def median(self, *key):
        return statistics.median(self.values[key])

    def cell(self, unit, *key, form=None):
        """The median, with the spread if it was measured more than once."""
        if key not in self.values:
            return "–"
        form = form or number
        values = [value / unit for value in self.values[key]]
        text = form(statistics.median(values))
        if min(values) != max(values):
            text += f" ({form(min(values))}–{form(max(values))})"
        return text


def exact(value):
    return f"{value:,.2f}"


def number(value):
    if value == int(value):
        return f"{value:,.0f}"
    digits = 0 if abs(value) >= 100 else 1 if abs(value) >= 10 else 2
    return f"{value:,.{digits}f}"


def table(heads, rows):
    lines = ["| " + " | ".join(heads) + " |"]
    lines.append("|---" + "|--:" * (len(heads) - 1) + "|")
    lines += ["| " + " | ".join(row) + " |" for row in rows]
    return "\n".join(lines)


def restart_table(results):
    rows = [
        [name]
        + [
            results.cell(MILLISECOND, "restart", name, items, "gap", form=exact)
            for items in (1, 100)
        ]
        for name in [BARE_LOOP, LAUNCHER, DEBUG, *PEERS]
    ]
    return table(["ms", "1 item", "100 items"], rows)


def kill_table(results):
    rows = [
        [name]
        + [
            results.cell(MILLISECOND, "kill", name, 1, age, form=exact)
            for age in ("young", "old")
        ]
        for name in [BARE_LOOP, LAUNCHER, *PEERS]
    ]
    return table(["ms", "child of 0.1 s", "child of 3 s"], rows)


def processor_table(results):
    rows = [
        [name]
        + [
            results.cell(MICROSECOND, "restart", name, items, whose)
            for items in (1, 100)
            for whose in ("own", "child")
        ]
        for name in [BARE_LOOP, LAUNCHER, DEBUG, *PEERS]
    ]
    heads = ["µs", "own, 1 item", "child", "own, 100 items", "child"]
    return table(heads, rows)


def memory_per_item(results, name):
    one, thousand = (
        results.median("life", name, items, "memory") for items in (1, 1000)
    )
    return (thousand - one) / 999


def memory_table(results):
    rows = [
        [
            name,
            *(
                results.cell(KIBIBYTE, "life", name, items, "memory")
                for items in (1, 1000)
            ),
            number(memory_per_item(results, name)),
            number(results.median("life", name, 1000, "processes")),
        ]
        for name in [LAUNCHER, *PEERS]
    ]
    heads = ["KiB", "1 item", "1,000 items", "per further item", "processes"]
    return table(heads, rows)


def life_table(results, figure):
    rows = [
        [name]
        + [
            results.cell(MILLISECOND, "life", name, items, figure)
            for items in (1, 10, 100, 1000)
        ]
        for name in [LAUNCHER, *PEERS]
    ]
    return rows, ["ms", "1 item", "10", "100", "1,000"]


def start_table(results):
    rows, heads = life_table(results, "start")
    row = [DEFAULT_STACKS] + [
        results.cell(MILLISECOND, "life", DEFAULT_STACKS, items, "start")
        for items in (1, 10, 100, 1000)
    ]
    rows.insert(1, row)
    return table(heads, rows)


def stop_table(results):
    rows, heads = life_table(results, "stop")
    return table(heads, rows)


def fork_table(results):
    stacks = {
        "default": "8 MiB, a guard page each",
        "small": "512 KiB, a guard page each",
        "marked": "512 KiB, a guard mark each",
        "unguarded": "512 KiB, no guard",
    }
    rows = [
        [text]
        + [
            f"{number(results.median('fork', stack, threads, 'call'))} + "
            f"{number(results.median('fork', stack, threads, 'child'))}"
            for threads in (1, 10, 100, 1000)
        ]
        for stack, text in stacks.items()
    ]
    return table(["µs", "1 thread", "10", "100", "1,000"], rows)


def idle_table(results):
    rows = [
        [
            name,
            results.cell(1, "idle", name, 100, "wake-ups"),
            results.cell(MILLISECOND, "idle", name, 100, "time"),
        ]
        for name in [LAUNCHER, *PEERS]
    ]
    return table(["100 items, 20 s", "wake-ups", "processor time, ms"], rows)


def stripped_kibibytes(path):
    with tempfile.NamedTemporaryFile() as stripped:
        command = ["strip", "-o", stripped.name, str(path)]
        subprocess.run(command, check=True)
        return pathlib.Path(stripped.name).stat().st_size / 1024


def size_table(results):
    rows = [
        [
            name,
            " + ".join(pathlib.Path(path).name for path in BINARIES[name]),
            " + ".join(number(stripped_kibibytes(p)) for p in BINARIES[name]),
            number(results.median("life", name, 1, "libraries")),
        ]
        for name in [LAUNCHER, *PEERS]
    ]
    return table(["", "files", "KiB, stripped", "libraries loaded"], rows)


def conditions(results):
    low, high = min(results.loads), max(results.loads)
    rounds = len(results.values["idle", LAUNCHER, 100, "time"])
    return (
        f"Measured {results.day} in {rounds} rounds; load average: median "
        f"{statistics.median(results.loads):.0f}, {low:.0f} to {high:.0f}."
    )


TABLES = {
    "conditions": conditions,
    "restart": restart_table,
    "kill": kill_table,
    "processor": processor_table,
    "memory": memory_table,
    "start": start_table,
    "fork": fork_table,
    "idle": idle_table,
    "stop": stop_table,
    "size": size_table,
}


def colour(name):
    return "tab:orange" if name == LAUNCHER else "tab:gray"


def bars(file, title, names, values):
    """Draws horizontal bars, each with its value."""
    figure, axes = pyplot.subplots(figsize=(7, 0.5 * len(names) + 1.2))
    drawn = axes.barh(names, values, color=[colour(name) for name in names])
    axes.bar_label(drawn, [number(value) for value in values], padding=4)
    axes.set_title(title, loc="left")
    axes.invert_yaxis()
    axes.spines[["top", "right"]].set_visible(False)
    save(figure, file)


def lines(file, title, results):
    figure, axes = pyplot.subplots(figsize=(7, 4))
    items = [1, 10, 100, 1000]
    colours = ["orange", "gray", "green", "red", "purple"]
    for name, marker, hue in zip([LAUNCHER, *PEERS], "os^Dv", colours):
        times = [
            results.median("life", name, count, "start") / MILLISECOND
            for count in items
        ]
        width = 3 if name == LAUNCHER else 1.5
        axes.plot(
            items,
            times,
            marker=marker,
            color=f"tab:{hue}",
            linewidth=width,
            label=name,
        )
    axes.set_xscale("log")
    axes.set_yscale("log")
    axes.set_xlabel("items")
    axes.set_title(title, loc="left")
    axes.legend(frameon=False)
    axes.spines[["top", "right"]].set_visible(False)
    save(figure, file)


def save(figure, file):
    figure.tight_layout()
    figure.savefig(DOCS / file, metadata={"Date": None})
    pyplot.close(figure)


def plot(results):
    matplotlib.rcParams["svg.fonttype"] = "none"
    matplotlib.rcParams["svg.hashsalt"] = "field"
    names = [BARE_LOOP, LAUNCHER, *PEERS]
    bars(
        "performance-restart.svg",
        "From a child's end to the next one's first instruction, ms",
        names,
        [
            results.median("restart", name, 1, "gap") / MILLISECOND
            for name in names
        ],
    )
    names = [LAUNCHER, *PEERS]
    bars(
        "performance-memory.svg",
        "Memory of the supervisor with 1,000 items, MiB",
        names,
        [results.median("life", name, 1000, "memory") / 1024 for name in names],
    )
    lines(
        "performance-start.svg",
        "From exec until every child runs, ms",
        results,
    )


def write(path):
    results = Results(path)
    document = DOCS / "performance.md"
    text = document.read_text()
    for name, make in TABLES.items():
        text = re.sub(
            rf"(<!-- field: {name} -->\n).*?(<!-- end -->)",
            lambda match: match[1] + make(results) + "\n" + match[2],
            text,
            flags=re.DOTALL,
        )
    document.write_text(text)
    plot(results)


if __name__ == "__main__":
    write(RESULTS)
