"""Runs of the real program in folders of their own, and what they leave behind."""
import hashlib
import json
import os
import shutil
import signal
import sqlite3
import subprocess
import tempfile
import time
import uuid
from collections import defaultdict
from pathlib import Path

import pexpect
import pytest
from pexpect.fdpexpect import fdspawn

BIN = Path(os.environ.get("VESK_BIN", Path(__file__).parent.parent.parent / "build/bin"))
LIMIT = 60  # seconds for what takes one; not part of any behaviour

# Whoever starts the tests may ignore these, and a child would inherit that.
signal.signal(signal.SIGINT, signal.default_int_handler)
for number in (signal.SIGTERM, signal.SIGHUP):
    signal.signal(number, signal.SIG_DFL)


def until(condition, limit=LIMIT):
    """Waits for something outside of this process that sends no signal; gives what the condition gave at last."""
    end = time.monotonic() + limit
    while not (found := condition()) and time.monotonic() < end:
        time.sleep(0.01)
    return found


class Ended:
    """How a process ended and what it printed; a negative code is the signal that killed it."""

    def __init__(self, code, out, err):
        self.code, self.out, self.err = code, out.decode(errors="replace"), err.decode(errors="replace")
        self.said = self.out + self.err

    @property
    def events(self):
        """The lines of standard output that are whole, as JSON."""
        return [json.loads(line) for line in self.out[:self.out.rfind("\n") + 1].split("\n") if line]


class Records(defaultdict):
    """The tables of a data folder, each a list of records in their order. They are read from a copy and without the
    program's own code: looking at a database that a killed process has left repairs it."""

    def __init__(self, data):
        super().__init__(list)
        with tempfile.TemporaryDirectory() as copy:
            for name in ("vesk.sqlite", "vesk.sqlite-wal"):
                if (data / name).exists():
                    shutil.copy(data / name, copy)
            if not Path(copy, "vesk.sqlite").exists():
                return
            database = sqlite3.connect(Path(copy, "vesk.sqlite"))
            assert database.execute("PRAGMA integrity_check").fetchone() == ("ok",)
            for (name,) in database.execute("SELECT name FROM sqlite_master WHERE type = 'table'").fetchall():
                self[name] = [json.loads(body) for (body,) in
                              database.execute(f"SELECT body FROM {name} ORDER BY rowid")]
            database.close()

    @property
    def phases(self):
        return [task["phase"] for task in self["tasks"]]


class Vesk:
    """The program with folders of its own. `command` may stand for another program or put one in front of it."""
    calculator = "Создай простое приложение-калькулятор."  # makes two files
    build = "Собери проект"  # runs the build command
    program = str(BIN / "vesk")

    def __init__(self, folder):
        self.folder, self.project, self.data = folder, folder / "project", folder / "data"
        self.tag = f"VESK_TEST_TAG={uuid.uuid4()}"
        self.environment = {name: value for name, value in os.environ.items() if not name.startswith("XDG_")}
        self.environment |= {"HOME": str(folder / "home"), "VESK_SECRETS": "file", "VESK_TEST_TAG": self.tag[14:]}

    def arguments(self, request, *more):
        """--run in these folders, with a demonstration model that answers at once unless `more` says otherwise."""
        usual = [] if "--mock-delay" in more else ["--mock-delay", "0"]
        return ["--run", request, "--project", self.project, "--data-dir", self.data, *usual, *more]

    @staticmethod
    def shell(script):
        """A build command for the shell, as an option."""
        return "--build-command", json.dumps({"program": "/bin/sh", "arguments": ["-c", script]})

    def start(self, *arguments, command=None, environment=(), unset=(), **options):
        environment = {**self.environment, **dict(environment)}
        for name in unset:
            environment.pop(name, None)
        usual = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "cwd": self.folder}
        return subprocess.Popen([*(command or [self.program]), *arguments], env=environment, **usual | options)

    @staticmethod
    def end(process, limit=LIMIT):
        try:
            out, err = process.communicate(timeout=limit)
        except subprocess.TimeoutExpired:
            process.kill()
            pytest.fail(f"{process.args} does not end: {process.communicate()}")
        return Ended(process.returncode, out or b"", err or b"")

    def call(self, *arguments, **options):
        return self.end(self.start(*arguments, **options))

    def run(self, request, *more, **options):
        return self.call(*self.arguments(request, *more), **options)

    def keep_key(self, url, key):
        """Puts the key for this server into the store."""
        target = "VESK:" + hashlib.sha256(url.encode()).hexdigest()
        saved = self.call(self.data, "save", target, key, command=[BIN / "tests/key-tool"])
        assert json.loads(saved.out)["result"] is True

    def terminal(self, *arguments):
        """The program on a terminal, with somebody before it."""
        master, slave = os.openpty()
        process = self.start(*arguments, stdin=slave, stdout=slave, stderr=slave)
        os.close(slave)
        terminal = fdspawn(master, encoding="utf-8", timeout=LIMIT)
        terminal.process = process
        return terminal

    def code(self, terminal):
        terminal.expect(pexpect.EOF)
        terminal.close()
        return self.end(terminal.process).code

    def alive(self):
        """All that was started here and lives, however it detached itself; a zombie has no environment any more."""
        found = []
        for process in Path("/proc").glob("[0-9]*"):
            try:
                if self.tag.encode() in (process / "environ").read_bytes().split(b"\0"):
                    found.append(int(process.name))
            except OSError:
                pass  # gone meanwhile, or somebody else's
        return found

    @property
    def records(self):
        return Records(self.data)

    def files(self):
        """The project's files by name, hidden ones too."""
        return {str(path.relative_to(self.project)): path.read_bytes() for path in self.project.rglob("*")
                if path.is_file()}
