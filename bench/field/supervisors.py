"""How to make each supervisor keep a folder of items running.

An item is a folder items/0, items/1, ... with the program "run" in it. runit,
s6 and daemontools use such folders as they are; the others get a configuration
that names these programs. Every class prepares its configuration in the current
folder, gives the command that starts the supervisor, and stops it.
"""

import json
import os
import pathlib
import signal
import subprocess

BUILD = pathlib.Path(__file__).resolve().parents[2] / "build" / "bench"
STAGE = BUILD / "stage" / "Contents"
SDK_NAME = "bench"


class Launcher:
    name = "launcher"
    level = "ERROR"
    environment = {}

    def prepare(self, items):
        document = {
            str(i): {"name": f"item-{i}", "program": str(item / "run")}
            for i, item in enumerate(items)
        }
        pathlib.Path("items.json").write_text(json.dumps(document))
        data = pathlib.Path("Library/Application Support") / SDK_NAME
        data.mkdir(parents=True)
        (data / "log.ini").write_text(f"[LOG]\nLEVEL={self.level}\n")
        (STAGE / "Frameworks" / "qvxapi.ini").write_text(
            f"[SDK]\nNAME={SDK_NAME}\n"
        )
        os.environ["HOME"] = os.getcwd()
        os.environ.update(self.environment)

    def command(self, items):
        return [str(STAGE / "MacOS" / "launcher"), "bench", "items.json"]

    def stop(self, pid, items):
        os.kill(pid, signal.SIGTERM)


class LauncherDebug(Launcher):
    name = "launcher, DEBUG"
    level = "DEBUG"


class LauncherDefaultStacks(Launcher):
    name = "launcher, default stacks"
    environment = {"LD_PRELOAD": str(BUILD / "bench/field/libdefault_stacks.so")}

    def stop(self, pid, items):
        os.kill(-1, signal.SIGKILL)  # Only its start is measured.


class BareLoop:
    name = "bare loop"

    def prepare(self, items):
        pass

    def command(self, items):
        programs = [str(item / "run") for item in items]
        return [str(BUILD / "bench/field/bare_loop"), *programs]

    def stop(self, pid, items):
        os.kill(-1, signal.SIGKILL)


class Runit:
    name = "runit"

    def prepare(self, items):
        pass

    def command(self, items):
        return ["/usr/bin/runsvdir", "items"]

    def stop(self, pid, items):
        os.kill(pid, signal.SIGHUP)


class S6:
    name = "s6"

    def prepare(self, items):
        pass

    def command(self, items):
        return ["/usr/bin/s6-svscan", "-c", str(len(items) + 8), "items"]

    def stop(self, pid, items):
        os.kill(pid, signal.SIGTERM)


class Daemontools:
    name = "daemontools"

    def prepare(self, items):
        pass

    def command(self, items):
        return ["/usr/bin/svscan", "items"]

    def stop(self, pid, items):
        os.kill(pid, signal.SIGTERM)
        subprocess.run(["/usr/bin/svc", "-dx", *map(str, items)], check=True)


class Supervisor:
    name = "supervisor"

    # Without "startsecs=0" it would give up an item after three quick ends.
    PROGRAM = """
[program:item-{}]
command={}/run
startsecs=0
autorestart=true
stdout_logfile=NONE
stderr_logfile=NONE
"""
    DAEMON = """[supervisord]
nodaemon=true
user=root
minfds=16384
logfile=supervisord.log
pidfile=supervisord.pid
"""

    def prepare(self, items):
        programs = [self.PROGRAM.format(i, item) for i, item in enumerate(items)]
        pathlib.Path("supervisord.conf").write_text(
            self.DAEMON + "".join(programs)
        )

    def command(self, items):
        return ["/usr/bin/supervisord", "-c", "supervisord.conf"]

    def stop(self, pid, items):
        os.kill(pid, signal.SIGTERM)


PEERS = [Runit, S6, Daemontools, Supervisor]
EVERY = {
    kind.name: kind
    for kind in [Launcher, LauncherDebug, LauncherDefaultStacks, BareLoop, *PEERS]
}
