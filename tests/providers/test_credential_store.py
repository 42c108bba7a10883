"""Keys in a real keyring, or in the file that stands in for it: key-tool in sessions of its own."""
import base64
import json
import os
import re
import shutil
import signal
import stat
import subprocess
import time

import pytest

from program import BIN, LIMIT

KEY = "sk-test-0123456789"
PASSWORD = "password"
DONE, MISSING, LOCKED = range(3)  # SecretOutcome
PROGRAMS = "dbus-daemon", "gnome-keyring-daemon", "gdbus"
BUS = """<busconfig><type>session</type><listen>unix:path={}</listen><policy context="default">
<allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/></policy></busconfig>"""


class Session:
    """A home, a session bus that starts nothing by itself, a keyring, and the person that it asks."""

    def __init__(self, home):
        self.home, self.data, self.file = home, home / "data", home / "data/credentials"
        own = "DISPLAY", "WAYLAND_DISPLAY", "VESK_SECRETS", "GNOME_KEYRING_CONTROL"
        self.environment = {name: value for name, value in os.environ.items() if name not in own}
        self.environment |= {"HOME": str(home), "DBUS_SESSION_BUS_ADDRESS": "disabled:"}
        for name in ("XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_RUNTIME_DIR"):
            (home / name).mkdir(0o700)
            self.environment[name] = str(home / name)
        # What libsecret itself never frees is known by its functions, and those are seen only by whole stacks.
        self.environment["ASAN_OPTIONS"] = os.environ.get("ASAN_OPTIONS", "") + ":fast_unwind_on_malloc=0"
        self.running = []
        self.bus = self.keyring = None

    def start(self, *command, given="", **options):
        """Not even a test that is killed leaves it behind."""
        pipes = {"stdin": subprocess.PIPE, "stdout": subprocess.PIPE, "stderr": subprocess.DEVNULL}
        process = subprocess.Popen(["setpriv", "--pdeathsig", "KILL", *command], env=self.environment, text=True,
                                   **pipes | options)
        self.running.append(process)
        process.stdin.write(given)
        return process

    def end(self, process):
        process.kill()
        process.communicate()
        self.running.remove(process)

    def start_bus(self):
        (self.home / "bus.conf").write_text(BUS.format(self.home / "bus"))
        self.bus = self.start("dbus-daemon", "--nofork", "--print-address", f"--config-file={self.home / 'bus.conf'}")
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = f"unix:path={self.home / 'bus'}"
        assert self.bus.stdout.readline()

    def seat(self, person):
        """Puts a person before the machine: declining, declining-at-first, slow, absent."""
        process = self.start(BIN / "tests/keyring-person", person, PASSWORD)
        self.environment["GNOME_KEYRING_TEST_PROMPTER"] = process.stdout.readline().strip()

    def start_keyring(self, *unlock):
        self.keyring = self.start("gnome-keyring-daemon", "--foreground", "--components=secrets", *unlock,
                                  given=PASSWORD if unlock else "")
        self.keyring.stdin.close()
        self.keyring.stdin = None
        subprocess.run(["gdbus", "wait", "--session", "--timeout", "15", "org.freedesktop.secrets"],
                       env=self.environment, check=True)

    def tool(self, *operations):
        return self.start(BIN / "tests/key-tool", self.data, *operations, stderr=subprocess.PIPE)

    @staticmethod
    def next(tool):
        """(result, milliseconds) of the next operation."""
        line = json.loads(tool.stdout.readline())
        return line["result"], line["ms"]

    @staticmethod
    def go_on(tool):
        tool.stdin.write("\n")
        tool.stdin.flush()

    def run(self, *operations):
        """The results of all operations in one process; `log` and `ms` are those of the last run."""
        tool = self.tool(*operations)
        out, self.log = tool.communicate(timeout=LIMIT)
        self.running.remove(tool)
        assert tool.returncode == 0, self.log
        lines = [json.loads(line) for line in out.split("\n") if line]
        self.ms = [line["ms"] for line in lines]
        return [line["result"] for line in lines]


@pytest.fixture
def session(folder):
    missing = [program for program in PROGRAMS if not shutil.which(program)]
    if missing:
        pytest.skip(f"{missing[0]} is not installed")
    session = Session(folder)
    yield session
    for process in session.running[::-1]:
        session.end(process)


@pytest.fixture
def unlocked(session):
    session.start_bus()
    session.start_keyring("--unlock")
    return session


@pytest.fixture
def locked(unlocked):
    """A key is saved, then the keyring is locked; gives a function that says who is at the machine."""
    assert unlocked.run("save", "a", KEY) == [True]
    unlocked.end(unlocked.keyring)

    def before(person=None):
        if person:
            unlocked.seat(person)
        unlocked.start_keyring()
        return unlocked
    return before


@pytest.mark.parametrize("secret", [KEY, "", "пароль-Ё-🔑 'b\" c\n\td\\ ", "x" * 50000])
def test_a_key_comes_back_exactly(unlocked, secret):
    assert unlocked.run("save", "VESK:1", secret) == [True]
    assert unlocked.run("read", "VESK:1", "ask", "VESK:1", "1000", "ask", "VESK:2", "1000") == [secret, DONE, MISSING]
    assert not unlocked.log and not unlocked.file.exists()


def test_a_key_is_replaced_and_removed(unlocked):
    assert unlocked.run("save", "a", "first", "save", "b", "other", "save", "a", "second", "read", "a") == [
        True, True, True, "second"]
    assert unlocked.run("remove", "a", "read", "a", "remove", "a", "read", "b") == [True, "", True, "other"]


def test_who_declines_to_make_a_keyring_has_no_key_saved(session):
    session.start_bus()
    session.seat("declining")
    session.start_keyring()
    assert session.run("save", "a", KEY, "read", "a") == [False, ""]
    assert "не создаёт связку ключей" in session.log and not session.file.exists()


def test_a_locked_keyring_is_not_taken_for_one_without_the_key(locked):
    session = locked()
    assert session.run("ask", "a", "60000", "read", "a", "save", "a", "new", "remove", "a", "remove", "b") == [
        LOCKED, "", False, False, False]
    assert max(session.ms) < 20000  # nobody is waited for
    assert "связка ключей заблокирована" in session.log and not session.file.exists()


def test_who_declines_is_not_asked_again_for_reading(locked):
    """The person would give the password on being asked a second time."""
    assert locked("declining-at-first").run("read", "a", "read", "a", "save", "b", "other", "read", "a") == [
        "", "", True, KEY]


@pytest.mark.parametrize("display, least", [({}, 2500), ({"DISPLAY": ":99"}, 4500)])
def test_a_person_is_waited_for_only_where_there_is_a_display(locked, display, least):
    session = locked("absent")
    session.environment |= display
    assert session.run("ask", "a", "2000") == [LOCKED]
    assert least <= session.ms[0] < (20000 if display else 4500)


def test_a_late_answer_of_the_person_counts_for_the_next_reading(locked):
    readings = 100
    session = locked("slow")
    tool = session.tool("save", "a", "new", *["pause", "read", "a"] * readings)
    assert session.next(tool)[0] is False
    for _ in range(readings):
        time.sleep(0.1)  # the person takes its time
        session.go_on(tool)
        session.next(tool)
        read, ms = session.next(tool)
        assert ms < 2500  # the person isn't waited for
        if read:
            break
    assert read == KEY  # what was told to have failed isn't done later on


def test_a_keyring_that_hangs_costs_three_seconds_once(unlocked):
    assert unlocked.run("save", "a", KEY) == [True]
    unlocked.keyring.send_signal(signal.SIGSTOP)
    tool = unlocked.tool("read", "a", "read", "a", "save", "a", "new", "pause", "read", "a")
    read, ms = unlocked.next(tool)
    assert read == "" and 2500 <= ms < 20000
    read, ms = unlocked.next(tool)
    assert read == "" and ms < 2500
    assert unlocked.next(tool)[0] is False
    unlocked.keyring.send_signal(signal.SIGCONT)
    unlocked.go_on(tool)
    unlocked.next(tool)
    assert unlocked.next(tool)[0] == KEY
    assert "не отвечает" in tool.communicate(timeout=LIMIT)[1] and tool.returncode == 0
    assert not unlocked.file.exists()


def test_the_end_of_the_bus_is_not_the_end_of_the_program(unlocked):
    tool = unlocked.tool("save", "a", KEY, "pause", "read", "a")
    assert unlocked.next(tool)[0] is True
    unlocked.end(unlocked.bus)
    unlocked.go_on(tool)
    unlocked.next(tool)
    assert unlocked.next(tool)[0] == ""
    tool.communicate(timeout=LIMIT)
    assert tool.returncode == 0


@pytest.mark.parametrize("address", ["disabled:", "autolaunch:", "unix:path=/nonexistent/bus", "a bus without it"])
def test_without_a_service_the_file_is_used(session, address):
    session.environment["DBUS_SESSION_BUS_ADDRESS"] = address
    if " " in address:
        session.start_bus()
    for operations, results in ((["save", "a", "ключ", "save", "b", KEY, "read", "b", "remove", "c"],
                                 [True, True, KEY, True]),
                                (["read", "a", "remove", "a", "read", "a", "read", "b"], ["ключ", True, "", KEY])):
        assert session.run(*operations) == results
        assert session.log.count("\n") == 1 and str(session.file) in session.log and KEY not in session.log
    assert stat.S_IMODE(session.file.stat().st_mode) == 0o600


def test_without_libsecret_the_file_is_used(unlocked):
    (unlocked.home / "libsecret-1.so.0").touch()  # the first that is found, and none that can be loaded
    unlocked.environment["LD_LIBRARY_PATH"] = str(unlocked.home)
    assert unlocked.run("save", "a", KEY, "read", "a") == [True, KEY]
    assert "libsecret не установлена" in unlocked.log and unlocked.file.exists()


def test_a_key_moves_from_the_file_to_the_service(session):
    # Only where the file may be used at all.
    session.environment["VESK_SECRETS"] = "service"
    assert session.run("save", "a", KEY, "read", "a", "remove", "a") == [False, "", False]
    assert not session.data.exists()
    session.environment["VESK_SECRETS"] = "file"
    assert session.run("save", "a", KEY, "save", "b", "other", "save", "c", KEY) == [True, True, True]
    session.start_bus()
    session.start_keyring("--unlock")
    del session.environment["VESK_SECRETS"]
    assert session.run("read", "a", "save", "a", "new", "read", "a", "remove", "c", "read", "c") == [
        KEY, True, "new", True, ""]
    session.environment["VESK_SECRETS"] = "file"
    assert session.run("read", "a", "read", "b", "read", "c") == ["", "other", ""]


def test_a_refused_file_gives_no_key_and_tells_why(session):
    assert session.run("save", "a", KEY) == [True]
    session.file.chmod(0o644)
    assert session.run("read", "a", "save", "a", "new", "remove", "a") == ["", False, False]
    assert session.log.count("0600") == 3 and KEY not in session.log


def test_processes_that_save_at_once_lose_nothing(session):
    session.environment["VESK_SECRETS"] = "file"
    large = "x" * 20000
    assert session.run("save", "a", large) == [True]
    names = [str(number) for number in range(100)]
    tools = [session.tool(*[word for name in names[first::4] for word in ("save", name, name)]) for first in range(4)]
    assert session.run(*["read", "a"] * 200) == [large] * 200  # a reader sees the file whole meanwhile
    assert all(session.next(tool)[0] for tool in tools * 25)
    assert session.run(*[word for name in names for word in ("read", name)]) == names


@pytest.mark.parametrize("place", ["file", "service"])
def test_nothing_of_a_key_stays_in_memory(unlocked, place):
    if b"__asan_init" in (BIN / "tests/key-tool").read_bytes():
        pytest.skip("the memory that the address checks keep is too much to be searched")
    unlocked.environment["VESK_SECRETS"] = place
    key = "sk-" + "".join(str(1000 + number ** 2) for number in range(40))
    assert unlocked.run("save", "a", key) == [True]
    tool = unlocked.tool("size", "a", "pause")
    assert unlocked.next(tool)[0] == len(key)
    # The middle only: what manages freed memory writes over the beginning of a block.
    sought = [text[60:84] for text in (key.encode(), base64.b64encode(key.encode()))]
    with open(f"/proc/{tool.pid}/maps") as maps, open(f"/proc/{tool.pid}/mem", "rb", 0) as memory:
        for first, end in re.findall(r"^(\w+)-(\w+) rw(?!.*\[v)", maps.read(), re.M):
            memory.seek(int(first, 16))
            page = memory.read(int(end, 16) - int(first, 16))
            assert not any(text in page for text in sought)
