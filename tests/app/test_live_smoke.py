"""vesk --live-smoke: a whole run against a real server that nobody attends."""
import json
import re

import pytest

from model import page, plan, spec

KEY = "sekret-Ключ"
GAME = "<!doctype html><title>Змейка</title>"


@pytest.fixture
def smoke(vesk, model):
    """Runs on the scripted server with the key in the store."""
    model.answers = {"planner": plan(("code", {"path": "index.html"})), "coding": page("index.html", GAME)}
    # A check of the page in a browser would wait for a permission; none is found on this path.
    vesk.environment |= {"VESK_ALEM_URL": model.url, "PATH": "/nowhere"}

    def run(*folder, key=KEY):
        if key:
            vesk.keep_key(model.url, key)
        return vesk.call("--data-dir", vesk.data, "--live-smoke", *folder)
    return run


def test_a_run_goes_to_its_end_unattended(vesk, model, smoke):
    model.answers["orchestrator"] = lambda given: spec(
        questions=[] if given["task"].get("clarification") else ["Какого размера?"], clarification_options=["Да"])
    ended = smoke(vesk.project)
    result = (vesk.project / "live-result.json").read_text()
    state = json.loads(result)
    assert (ended.code, state["phase"]) == (0, "COMPLETED"), ended.said
    assert result.startswith("{\n    ")
    assert vesk.files()["index.html"] == GAME.encode()
    task = state["spec"]
    assert task["original_request"].startswith("Создай качественную игру змейка в одном локальном index.html: чёрно")
    assert task["original_request"].endswith("Технические решения выбери сам, уточнения не нужны.")
    answer = model.inputs[1]["task"]["clarification"]
    assert "Исправьте все технические ошибки самостоятельно." in answer
    assert answer.endswith("Выберите разумные значения самостоятельно.")
    assert state["token_limit"] == 1000000
    body = model.bodies[0]
    assert (body["model"], body["temperature"]) == ("qwen3-8", 0.2)
    assert {headers["Authorization"].encode("latin1").decode() for headers in model.headers} == {"Bearer " + KEY}

    *lines, last = ended.err.rstrip().split("\n")
    assert re.fullmatch(r"RESULT COMPLETED elapsed_ms \d+", last)
    logged = [re.fullmatch(r"\d+ (PhaseChanged|AgentStarted|AgentFinished|RetryScheduled) .+", line) for line in lines]
    assert all(logged) and {"PhaseChanged", "AgentStarted", "AgentFinished"} == {line[1] for line in logged}
    assert not (vesk.data / "vesk.sqlite").exists()


@pytest.mark.parametrize("where, key, code", [(["project"], None, 2), ([], KEY, 2), ([""], KEY, 2),
                                             (["", "--live-smoke", "project"], KEY, 2), (["/proc/x"], KEY, 1)])
def test_without_a_folder_or_a_key_nobody_is_asked(vesk, model, smoke, where, key, code):
    assert smoke(*where, key=key).code == code
    assert not model.bodies and not vesk.project.exists()


def test_a_run_that_fails_says_so(vesk, model, smoke):
    model.broken = 500, b"{}"
    (vesk.project / "live-result.json").mkdir(parents=True)  # the result cannot be written, and that changes nothing
    ended = smoke("project")  # seen from the current folder
    assert ended.code == 1
    assert "\nRESULT FAILED elapsed_ms " in ended.err and " RetryScheduled " in ended.err
