#!/usr/bin/python3
"""Measures the launcher against the field: field.py [rounds]

Builds the programs and measures every supervisor, each in a PID namespace of
its own. The supervisors take turns in each round, so that changes in the
machine's load affect all of them. Keeps the results in build/bench/field.json,
and rewrites the tables and the plots in docs/.

Needs runit, s6, daemontools, supervisor and matplotlib.
"""

import json
import os
import pathlib
import subprocess
import sys
import tempfile
import time

import report
import supervisors

FIELD = pathlib.Path(__file__).resolve().parent
ROOT = FIELD.parents[1]
RESULTS = supervisors.BUILD / "field.json"
TIME_LIMIT_SECONDS = 300
DEFAULT_ROUNDS = 5

LAUNCHER = supervisors.Launcher.name
DEBUG = supervisors.LauncherDebug.name
DEFAULT_STACKS = supervisors.LauncherDefaultStacks.name
BARE_LOOP = supervisors.BareLoop.name
PEERS = [peer.name for peer in supervisors.PEERS]

# Each measurement: figure, supervisors, numbers of items. A short one is
# repeated in each round.
PLAN = [
    ("restart", [BARE_LOOP, LAUNCHER, DEBUG, *PEERS], [1, 100]),
    ("kill", [BARE_LOOP, LAUNCHER, *PEERS], [1]),
    ("life", [LAUNCHER, *PEERS], [1, 1, 1, 1, 10, 10, 100, 1000]),
    ("life", [DEFAULT_STACKS], [1, 1000]),
    ("idle", [LAUNCHER, *PEERS], [100]),
]
STACKS = ["default", "small", "unguarded", "marked"]
THREADS = [1, 10, 100, 1000]

NAMESPACE = ["unshare", "--mount", "--pid", "--fork", "--mount-proc"]
ALONE = ["--kill-child", "setsid"]
# The files are in memory, so no process waits for a disk.
IN_TMPFS = 'mount -t tmpfs tmpfs "$0" && cd "$0" && exec "$@"'


def build():
    for command in (
        ["cmake", "--preset", "bench"],
        ["cmake", "--build", "--preset", "bench"],
        ["cmake", "--install", "build/bench", "--prefix", "build/bench/stage"],
    ):
        subprocess.run(command, cwd=ROOT, check=True, stdout=subprocess.DEVNULL)


def run_alone(command):
    """Runs `command` in a PID namespace of its own and returns its output."""
    user = [] if os.getuid() == 0 else ["--user", "--map-root-user"]
    with tempfile.TemporaryDirectory(prefix="field") as folder:
        shell = ["sh", "-c", IN_TMPFS, folder, *command]
        return subprocess.run(
            [*NAMESPACE, *user, *ALONE, *shell],
            check=True,
            stdout=subprocess.PIPE,
            text=True,
            timeout=TIME_LIMIT_SECONDS,
        ).stdout


def measure(figure, name, items):
    program = [sys.executable, str(FIELD / "measure.py")]
    return json.loads(run_alone([*program, figure, name, str(items)]))


def fork_cost(stack, threads):
    program = str(supervisors.BUILD / "bench/field/fork_cost")
    call, child = run_alone([program, str(threads), stack]).split()
    return {"call": float(call), "child": float(child)}


def add(results, key, values):
    print(round(os.getloadavg()[0], 1), key, values, flush=True)
    results.append({"key": key, "values": values})


def main(rounds):
    build()
    results = []
    loads = []
    for _ in range(rounds):
        for figure, names, counts in PLAN:
            for items in counts:
                for name in names:
                    loads.append(os.getloadavg()[0])
                    values = measure(figure, name, items)
                    add(results, [figure, name, items], values)
        for stack in STACKS:
            for threads in THREADS:
                values = fork_cost(stack, threads)
                add(results, ["fork", stack, threads], values)
        RESULTS.write_text(
            json.dumps(
                {
                    "day": time.strftime("%Y-%m-%d"),
                    "loads": loads,
                    "results": results,
                }
            )
        )
    report.write(RESULTS)


if __name__ == "__main__":
    main(int(sys.argv[1]) if len(sys.argv) > 1 else DEFAULT_ROUNDS)
