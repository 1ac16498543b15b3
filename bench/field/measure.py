#!/usr/bin/python3
"""One measurement: starts one supervisor, watches it, stops it, prints JSON.

measure.py <figure> <supervisor> <items>

Must run as the first process of a PID namespace, in an empty folder: then every
other process belongs to the supervisor or is a probe, and none outlives it.
`field.py` arranges that.
"""

import json
import mmap
import os
import pathlib
import shutil
import statistics
import struct
import sys
import time

import supervisors

FOREVER = -1
RECORD = struct.Struct("=qq")  # As in Record.h.
LIFE = struct.Struct("=qqqq")
LIVES = 127
LIVES_OFFSET = 32

POLL_SECONDS = 0.002
DEADLINE_SECONDS = 240
TIME_ENOUGH_TO_SETTLE = 0.3
IDLE_SECONDS = 20


def now():
    return time.clock_gettime_ns(time.CLOCK_MONOTONIC)


def wait_until(condition):
    deadline = time.monotonic() + DEADLINE_SECONDS
    while not condition():
        if time.monotonic() > deadline:
            raise TimeoutError
        time.sleep(POLL_SECONDS)


class Item:
    """An item's folder and its probe's record."""

    def __init__(self, path):
        path.mkdir(parents=True)
        (path / "run").symlink_to(pathlib.Path("probe").resolve())
        (path / "record").write_bytes(bytes(mmap.PAGESIZE))
        with open(path / "record", "r+b") as file:
            self.page = mmap.mmap(file.fileno(), mmap.PAGESIZE)

    def set_lifetime(self, nanoseconds):
        RECORD.pack_into(self.page, 0, nanoseconds, 0)

    def count(self):
        return RECORD.unpack_from(self.page)[1]

    def life(self, index):
        """First instruction, processor time until then, end, process id."""
        offset = LIVES_OFFSET + index % LIVES * LIFE.size
        return LIFE.unpack_from(self.page, offset)

    def lives(self):
        count = self.count()
        return [self.life(i) for i in range(max(0, count - LIVES), count)]


class Run:
    """A supervisor and its items, from the start to the end of the last process."""

    def __init__(self, name, count, lifetime):
        self.supervisor = supervisors.EVERY[name]()
        self.probe = str(pathlib.Path("probe").resolve())
        shutil.copy(supervisors.BUILD / "bench/field/probe", self.probe)
        paths = [pathlib.Path("items").resolve() / str(i) for i in range(count)]
        self.paths = paths
        self.items = [Item(path) for path in paths]
        for item in self.items:
            item.set_lifetime(lifetime)
        self.supervisor.prepare(paths)
        # runsvdir waits until a folder is a second old.
        os.utime("items", (0, 0))
        self.pid = self.start()
        wait_until(lambda: all(item.count() > 0 for item in self.items))

    def start(self):
        command = self.supervisor.command(self.paths)
        stamp = mmap.mmap(-1, mmap.PAGESIZE)
        pid = os.fork()
        if pid == 0:
            os.setsid()
            null = os.open(os.devnull, os.O_RDWR)
            for descriptor in range(3):
                os.dup2(null, descriptor)
            struct.pack_into("=q", stamp, 0, now())
            os.execv(command[0], command)
        self.stamp = stamp
        return pid

    def started(self):
        """When the supervisor was executed."""
        return struct.unpack_from("=q", self.stamp)[0]

    def processes(self):
        """The supervisor's own processes."""
        # A forked child that becomes a probe is missing from the second look.
        first = self.look()
        time.sleep(TIME_ENOUGH_TO_SETTLE)
        return sorted(first & self.look())

    def look(self):
        """All running processes, except this one and the probes."""
        pids = set()
        for entry in filter(str.isdigit, os.listdir("/proc")):
            try:
                program = os.readlink(f"/proc/{entry}/exe")
            except FileNotFoundError:
                continue  # It has just ended.
            if int(entry) != os.getpid() and program != self.probe:
                pids.add(int(entry))
        return pids

    def processor_times(self):
        """By process, in ns: all its threads, without its ended children."""
        times = {}
        for pid in self.look():
            try:
                # The kernel's number for the processor clock of a process.
                times[pid] = time.clock_gettime_ns(~pid << 3 | 2)
            except OSError:
                pass  # It has just ended.
        return times

    def stop(self):
        """Stops everything. Returns the time in ns until the last process ends."""
        begin = now()
        self.supervisor.stop(self.pid, self.paths)
        try:
            while True:
                os.wait()
        except ChildProcessError:
            return now() - begin


def used_between(before, after):
    """The time used by the processes that are in both. A forked child becomes
    a probe too soon to be in both."""
    return sum(after[pid] - before[pid] for pid in before.keys() & after.keys())


def restart(name, count):
    """Restarts each of the probes, which end at once, a few times."""
    run = Run(name, count, lifetime=0)
    wanted = 4 if name in map(lambda peer: peer.name, supervisors.PEERS) else 40
    wait_until(lambda: all(item.count() > 2 for item in run.items))
    counts = [item.count() for item in run.items]
    before = run.processor_times()
    wait_until(
        lambda: all(
            item.count() >= count + wanted
            for item, count in zip(run.items, counts)
        )
    )
    used = used_between(before, run.processor_times())
    gaps, children, restarts = [], [], 0
    for item, begin in zip(run.items, counts):
        restarts += item.count() - begin
        lives = item.lives()[:-1]
        children += [life[1] for life in lives[1:]]
        gaps += [after[0] - life[2] for life, after in zip(lives, lives[1:])]
    run.stop()
    return {
        "gap": statistics.median(gaps),
        "least gap": min(gaps),
        "own": used / restarts,
        "child": statistics.fmean(children),
    }


def kill(name, count):
    """Kills a probe from outside, soon after its start and then later."""
    run = Run(name, count, lifetime=FOREVER)
    item = run.items[0]

    def reaction(age_seconds):
        time.sleep(age_seconds)
        begun = item.count()
        killed = now()
        os.kill(item.life(begun - 1)[3], 9)
        wait_until(lambda: item.count() > begun)
        return item.life(begun)[0] - killed

    reaction(TIME_ENOUGH_TO_SETTLE)
    result = {"young": reaction(0.1), "old": reaction(3)}
    run.stop()
    return result


def proportional_kilobytes(pids):
    total = 0
    for pid in pids:
        rollup = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text()
        total += int(rollup.split("\nPss:")[1].split()[0])
    return total


def life(name, count):
    """Start, memory, libraries and stop."""
    run = Run(name, count, lifetime=FOREVER)
    start = max(item.life(0)[0] for item in run.items) - run.started()
    time.sleep(TIME_ENOUGH_TO_SETTLE)
    pids = run.processes()
    maps = "".join(pathlib.Path(f"/proc/{pid}/maps").read_text() for pid in pids)
    files = {line.split()[-1] for line in maps.splitlines()}
    return {
        "start": start,
        "memory": proportional_kilobytes(pids),
        "processes": len(pids),
        "libraries": sum(".so" in file for file in files),
        "stop": run.stop(),
    }


def switches(pids):
    total = 0
    for pid in pids:
        for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
            status = (task / "status").read_text()
            total += int(status.split("\nvoluntary_ctxt_switches:")[1].split()[0])
    return total


def idle(name, count):
    """The supervisor's activity while its items just run."""
    run = Run(name, count, lifetime=FOREVER)
    time.sleep(2)
    pids = run.processes()
    before = switches(pids), run.processor_times()
    time.sleep(IDLE_SECONDS)
    after = switches(pids), run.processor_times()
    run.stop()
    return {
        "wake-ups": after[0] - before[0],
        "time": used_between(before[1], after[1]),
    }


FIGURES = {"restart": restart, "kill": kill, "life": life, "idle": idle}

if __name__ == "__main__":
    figure, supervisor, items = sys.argv[1:]
    print(json.dumps(FIGURES[figure](supervisor, int(items))))
