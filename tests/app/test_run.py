"""vesk --run: one task without a window, from the command line to the exit code."""
import os
import pty
import re
import shutil
import signal
import sqlite3
import subprocess
import time
from contextlib import closing

import pexpect
import pytest

from model import page, plan, spec, tool
from program import Records, until

SERVER = ["--endpoint", "http://127.0.0.1:1/v1", "--model", "m"]
TOGETHER = "--endpoint и --model указываются вместе"
BUDGET = "--budget: нужно целое число от 0 до 1000000000000"
WITH_VALUE = "--project --budget --build-command --answer --mock-delay --endpoint --model --key-env".split()


@pytest.mark.parametrize("arguments, text", [
    *((["--run", *request], "--run: не указано значение") for request in ([], [""], [" \t\n "], ["--json"])),
    (["--run", "x", "--jsno"], "Неизвестный параметр: --jsno"),
    (["--run", "x", "запрос"], "Неизвестный параметр: запрос"),
    *((["--run", "x", name, *value], name + ": не указано значение") for name in WITH_VALUE for value in ([], [""])),
    (["--run", "x", "--answer", " "], "--answer: не указано значение"),
    (["--run", "x", "--data-dir", "--json"], "--data-dir: не указано значение"),
    (["--run", "x", *SERVER[:2]], TOGETHER),
    (["--run", "x", *SERVER[2:]], TOGETHER),
    (["--run", "x", "--key-env", "HOME"], "--key-env: нужен и --endpoint"),
    (["--run", "x", *SERVER, "--key-env", "VESK_NO_KEY"], "--key-env: переменная VESK_NO_KEY не задана"),
    (["--run", "x", "--project", "a", "--project", "b"], "--project: указан дважды"),
    (["--run", "x", "--json", "--json"], "--json: указан дважды"),
    (["--run", "x", "--run", "другой"], "--run: указан дважды"),
    *((["--run", "x", "--budget", number], BUDGET) for number in ("-1", "1000000000001", "9" * 20, "1e6", "много")),
    (["--run", "x", "--mock-delay", "60001"], "--mock-delay: нужно целое число от 0 до 60000"),
    *((["--run", "x", "--build-command", command], "--build-command: нужен объект") for command in (
        "{", "[]", "{}", '{"program":"","arguments":[]}', '{"program":"/bin/true"}',
        '{"program":"/bin/true","arguments":[1]}')),
    *((["--run", "x", name, b"p\xff"], name + ": имя папки должно быть в кодировке UTF-8")
      for name in ("--project", "--data-dir")),
], ids=lambda value: " ".join(map(str, value))[-40:] if isinstance(value, list) else "")
def test_a_command_line_that_is_not_understood_is_refused(vesk, arguments, text):
    ended = vesk.call(*arguments)
    assert (ended.code, ended.out) == (2, "") and ended.err.startswith(text)
    assert ended.err.rstrip().endswith("vesk --help")
    assert not list(vesk.folder.iterdir())


def test_help_and_version_are_printed_without_anything_else(vesk):
    help = vesk.call("--run", "x", "--unknown", "--help")
    version = vesk.call("--version", "--run", "x")
    assert (help.code, version.code, help.err + version.err) == (0, 0, "")
    assert help.out.startswith("VESK — команда агентов") and "vesk --run ЗАПРОС" in help.out
    assert version.out.split()[0] == "VESK" and version.out.count("\n") == 1
    options = "--project --data-dir --endpoint --model --key-env --budget --build-command --answer --simulate " \
              "--accept-edits --allow-commands --json --mock-delay"
    assert all(f"\n  {option} " in help.out for option in options.split())


@pytest.mark.parametrize("request_, more, code", [
    ("a\x01\x1b[31m\r\n\x7f\x85\u202e", [], 0),
    ("--unknown", [], 0),
    ("x" * 131071, [], 1),
    ("x", ["--budget", "0"], 1),
    ("x", ["--budget", "1000000000000"], 0),
    ("x", ["--answer", "я" * 50000], 1),
], ids=["control characters", "an option in words", "as long as may be", "no budget", "all budget", "a long answer"])
def test_any_request_ends_in_order(vesk, request_, more, code):
    ended = vesk.run(request_, *more)
    assert ended.code == code, ended.said
    task = vesk.records["tasks"][-1]
    assert task["spec"]["original_request"] == request_
    assert task["phase"] == ("FAILED" if code else "COMPLETED")
    assert ("Почему работа остановилась" in ended.out) == bool(code)


def test_the_run_is_told_on_one_stream_and_reported_on_the_other(vesk):
    ended = vesk.run(vesk.calculator)
    assert ended.code == 0
    assert ended.out.startswith("Задача завершена.")
    lines = ended.err.split("\n")
    told = "Разбираюсь в задаче.", "Ответ: Да, локально и без аккаунта", "Составляю план.", "Готовлю структуру."
    assert [line for line in lines if line in told] == [told[0], told[1], told[0], *told[2:]]
    records = vesk.records
    kinds = [message.get("kind", message["role"]) for message in records["messages"]]
    assert (kinds[0], kinds.count("file"), kinds[-1]) == ("user", 3, "report")
    assert all(message["content"] in ended.said + vesk.calculator for message in records["messages"])
    note, = records["memory_entries"]
    assert note["id"] == "work-note:" + records["tasks"][-1]["id"]
    assert "\nЭтап: COMPLETED\nСоздать калькулятор: COMPLETED calculator.html\n" in note["text"]
    assert set(vesk.files()) == {"calculator.html", "README-calculator.md"}


def test_json_is_one_event_a_line_and_the_state_last(vesk):
    ended = vesk.run("строка\nи \u2028 ещё", "--json")
    assert (ended.code, ended.err) == (0, "")
    *events, result = ended.events
    keys = {"data", "id", "message", "task_id", "time", "type"}
    assert all(event.keys() == keys for event in events) and result.keys() == keys | {"report", "evidence", "exit_code"}
    assert result["report"].startswith("Задача завершена.") and result["exit_code"] == 0
    assert events == vesk.records["events"]
    assert (result["type"], result["message"], result["data"]["phase"]) == ("Result", "COMPLETED", "COMPLETED")
    assert result["exit_code"] == 0 and result["report"].startswith("Задача завершена.")
    assert result["task_id"] == result["data"]["id"] == events[0]["task_id"]


@pytest.mark.parametrize("json", [False, True])
def test_a_result_that_cannot_be_written_is_no_success(vesk, json):
    with open("/dev/full", "wb") as full:
        ended = vesk.run(vesk.calculator, *["--json"] * json, stdout=full)
    assert ended.code == 1
    assert "Не удалось вывести результат: стандартный вывод закрыт или переполнен." in ended.err
    assert vesk.records.phases == ["COMPLETED"]
    assert vesk.data.stat().st_mode & 0o777 == 0o700


@pytest.mark.parametrize("json", [False, True])
def test_a_simulated_run_prints_the_plan_and_writes_nothing(vesk, json):
    ended = vesk.run(vesk.calculator, "--simulate", *["--json"] * json)
    plan = "План\n\n1. Создать калькулятор — calculator.html\n2. Написать инструкцию — README-calculator.md\n"
    assert ended.code == 0
    assert ended.out.startswith("{") if json else ended.out == plan
    assert not vesk.files() and vesk.records.phases == ["CANCELLED"]


def test_a_plan_may_have_nodes_without_files(vesk, model):
    model.answers["planner"] = plan(tool("/bin/true"))
    ended = vesk.run("x", "--simulate", *model.options())
    assert (ended.code, ended.out) == (0, "План\n\n1. Узел 1\n")
    # What fails before there is a plan is reported as ever.
    model.broken = 400, b"{}"
    assert "Почему работа остановилась" in vesk.run("x", "--simulate", *model.options()).out


def test_answers_are_taken_in_order_instead_of_the_first_option(vesk):
    ended = vesk.run(vesk.calculator, "--answer", "Да", "--answer", "Выводить отдельное предупреждение")
    assert ended.code == 0 and "\nОтвет: Да\n" in ended.err
    assert b"alert('\xd0\x9d\xd0\xb0 \xd0\xbd\xd0\xbe\xd0\xbb\xd1\x8c" in vesk.files()["calculator.html"]


def test_who_asks_the_same_again_and_again_is_not_answered_for_ever(vesk, model):
    model.answers["orchestrator"] = spec(questions=["Какого цвета?"], clarification_options=["Белый", "Чёрный"])
    ended = vesk.run("x", "--answer", "Синий", *model.options())
    assert ended.code == 4
    assert re.findall("Ответ: (.*)", ended.err) == ["Синий", "Белый", "Белый", "Белый"]
    assert "Нужен ответ на вопрос (--answer):\nКакого цвета?\n  1) Белый\n  2) Чёрный\n" in ended.err
    model.asked.clear()
    model.answers["orchestrator"] = lambda given: spec(questions=[f"Вопрос {len(model.asked)}?"],
                                                       clarification_options=["Да"])
    assert vesk.run("x", *model.options()).code == 4 and len(model.asked) == 21


def test_a_question_without_options_and_answer_ends_the_run(vesk, model):
    model.answers["orchestrator"] = spec(questions=["Какого\x1b цвета?"], clarification_options=["  "])
    ended = vesk.run("x", *model.options())
    assert ended.code == 4
    assert "\nНужен ответ на вопрос (--answer):\nКакого\\u{1b} цвета?\n" in ended.err
    assert vesk.records.phases == ["CANCELLED"] and model.asked == ["orchestrator"]


@pytest.mark.parametrize("typed, code", [
    (["да\n"], 0),
    (["  ДА \n"], 0),
    (["нет\n"], 1),
    (["yes\n", "\n", "дада\n", "да\n"], 0),
    (["что?\nда\n"], 0),
    (["\x04"], 3),
], ids=["yes", "in other letters", "no", "first something else", "two lines at once", "end of input"])
def test_a_command_is_asked_for_on_a_terminal(vesk, typed, code):
    terminal = vesk.terminal(*vesk.arguments(vesk.build, *vesk.shell('echo ran > ran # \x1b[8m\u202e\xa0" \\')))
    terminal.expect_exact(r'"/bin/sh" "-c" "echo ran > ran # \u{1b}[8m\u{202e}\u{a0}\" \\"')
    terminal.expect_exact(f"Папка:\r\n  {vesk.project}\r\n")
    for number, line in enumerate(typed):
        terminal.expect_exact("Введите «да» или «нет»." if number else "Выполнить? (да/нет)")
        terminal.send(line)
    assert vesk.code(terminal) == code
    assert ("ran" in vesk.files()) == (code == 0)


def test_two_commands_are_asked_for_one_after_the_other(vesk, model):
    model.answers["planner"] = plan(tool("/usr/bin/touch", "one"), tool("/usr/bin/touch", "two"))
    terminal = vesk.terminal(*vesk.arguments("x", *model.options()))
    for name, typed in ("one", "да\nда\n"), ("two", "нет\n"):  # the second yes came before its question
        terminal.expect(r'"/usr/bin/touch" "(\w+)"[^"]*Выполнить\?')
        assert terminal.match[1] == name
        terminal.send(typed)
    assert vesk.code(terminal) == 1
    assert "two" not in vesk.files()


def test_nodes_with_one_command_are_one_question(vesk, model):
    model.answers["planner"] = plan(*[tool("/bin/sh", "-c", "echo ran >> ran")] * 3)
    terminal = vesk.terminal(*vesk.arguments("x", *model.options()))
    terminal.expect_exact("Выполнить? (да/нет)")
    terminal.send("да\n")
    terminal.expect(pexpect.EOF)
    assert "Выполнить?" not in terminal.before
    assert vesk.code(terminal) == 0
    assert vesk.files()["ran"] == b"ran\n" * 3


@pytest.mark.parametrize("hidden", ["both", "the question"])
def test_without_a_terminal_the_exact_command_is_printed(vesk, hidden):
    command = [vesk.build, *vesk.shell("touch ran")]
    master, slave = pty.openpty()
    ended = vesk.run(*command, **{"stdin": slave} if hidden == "the question" else {})
    os.close(master)
    os.close(slave)
    assert ended.code == 3
    assert f'Команда требует разрешения:\n  "/bin/sh" "-c" "touch ran"\nПапка:\n  {vesk.project}\n' in ended.err
    assert "Разрешить команды без вопроса: --allow-commands\n" in ended.err
    assert "ran" not in vesk.files()
    assert vesk.run(*command, "--allow-commands").code == 0
    assert "ran" in vesk.files()


@pytest.mark.skipif(not (shutil.which("node") and shutil.which("chromium")), reason="there is no browser")
def test_pages_use_the_whole_project_and_libraries_from_the_internet(vesk, model):
    head = '<!doctype html><meta charset=utf-8><meta name=viewport content="width=device-width"><h1>Страница</h1>'
    files = {"common.js": "const name = 'общее';",
             "pages/about.html": head + '<script src="../common.js"></script><script>document.title = name</script>',
             "pages/chart.html": head + '<script src="https://cdn.example/c.js"></script><script>new Chart()</script>'}
    model.answers["planner"] = plan(*(("code", {"path": path}) for path in files))
    model.answers["coding"] = lambda given: page(path := given["artifact"]["node"]["input"]["path"], files[path])
    ended = vesk.run("x", "--allow-commands", *model.options())
    assert ended.code == 0, ended.said
    assert "• Проверить сайт в браузере — код завершения 0; успешно\n" in ended.out
    assert "• Проверить сайт в браузере: pages/chart.html — код завершения 0; успешно\n" in ended.out
    assert "Что ещё нужно проверить\n• Страница pages/chart.html проверена в браузере не полностью: скрипт https://cdn." \
           "example/c.js: адрес в интернете, сеть при проверке закрыта; ReferenceError: Chart is not defined" in ended.out
    assert model.asked.count("coding") == len(files)


def occupied(vesk, name):
    (vesk.folder / name).write_text("mine")


def linked_to_nothing(vesk, name):
    (vesk.folder / name).symlink_to("nowhere")


def folder(vesk, name, mode=0o755):
    (vesk.folder / name).mkdir(parents=True)
    (vesk.folder / name).chmod(mode)


def database(vesk, content=None, cut=False, mode=0o755):
    vesk.run(vesk.calculator, "--simulate")
    file = vesk.data / "vesk.sqlite"
    file.write_bytes(content or file.read_bytes()[:file.stat().st_size // (2 if cut else 1)])
    vesk.data.chmod(mode)


def contents(vesk):
    return {path: path.read_bytes() for path in vesk.folder.rglob("*") if path.is_file()}


NO_PROJECT, NO_DATA, OTHER = "Cannot create workspace", "Не удалось создать папку данных: ", 54321
CLOSED = "SQLite open failed: unable to open database file"


@pytest.mark.parametrize("text, prepare, user", [
    (NO_PROJECT, lambda vesk: occupied(vesk, "project"), None),
    (NO_PROJECT, lambda vesk: linked_to_nothing(vesk, "project"), None),
    (NO_PROJECT, lambda vesk: folder(vesk, "data", 0o777), OTHER),
    (NO_DATA, lambda vesk: occupied(vesk, "data"), None),
    (NO_DATA, lambda vesk: linked_to_nothing(vesk, "data"), None),
    (NO_DATA, lambda vesk: None, OTHER),
    (CLOSED, lambda vesk: folder(vesk, "data"), OTHER),
    (CLOSED, lambda vesk: folder(vesk, "data/vesk.sqlite"), None),
    ("Не удалось занять папку данных: ", lambda vesk: folder(vesk, "data", 0o733), OTHER),
    ("SQLite: file is not a database", lambda vesk: database(vesk, b"x" * 20000), None),
    ("SQLite: database disk image is malformed", lambda vesk: database(vesk, cut=True), None),
    ("SQLite open failed: attempt to write a readonly database", lambda vesk: database(vesk, mode=0o777), OTHER),
], ids=["project is a file", "project is a link", "project of another", "data is a file", "data is a link",
        "data of another", "data not to be written", "database is a folder", "data not to be read", "no database",
        "database cut short", "database of another"])
def test_a_place_that_cannot_be_used_is_named_and_left_alone(vesk, text, prepare, user):
    """Root may do everything, so what nobody may do is tried as somebody who owns nothing."""
    prepare(vesk)
    options = {}
    if user and os.geteuid() == 0:
        vesk.folder.chmod(0o755)
        options = {"command": [shutil.copy(vesk.program, vesk.folder)], "user": user, "group": user, "extra_groups": []}
    before = contents(vesk)
    ended = vesk.run("x", **options)
    assert ended.code == 1 and ended.err.startswith(text), ended.said
    after = contents(vesk)
    assert before.items() <= after.items()
    assert vesk.data / "vesk.sqlite" not in before or before == after  # nothing new beside a database


def test_folders_may_be_relative_or_links(vesk):
    (vesk.folder / "real").mkdir()
    (vesk.folder / "link").symlink_to("real")
    options = "--run", "x", "--mock-delay", "0", "--data-dir", "link"
    assert vesk.call(*options, "--project", "link/../новый проект").code == 0
    assert (vesk.folder / "новый проект/calculator.html").exists()


def test_without_folders_it_is_the_users_data_and_the_current_project(vesk):
    vesk.project.mkdir()
    assert vesk.call("--run", "x", "--mock-delay", "0", cwd=vesk.project).code == 0
    assert Records(vesk.folder / "home/.local/share/VESK/VESK").phases == ["COMPLETED"]
    assert "calculator.html" in vesk.files()


def test_a_folder_stays_the_same_project(vesk):
    for _ in range(2):
        assert vesk.run(vesk.calculator).code == 0
    assert vesk.run("x", "--project", vesk.folder / "other", "--simulate").code == 2  # given twice
    assert vesk.call("--run", "x", "--simulate", "--mock-delay", "0", "--data-dir", vesk.data, "--project",
                     vesk.folder / "other").code == 0
    records = vesk.records
    first, other = records["projects"]
    assert (first["name"], first["root"], other["name"]) == ("project", str(vesk.project), "other")
    assert [task["project_id"] for task in records["tasks"]] == [first["id"], first["id"], other["id"]]
    assert [file["revision"] for file in records["files"]] == [4, 2]


def test_a_second_program_on_the_same_data_waits_for_nothing(vesk):
    first = vesk.start(*vesk.arguments(vesk.calculator, "--mock-delay", "60000"))
    assert "Разбираюсь" in first.stderr.readline().decode()
    (vesk.folder / "other name").symlink_to(vesk.data)
    for what in ["--run", "x"], ["--smoke-test"]:
        second = vesk.call(*what, "--data-dir", vesk.folder / "other name")
        assert second.code == 2 and second.err.startswith("VESK уже работает с этой папкой данных: ")
    first.kill()
    vesk.end(first)
    assert vesk.run(vesk.calculator).code == 0
    assert vesk.records.phases == ["INTERRUPTED", "COMPLETED"]


@pytest.mark.parametrize("closed, unset", [
    ([1], []), ([2], []), ([0], []), ([0, 1, 2], []),
    ([], ["HOME", "USER", "XDG_RUNTIME_DIR"]), ([], ["LC_ALL", "LANG", "LC_CTYPE"]),
], ids=["no output", "no errors", "no input", "no streams", "no home", "plain locale"])
def test_a_run_needs_neither_its_streams_nor_a_home(vesk, closed, unset):
    ended = vesk.run(vesk.calculator, unset=unset, preexec_fn=lambda: [os.close(stream) for stream in closed])
    assert ended.code == 0
    assert ended.out.startswith("Задача завершена.") == (1 not in closed)
    assert vesk.records.phases == ["COMPLETED"]


def test_a_reader_that_goes_away_does_not_stop_the_run(vesk):
    ended = vesk.run(vesk.calculator, "--json", command=["/bin/sh", "-c", '"$0" "$@" 2>&1 | head -n 1', vesk.program])
    assert len(ended.events) == 1
    assert vesk.records.phases == ["COMPLETED"]


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
@pytest.mark.parametrize("delay", [0, .001, .002, .005, .01, .02, .04, .08, .15])
def test_a_signal_cancels_the_task_at_any_moment(vesk, number, delay):
    """The delay counts from the moment that the data folder is there."""
    process = vesk.start(*vesk.arguments(vesk.calculator, "--mock-delay", "50"))
    end = time.monotonic() + 30
    while not vesk.data.exists() and time.monotonic() < end:
        time.sleep(0.0002)
    time.sleep(delay)
    process.send_signal(number)
    ended = vesk.end(process)
    assert ended.code == 130, ended.said
    records = vesk.records
    assert records.phases == (["CANCELLED"] if records["events"] else [])


def test_a_report_that_cannot_be_stored_is_told(vesk):
    assert vesk.run(vesk.calculator).code == 0
    with closing(sqlite3.connect(vesk.data / "vesk.sqlite")) as database:
        database.execute("CREATE TRIGGER full BEFORE INSERT ON messages WHEN NEW.body LIKE '%\"kind\":\"report\"%' "
                         "BEGIN SELECT RAISE(ABORT, 'disk gone'); END")
    ended = vesk.run(vesk.calculator)
    assert ended.code == 1 and ended.out.startswith("Задача завершена.")
    assert "Записи задачи сохранены не полностью: " in ended.err and "disk gone" in ended.err


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGKILL])
def test_no_program_of_a_task_outlives_it(vesk, number):
    script = "trap '' TERM INT HUP; sleep 300 & (setsid sleep 300 &); touch started; sleep 300"
    process = vesk.start(*vesk.arguments(vesk.build, *vesk.shell(script), "--allow-commands"))
    assert until((vesk.project / "started").exists)
    process.send_signal(number)
    assert vesk.end(process).code == (130 if number == signal.SIGINT else -number)
    assert until(lambda: not vesk.alive())


def test_a_task_does_not_start_over_files_that_were_changed(vesk, model):
    assert vesk.run(vesk.calculator).code == 0
    (vesk.project / "calculator.html").write_text("моё")
    ended = vesk.run("x", *model.options())
    assert (ended.code, model.asked) == (1, []) and "изменён calculator.html" in ended.err
    assert (vesk.project / "calculator.html").read_text() == "моё"
    edits = vesk.call("--diff", "--edits", "--project", vesk.project, "--data-dir", vesk.data)
    assert edits.code == 0 and edits.out.endswith("+моё\n\\ No newline at end of file\n")
    accepted = vesk.run(vesk.calculator, "--accept-edits")
    assert accepted.code == 0 and "Взята ваша версия: изменён calculator.html" in accepted.err
    revisions = [row for row in Records(vesk.data)["file_revisions"] if row["path"] == "calculator.html"]
    assert [row["revision"] for row in revisions if (row["author_agent"], row["content"]) == ("user", "моё")] == [3]


def test_edits_are_asked_about_on_a_terminal(vesk):
    assert vesk.run(vesk.calculator).code == 0
    page = (vesk.project / "calculator.html").read_text()
    (vesk.project / "calculator.html").write_text("моё")
    (vesk.project / "README-calculator.md").unlink()
    terminal = vesk.terminal(*vesk.arguments(vesk.calculator))
    for typed, told in ("", "3) Посмотреть различия"), ("да\n", "Введите 1, 2 или 3."), ("3\n", "+моё"), \
            ("2\n", "Возвращена версия программы: изменён calculator.html"):
        terminal.send(typed)
        terminal.expect_exact(told)
    assert vesk.code(terminal) == 0
    kept = [row["content"] for row in vesk.records["file_revisions"] if row["path"] == "calculator.html"]
    assert "моё" in kept and kept[kept.index("моё") + 1] == page
    (vesk.project / "calculator.html").write_text("моё")
    terminal = vesk.terminal(*vesk.arguments(vesk.calculator))
    terminal.expect_exact("3) Посмотреть различия")
    (vesk.project / "calculator.html").unlink()
    terminal.send("3\n")
    terminal.expect_exact("3) Посмотреть различия")
    terminal.send("\x04")
    assert vesk.code(terminal) == 4


def test_the_example_team_works_in_front_of_the_developer(vesk):
    ended = vesk.run(vesk.calculator, "--workflow-demo")
    assert ended.code == 0, ended.said
    names = ["Дизайн", "Фронтенд", "Бэкенд", "Объединение", "Проверка проекта"]
    steps = [event["message"] for event in vesk.records["events"] if event["type"] == "WorkflowStepCompleted"]
    assert sorted(steps) == sorted(names) and (steps[0], steps[3:]) == (names[0], names[3:])
    results = ended.out.split("Результаты ваших агентов\n")[1].split("\n\n")[0].splitlines()
    assert sorted(line[2:].split(" — ")[0] for line in results) == sorted(names)
def test_patch_applies_what_a_task_has_changed(vesk, tmp_path):
    assert vesk.run(vesk.calculator).code == 0
    folders = ["--project", vesk.project, "--data-dir", vesk.data]
    told = vesk.call("--diff", *folders)
    assert told.code == 0 and told.err == ""
    subprocess.run(["patch", "-p1"], input=told.out.encode(), cwd=tmp_path, check=True, capture_output=True)
    for name in ("calculator.html", "README-calculator.md"):
        assert (tmp_path / name).read_bytes() == (vesk.project / name).read_bytes()
    first = vesk.call("--diff", "calculator.html", "--from", "0", "--to", "1", *folders)
    assert first.out.startswith("--- /dev/null\n+++ b/calculator.html\n@@ -0,0 +1 @@")
    for arguments, text in ((["--from", "1"], "--from, --to: нужен файл"), (["a", "b"], "Неизвестный параметр: b"),
                            (["a", "--from", "x"], "--from: нужен номер версии"),
                            (["--project", tmp_path / "none"], "В этой папке нет проекта")):
        refused = vesk.call("--diff", *arguments, *(folders[2:] if "--project" in arguments else folders))
        assert refused.code in (1, 2) and text in refused.err and refused.out == ""
