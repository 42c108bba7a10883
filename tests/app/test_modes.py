"""The modes that are no task and no window of their own: what they say and how they end."""
import json
import re
import shutil
import subprocess
from pathlib import Path

import pytest

WRONG = "JavaScript должен вернуть массив фигур. "


@pytest.mark.parametrize("option", """--run --self-test-ui --workflow-demo --self-test-background --probe-mcp
    --probe-skill --connect-qwen-environment --live-smoke --media-job --background-worker --data-dir --settings
    --settings-agent --attach-file --compact-ui --screenshot --smoke-test --version""".split())
def test_the_help_has_every_option(vesk, option):
    assert option in vesk.call("--help").out.split()


def test_the_background_worker_answers_line_by_line(vesk):
    lines = [
        b"nothing",
        b'{"generation":"as it came","code":"this.n = 1 + (this.n||0); return [{t,w,h}, n]","t":0.5,"w":4,"h":3}',
        b'{"generation":2,"code":"this.n = 1 + (this.n||0); return [{t,w,h}, n]"}',
        b'{"generation":3,"code":"return n"}',
    ]
    ended = subprocess.run([vesk.program, "--background-worker"], input=b"\n".join(lines), capture_output=True,
                           env=vesk.environment, timeout=60)
    assert [json.loads(line) for line in ended.stdout.splitlines()] == [
        {"error": WRONG + "undefined"},
        {"generation": "as it came", "shapes": [{"t": 0.5, "w": 4, "h": 3}, {}]},
        {"generation": 2, "shapes": [{"t": 0, "w": 0, "h": 0}, {}]},
        {"generation": 3, "error": WRONG + "2"},
    ]
    assert (ended.returncode, ended.stderr) == (0, b"")


def test_the_background_worker_is_confined_and_stays_small(vesk):
    request = json.dumps({"code": "return Array.from({length:200},(_,i)=>({x:w*(i+1)/13,y:h/2+Math.sin(t*.5+i)}));"})
    worker = vesk.start("--background-worker", stdin=subprocess.PIPE)

    def frames(count):
        for _ in range(count):
            worker.stdin.write(request.encode() + b"\n")
            worker.stdin.flush()
            assert b"shapes" in worker.stdout.readline()
        return {name: (Path("/proc") / str(worker.pid) / name).read_text() for name in ("status", "limits", "maps")}

    def memory(facts):
        return int(re.search(r"VmRSS:\s*(\d+)", facts["status"])[1])

    first, last = frames(1), frames(1000)
    assert "Seccomp:\t2" in last["status"] and "Threads:\t1" in last["status"]
    if "libasan" not in last["maps"]:
        assert memory(last) < memory(first) + 4000 and memory(last) < 25_000_000 / 1024
        assert re.search(r"Max address space +536870912 ", last["limits"])
    assert not re.search("libQt6(Gui|Quick)", last["maps"])
    worker.stdin.close()
    assert worker.wait() == 0


@pytest.mark.parametrize("works, code, text", [
    (True, 0, "Background render, runaway timeout and recovery passed"),
    (False, 5, "Background self-test timed out"),
])
def test_the_background_is_tried_out(vesk, works, code, text):
    # A program without its libraries has no worker.
    ended = vesk.call("--self-test-background", command=None if works else [shutil.copy(vesk.program, vesk.folder)])
    assert (ended.code, text in ended.err) == (code, True), ended.said
    assert not (vesk.folder / "home").exists()


def test_a_skill_is_tried_without_a_trace(vesk):
    ended = vesk.call("--probe-skill", "http://127.0.0.1/none")
    assert ended.code == 6 and "Skill fetch failed" in ended.err
    assert not (vesk.folder / "home/.local/share/VESK").exists()
