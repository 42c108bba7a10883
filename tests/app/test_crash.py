"""What is left when the program is killed, or its disk is full, at any moment of a run: before any system call
that writes. VESK_SLOW_TESTS=1 tries all of them instead of a sample."""
import os
import random
import re
import tempfile
from collections import Counter, defaultdict
from contextlib import contextmanager
from pathlib import Path

import pytest

from program import Vesk

SLOW = "VESK_SLOW_TESTS" in os.environ
SAMPLE = 15  # of the many calls that are plain writes
WRITING = "write,pwrite64,fsync,fdatasync,rename,renameat,renameat2,link,linkat,unlink,unlinkat,ftruncate,fallocate," \
          "mkdir,mkdirat"
ENDS = "COMPLETED", "ERROR", "CANCELLED", "INTERRUPTED"
NO_SPACE = "database or disk is full|disk I/O error|unable to open|Не удалось (заменить|записать) файл|записан не полностью"
REFUSAL = "Файл изменён вне программы или ей не известен: |[Фф]айлы проекта изменены вне программы"
pytestmark = pytest.mark.timeout(0 if SLOW else 300)


@contextmanager
def fresh():
    with tempfile.TemporaryDirectory(prefix="vesk-") as name:
        yield Vesk(Path(name))


def traced(vesk, *options):
    return vesk.run(vesk.calculator, "--json", command=["strace", "-f", *options, vesk.program],
                    environment={"ASAN_OPTIONS": "detect_leaks=0"})


@pytest.fixture(scope="module")
def versions():
    """By file, all contents that an undisturbed run gives it."""
    found = defaultdict(set)
    with fresh() as vesk:
        assert vesk.run(vesk.calculator).code == 0
        for revision in vesk.records["file_revisions"]:
            found[revision["path"]].add(revision["content"].encode())
    assert {name: len(contents) for name, contents in found.items()} == {"calculator.html": 2, "README-calculator.md": 1}
    return dict(found)


@pytest.fixture(scope="module")
def writes():
    """(call, number) of the calls that an undisturbed run makes; of plain writes only a sample."""
    with fresh() as vesk:
        try:
            ended = traced(vesk, "-o", "log", "-e", "trace=" + WRITING)
        except FileNotFoundError:
            pytest.skip("there is no strace")
        if ended.code:
            pytest.skip("strace may not trace")
        counts = Counter(re.findall(r"^\d+ +(\w+)\(", (vesk.folder / "log").read_text(errors="replace"), re.M))
    rows = []
    for call, count in counts.items():
        few = SLOW or "write" not in call or count <= SAMPLE
        rows += [(call, number) for number in (range(1, count + 1) if few else
                                               sorted(random.sample(range(1, count + 1), SAMPLE)))]
    return rows


def check(vesk, ended, versions):
    """All that must hold in these folders after a run that was cut off."""
    assert not vesk.alive()
    records, files = vesk.records, vesk.files()
    events = records["events"]
    assert all(event["type"] == "Result" or event in events for event in ended.events), "printed and not stored"
    phases = [event["message"] for event in events if event["type"] == "PhaseChanged"]
    killed = records["tasks"][-1] if records["tasks"] else None
    if killed:
        assert killed["phase"] in phases[-2:]
        assert killed["spec"]["original_request"] == vesk.calculator
    else:
        assert len(phases) <= 1
    for name, content in files.items():
        assert re.fullmatch(r"\.vesk-.*\.tmp", name) or content in versions[name], f"{name} is half written"

    # The same folders serve the next run. A file that was left without its record is the user's: it is refused, or
    # becomes a revision of theirs before it is written over.
    recorded = {file["path"]: file["content"].encode() for file in records["files"]}
    whole = all(files.get(name) == recorded.get(name) for name in versions)
    after = vesk.run(vesk.calculator)
    assert (after.code, bool(re.search(REFUSAL, after.said))) in ((0, False), (1, True)), after.said
    assert after.code == 0 or not whole
    kept = [row["content"].encode() for row in vesk.records["file_revisions"]]
    assert after.code == 1 or all(content in kept for name, content in files.items() if name in versions)
    assert vesk.files().keys() <= versions.keys()
    if killed:
        records = vesk.records
        task, = (task for task in records["tasks"] if task["id"] == killed["id"])
        assert task["phase"] in ("INTERRUPTED", "COMPLETED", "FAILED")
        runs = {run["id"]: run["status"] for run in records["agent_runs"] if run["task_id"] == task["id"]}
        known = {run["id"]: run["status"] for run in task["runs"]}
        assert all(status in ENDS and known.get(run) == status for run, status in runs.items())


def test_a_run_killed_at_a_write_leaves_only_what_is_whole(versions, writes):
    for call, number in writes:
        print(call, number)  # shown when it fails
        with fresh() as vesk:
            inject = f"inject={call}:signal=KILL:when={number}"
            check(vesk, traced(vesk, "-o", "/dev/null", "-e", "trace=" + call, "-e", inject), versions)


def test_a_disk_that_fills_up_ends_the_run_in_order(versions, writes):
    for call, number in writes:
        if call not in ("pwrite64", "ftruncate", "linkat", "fsync"):
            continue
        print(call, number)
        with fresh() as vesk:
            inject = f"inject={call}:error=ENOSPC:when={number}+"
            ended = traced(vesk, "-o", "/dev/null", "-e", "trace=" + call, "-e", inject)
            completed = bool(ended.events) and ended.events[-1]["message"] == "COMPLETED"
            assert ended.code == (0 if completed else 1), ended.said
            assert completed or re.search(NO_SPACE, ended.said)
            check(vesk, ended, versions)
