"""The program with its window, as a process of its own: its options, its exit codes, and what it leaves behind."""
import json
import re
import shutil
import signal
import struct
import subprocess
import time
from pathlib import Path

import pytest

from program import until

PICTURES = "network-active question chat cycle files history settings agent-settings agent-report project-menu " \
           "rename-inline".split()
SCREENS = '{"screens": [{"name": "one", "x": 0, "y": 0, "width": %d, "height": %d, "logicalDpi": 96, ' \
          '"logicalBaseDpi": 96, "dpr": 1}]}'


def size_of(picture):
    """Width and height of a PNG; None when there is no such file."""
    return struct.unpack(">II", picture.read_bytes()[16:24]) if picture.exists() else None


def test_a_smoke_test_ends_by_itself(vesk):
    start = time.monotonic()
    ended = vesk.call("--smoke-test", "--data-dir", vesk.data)
    assert ended.code == 0 and "qrc:" not in ended.err
    assert time.monotonic() - start >= 2
    assert (vesk.data / "vesk.sqlite").exists() and not (vesk.data / "window.ini").exists()


@pytest.mark.parametrize("more, file, size", [
    ([], "shot.png", (1440, 900)),
    (["--compact-ui"], "shot.png", (1000, 720)),
    (["--settings", "--settings-agent", "planner", "--attach-file"], "shot.png", (1440, 900)),
    ([], "missing/shot.png", None),
])
def test_a_screenshot_is_taken(vesk, more, file, size):
    ended = vesk.call(*more, "--screenshot", vesk.folder / file, "--data-dir", vesk.data)
    assert ended.code == (0 if size else 1) and "qrc:" not in ended.err
    assert size_of(vesk.folder / file) == size


@pytest.fixture
def x_server():
    if not shutil.which("Xvfb"):
        pytest.skip("Xvfb is not installed")
    with subprocess.Popen(["Xvfb", "-displayfd", "1", "-screen", "0", "1600x1000x24", "-nolisten", "tcp"],
                          stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True) as server:
        yield {"DISPLAY": ":" + server.stdout.readline().strip(), "QT_QPA_PLATFORM": "xcb"}
        server.terminate()


@pytest.mark.parametrize("screen", ["none", "X"])
def test_the_self_test_works_the_whole_window(vesk, request, screen):
    shots = vesk.folder / "shots/of the window"
    ended = vesk.call("--self-test-ui", shots, environment=request.getfixturevalue("x_server") if screen == "X" else ())
    assert ended.code == 0 and "qrc:" not in ended.err, ended.said
    assert all(size_of(shots / f"{name}.png")[0] >= 1000 for name in PICTURES)
    assert json.loads((shots / "task-state.json").read_text())["phase"] == "COMPLETED"
    assert not (vesk.folder / "home/.local/share/VESK").exists()


def test_the_window_opens_where_nothing_can_be_drawn_by_opengl(vesk, x_server):
    broken = x_server | {"QT_XCB_GL_INTEGRATION": "none"}
    ended = vesk.call("--screenshot", vesk.folder / "shot.png", "--data-dir", vesk.data, environment=broken,
                      unset=["QT_QUICK_BACKEND"])
    assert ended.code == 0 and size_of(vesk.folder / "shot.png") == (1440, 900), ended.said


def test_the_self_test_says_when_a_picture_cannot_be_saved(vesk):
    (vesk.folder / "shots/cycle.png").mkdir(parents=True)
    assert vesk.call("--self-test-ui", "shots").code == 4
    assert (vesk.folder / "shots/chat.png").exists() and not (vesk.folder / "shots/files.png").exists()


@pytest.mark.parametrize("options, text, code", [
    (["--self-test-ui"], "", 1),
    (["--self-test-ui", ""], "", 1),
    (["--self-test-ui", "/proc/shots"], "", 1),
    (["--smoke-test", "--data-dir"], "Не указана папка данных", 1),
    (["--self-test-ui", "shots", "--data-dir"], "Не указана папка данных", 1),
    (["--smoke-test", "--data-dir", "/proc/data"], "Не удалось создать папку данных", 1),
    (["no screen"], "Экрана нет, окно открыть негде. Без окна работает vesk --run ЗАПРОС", 2),
    (["no library"], "Не удалось загрузить интерфейс: ", 2),
], ids=lambda value: " ".join(value) if isinstance(value, list) else "")
def test_what_cannot_be_started_says_so(vesk, options, text, code):
    how = {}
    if options == ["no screen"]:
        how["unset"] = "DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"
    elif options == ["no library"]:
        how["command"] = [shutil.copy(vesk.program, vesk.folder)]
    ended = vesk.call(*options, **how)
    assert ended.code == code and text in ended.err


def takes_requests_to_end(process):
    caught = re.search(r"SigCgt:\s*(\w+)", Path(f"/proc/{process.pid}/status").read_text())
    return caught and int(caught[1], 16) & 1 << signal.SIGTERM - 1


@pytest.mark.parametrize("stored, size, place, screen", [
    (None, (1440, 900), None, (1920, 1080)),
    ((120, 90, 1300, 750), (1300, 750), (120, 90), (1920, 1080)),
    ((1700, 900, 1300, 750), (1300, 750), (620, 330), (1920, 1080)),
    ((5000, 90, 1200, 720), (1200, 720), None, (1920, 1080)),  # on a screen that is gone: where it can be seen
    ((0, 0, 400, 300), (1000, 700), None, (1920, 1080)),
    (None, (1364, 728), None, (1366, 768)),
    ((10, 10, 1300, 750), (718, 410), (2, 10), (720, 450)),
])
def test_the_window_comes_back_as_large_as_it_was(vesk, stored, size, place, screen):
    ini = vesk.data / "window.ini"
    if stored:
        vesk.data.mkdir()
        ini.write_text("[General]\nplace=@Rect({} {} {} {})\n".format(*stored))
    (vesk.folder / "screens.json").write_text(SCREENS % screen)
    process = vesk.start("--data-dir", vesk.data, environment={"QT_QPA_PLATFORM": "offscreen:configfile=screens.json"})
    assert until(lambda: takes_requests_to_end(process))
    process.terminate()
    assert vesk.end(process).code == 0
    left, top, width, height = map(int, re.search(r"@Rect\((.*)\)", ini.read_text())[1].split())
    assert (width, height) == size and left < screen[0]
    assert place in (None, (left, top))


def test_a_second_start_shows_the_window_of_the_first(vesk):
    first = vesk.start("--data-dir", vesk.data)
    assert until(lambda: takes_requests_to_end(first))
    (vesk.folder / "link").symlink_to(vesk.data)
    ended = vesk.call("--data-dir", vesk.folder / "link")
    assert (ended.code, ended.said) == (0, "") and first.poll() is None
    assert vesk.call("--data-dir", vesk.data, "--smoke-test").code == 2
    first.terminate()
    assert vesk.end(first).code == 0


def test_a_run_is_stopped_in_order_when_the_program_is_ended(vesk):
    process = vesk.start("--self-test-ui", vesk.folder / "shots", "--data-dir", vesk.data)
    assert until(lambda: vesk.records["tasks"])
    process.terminate()
    assert vesk.end(process).code == 0
    assert vesk.records.phases == ["CANCELLED"]
