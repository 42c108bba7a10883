"""What a finished task says about its proofs: runs whose agents lie in one way each, and honest ones that stay quiet."""
import json
import shutil
import signal
import sys
from pathlib import Path

import pytest

from model import page, plan, spec, tool, verdict
from program import until

OPINION = "подтверждено только мнением агентов", "Смотрели только проверяющие"
TEST = "import main\nassert main.add(2, 2) == 4\n"
MAIN = "def add(a, b):\n    return a + b\n"


def file(path):
    return "code", {"path": path}


def check(program, *arguments):
    kind, given = tool(program, *arguments)
    return kind, given | {"verification": True}


def sh(script):
    return check("/bin/sh", "-c", script)


def python(*arguments):
    return check(sys.executable, "-B", *arguments)


def task(*criteria, **more):
    return spec(title="Сад", requirements=[], acceptance_criteria=list(criteria) or ["Сад цветёт"], **more)


HOLLOW = "проходит и с пустыми файлами, это ничего не доказывает"
UNIT = "import unittest\nimport main\n\nclass Adds(unittest.TestCase):\n    def test_add(self):\n        self.assertEqual({}, {})\n"
UNITS = {"main.py": MAIN, "test_main.py": UNIT.format("main.add(2, 2)", "4")}
NODE = {"main.js": "exports.add = (a, b) => a + b\n", "main.test.js":
        "const { add } = require('./main')\nif (add(2, 2) !== 4) process.exit(1)\n"}
C = {"main.c": "int add(int a, int b) { return a + b; }\n", "test.c":
     "int add(int a, int b);\nint main(void) { return add(2, 2) == 4 ? 0 : 1; }\n", "CMakeLists.txt":
     "cmake_minimum_required(VERSION 3.16)\nproject(garden C)\nenable_testing()\nadd_executable(tests main.c test.c)\n"
     "add_test(NAME adds COMMAND tests)\n"}


def node(*arguments):
    return check(shutil.which("node"), *arguments)


def npm(*arguments):
    return node(shutil.which("npm") and str(Path(shutil.which("npm")).resolve()), *arguments)


CMAKE = (tool(shutil.which("cmake"), "-S", ".", "-B", "build"), check(shutil.which("cmake"), "--build", "build"),
         check(shutil.which("ctest"), "--test-dir", "build"))


class Story:
    """A run: what the request is, which nodes the plan has, what the coder writes (a list: one text after the other),
    and what other agents say. `said` are pieces of lines that must stand open; without them none may but opinions."""

    def __init__(self, *nodes, files=None, request="Сделай сад", said=(), ends="COMPLETED", before=None, **answers):
        self.files, self.request, self.said, self.ends, self.before = files or {}, request, said, ends, before
        paths = [given["path"] for kind, given in nodes if kind == "code"]
        planned = [file(path) for path in self.files if path not in paths] + list(nodes)
        graph = plan(*planned)
        for number, step in enumerate(graph["nodes"]):
            if len(nodes) > 1 and step["kind"] == "tool":
                step["dependencies"] = [before["id"] for before in graph["nodes"][:number]]
        self.answers = {"orchestrator": task(), "planner": graph} | answers
        self.written, self.project = {}, ""

    def write(self, given):
        path = given["artifact"]["node"]["input"]["path"]
        texts = self.files[path]
        if isinstance(texts, str):
            return page(path, texts.replace("{project}", self.project))
        number = self.written[path] = self.written.get(path, -1) + 1
        return page(path, texts[min(number, len(texts) - 1)])


def foreign(given):
    return verdict() | {"path": "other.py"}


PROGRAM = {"main.py": MAIN, "test_main.py": TEST}
HTML = "<!doctype html><meta charset=utf-8><meta name=viewport content='width=device-width'>{}"
TEXT = {"сад.md": "Сад цветёт весной."}
LIES = {
    # Files
    "a review of another file": Story(files=TEXT, integration_reviewer=foreign, said=["рецензия дана другому файлу"]),
    "a review of an older version": Story(files=TEXT, correctness_reviewer=lambda given: verdict() | {"revision": 7},
                                          said=["рецензия дана другому файлу или другой версии"]),
    "nothing was run": Story(files={"main.py": MAIN}, said=["Смотрели только проверяющие, запуском не проверены: main.py"]),
    "an empty file": Story(files={"сад.md": " \n"}, said=["сад.md: пустой файл"]),
    "a promise": Story(files={"сад.md": "TODO: описать сад"}, said=["сад.md: только обещание"]),
    "a body that is a comment": Story(files={"main.py": "def add(a, b):\n    # TODO\n    pass\n"},
                                      said=["main.py: функция без тела: add"]),
    "a file made by a command": Story(sh("cp сад.md копия.md"), files=TEXT, said=["Созданы командами", "копия.md"]),
    "a file beside many packages": Story(
        sh("mkdir node_modules deep; cd node_modules; seq 6000 | xargs touch; cp ../сад.md ../deep/копия.md"), files=TEXT,
        said=["Созданы командами", "копия.md"]),
    "too many files": Story(sh("mkdir all; cd all; seq 6000 | xargs touch"), files=TEXT, said=["слишком много файлов"]),
    "a test made to pass": Story(python("test_main.py"), files=PROGRAM | {"test_main.py": ["assert 0\n", TEST]},
                                 said=["test_main.py: тест изменён после неудачного запуска"]),
    "text as a picture": Story(files={"сад.png": "здесь сад"}, said=["сад.png: текст вместо изображения"]),
    "a file of an earlier task": Story(files=TEXT, before={"сад.md": "Сад был другим."},
                                       said=["Изменены файлы прежних задач: сад.md"]),
    # Criteria
    "a command nobody ran": Story(files=PROGRAM, orchestrator=task("pytest проходит"),
                                  said=["команду «pytest» никто не запускал"]),
    "a file of the request": Story(files=TEXT, request="Сделай сад и план.pdf", said=["«запрос»: файла план.pdf нет"]),
    "a text about a file": Story(files={"план.md": "План сада"}, orchestrator=task("Есть план.pdf"),
                                 said=["файла план.pdf нет, есть только текст о нём: план.md"]),
    "a requirement's file": Story(files=TEXT, orchestrator=task() | {"requirements": ["Стили в сад.css"]},
                                  said=["файла сад.css нет"]),
    "only an opinion": Story(files=TEXT, said=["«Сад цветёт»: подтверждено только мнением агентов"]),
    "nothing to hold it to": Story(files=TEXT, orchestrator=task() | {"acceptance_criteria": []},
                                   said=["не записал ни одного требования"]),
    "another task": Story(files=TEXT, request="Напиши калькулятор", said=["нет ни одного слова из запроса"]),
    # Checks
    "forgiven": Story(sh("false || true"), files=TEXT, said=["«sh -c false || true»: команда успешна при любом исходе"]),
    "ended well": Story(sh("false; exit 0"), files=TEXT, said=["команда успешна при любом исходе"]),
    "nothing but an end": Story(sh("exit 0"), files=TEXT, said=["команда ничего не проверяет"]),
    "tests nobody ran": Story(files={"package.json": '{"scripts": {"test": "node --test"}}'},
                              said=["Тесты из package.json (npm test) никто не запускал"]),
    "an empty build": Story(files={"package.json": '{"scripts": {"build": "exit 0"}}', "a.js": "let a = ;"},
                            ends="FAILED"),
    # Tests that assert nothing
    "an empty test": Story(python("test_main.py"), files=PROGRAM | {"test_main.py": "import main\nprint('ok')\n"},
                           said=["«python3 -B test_main.py»: " + HOLLOW]),
    "a test of itself": Story(python("-m", "unittest", "-q"), files=UNITS | {"test_main.py": UNIT.format("4", "4")}, said=[HOLLOW]),
    "no tests": Story(node("--test"), files=NODE | {"main.test.js": "require('./main')\n"}, said=["«node --test»: " + HOLLOW]),
    "a script without tests": Story(npm("test"), files=NODE | {
        "package.json": '{"scripts": {"test": "node --test"}}', "main.test.js": "require('./main')\n"}, said=["test»: " + HOLLOW]),
    "an empty test in C": Story(*CMAKE, files=C | {"test.c": "int main(void) { return 0; }\n"}, said=[HOLLOW]),
    "a path that is written out": Story(sh("cd {project} && python3 -B {project}/test_main.py"), said=[HOLLOW],
                                        files=PROGRAM | {"test_main.py": "import main\n"}),
    # Opinions
    "an approval with a remark": Story(files=TEXT, validator=verdict() | {"issues": ["Нет роз"]}, said=["Нет роз"]),
    "a judge's remark": Story(files=TEXT, risk_judge=verdict() | {"issues": ["Сад замёрзнет"]}, said=["Сад замёрзнет"]),
    "a reviewer's remark": Story(files=TEXT, integration_reviewer=verdict() | {"required_changes": ["Добавить розы"]},
                                 said=["сад.md: одобрено с замечанием: Добавить розы"]),
    "a doubtful approval": Story(files=TEXT, correctness_reviewer=verdict() | {"confidence": 0.1},
                                 said=["одобрено с уверенностью 0.1"]),
    "the observer objects": Story(files=TEXT, observer={"summary": "Розы не созданы."}, said=["Розы не созданы"]),
    "a part was seen": Story(files={"сад.txt": "Сад. " * 4000}, said=["видна только часть файлов: сад.txt"]),
    # Syntax
    "no Python": Story(files={"main.py": "def add(:\n"}, ends="FAILED"),
    "no shell script": Story(files={"run.sh": "if true; then\n"}, ends="FAILED"),
    "no JSON": Story(files={"сад.json": '{"роза": }'}, ends="FAILED"),
    "no SVG": Story(files={"сад.svg": "<svg><g></svg>"}, ends="FAILED"),
}

HONEST = {
    "a text": Story(files=TEXT, request="Опиши сад в сад.md", orchestrator=task("сад.md описывает сад")),
    "a program that is run": Story(python("test_main.py"), files=PROGRAM, request="Сад на python в main.py",
                                   orchestrator=task("python test_main.py проходит", "Все тесты проходят")),
    "other spellings": Story(sh("python3 ./test_main.py && npm test --help || exit 1"), files=PROGRAM,
                             orchestrator=task("`python3 test_main.py` проходит", "npm run test проходит")),
    "a mended test": Story(python("test_main.py"),
                           files=PROGRAM | {"main.py": ["def add(a, b):\n    return a - b\n", MAIN]}),
    "a list of things to do": Story(files={"README.md": "# TODO-список\n\nЗаписывает дела в саду.",
                                           "todo.py": "# TODO-список для сада\nprint('TODO')\n"}),
    "products and addresses": Story(files=TEXT, request="Сад на Node.js 20.1, three.js и example.com, как на https://a.b/c.html"),
    "what shall not be": Story(files=TEXT, request="Сделай сад без style.css, удали old.txt и не создавай extra.md"),
    "what it writes when it runs": Story(files={"main.py": "open('отчёт.csv', 'w').write('сад')\n"},
                                         request="Сад, который сохраняет отчёт.csv"),
    "a package without tests": Story(files={
        "package.json": '{"scripts": {"test": "echo \\"Error: no test specified\\" && exit 1"}}'}),
    "data": Story(files={"сад.json": '{"роза": 1}', "сад.svg": "<svg/>",
                             "run.sh": "a=(1 2)\necho \"${a[@]}\"\n"}),
    "what tools leave": Story(sh("touch package-lock.json main.o .coverage; cp /bin/true program; test -s сад.md"), files=TEXT),
    "a change that was asked for": Story(files=TEXT, request="Перепиши сад.md", before={"сад.md": "Сад был другим."}),
    "a satisfied observer": Story(files=TEXT, observer={
        "summary": "Ошибки отсутствуют, проваленных проверок нет, ничего подозрительного. Замечаний не обнаружено."}),
    "a review that names its file": Story(files=TEXT, correctness_reviewer=verdict() | {"path": "./сад.md", "revision": 1}),
    "a repair of a syntax error": Story(files={"main.py": ["def add(:\n", MAIN], "other.py": MAIN}),
    "units": Story(python("-m", "unittest", "-q"), files=UNITS),
    "pytest": Story(python("-m", "pytest", "-q"), files=PROGRAM | {
        "test_main.py": "import main\ndef test_add():\n    assert main.add(2, 2) == 4\n"}),
    "node's tests": Story(node("--test"), files=NODE),
    "tests in C": Story(*CMAKE, files=C),
    "tests of data": Story(python("test_data.py"), files=PROGRAM | {"roses.csv": "роза,1\n", "test_data.py":
                           "assert open('roses.csv').read()\n"}, request="Сад в main.py и roses.csv"),
    "tests beside the code": Story(python("-m", "unittest", "-q", "main"), files={"main.py": UNITS["test_main.py"].replace(
        "import main\n", "class main:\n    add = lambda a, b: a + b\n"), "other.py": MAIN}),
    "a program that is installed as a link": Story(sh("python3 -B test_main.py"), files=PROGRAM | {
        "test_main.py": "import sys\nsys.path.insert(0, '{project}')\n" + TEST}),
    "a page that is used": Story(request="Сад на странице", orchestrator=task("Страница открывается без ошибок"), files={
        "index.html": HTML.format("<button onclick='n.textContent++'>Полить</button><p id=n>0</p>"
                                  "<button onclick='n.textContent=0'>Сброс</button>")}),
    "a request in another language": Story(files=TEXT, request="Make a garden"),
}


def tell(vesk, model, story, *more):
    """Runs it; gives the ended process and its last line."""
    story.written, story.project = {}, str(vesk.project)
    story.answers = json.loads(json.dumps(story.answers).replace("{project}", story.project)) if "{project}" in \
        str(story.answers["planner"]) else story.answers
    model.answers |= story.answers | {"coding": story.write}
    if story.before:
        earlier = Story(files=story.before)
        model.answers |= earlier.answers | {"coding": earlier.write}
        assert vesk.run(earlier.request, *model.options()).code == 0
        model.answers |= story.answers | {"coding": story.write}
    ended = vesk.run(story.request, "--allow-commands", "--json", *more, *model.options())
    return ended, ended.events[-1]


@pytest.mark.parametrize("story", LIES.values(), ids=LIES)
def test_a_lie_is_named(vesk, model, story):
    ended, last = tell(vesk, model, story)
    assert last["message"] == story.ends, last["report"]
    gaps = "\n".join(last["evidence"].get("gaps", []))
    for text in story.said:
        assert text in gaps and text in last["report"], gaps


@pytest.mark.parametrize("story", HONEST.values(), ids=HONEST)
def test_an_honest_run_stays_quiet(vesk, model, story):
    ended, last = tell(vesk, model, story)
    assert last["message"] == "COMPLETED", last["report"]
    assert [gap for gap in last["evidence"]["gaps"] if not any(text in gap for text in OPINION)] == []


@pytest.mark.parametrize("name, code", [("a program that is run", 0), ("a text", 5)])
def test_a_strict_run_ends_well_only_with_all_proved(vesk, model, name, code):
    ended, last = tell(vesk, model, HONEST[name], "--strict")
    assert (ended.code, last["exit_code"]) == (code, code)


def test_a_syntax_error_sends_only_its_own_file_back(vesk, model):
    tell(vesk, model, story := HONEST["a repair of a syntax error"])
    written = [given["artifact"]["node"]["input"]["path"] for role, given in zip(model.asked, model.inputs)
               if role == "coding"]
    assert sorted(written) == ["main.py", "main.py", "other.py"]


def test_the_coder_hears_once_of_a_dead_button_and_the_report_keeps_it(vesk, model):
    note = "кнопка «Полить» ничего не изменила"
    ended, last = tell(vesk, model, Story(files={"index.html": HTML.format("<button>Полить</button><p>Сад</p>")}))
    orders = [given for role, given in zip(model.asked, model.inputs) if role == "coding"]
    assert (last["message"], len(orders)) == ("COMPLETED", 2)
    assert note in str(orders[1]["fixes"] if "fixes" in orders[1] else orders[1])
    assert f"index.html: {note}." in last["evidence"]["gaps"]
    assert sorted(picture.name[-8:] for picture in vesk.data.glob("pages/*/*")) == ["-390.png", "1280.png"]


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGKILL])
def test_a_test_with_empty_files_is_ended_and_leaves_nothing(vesk, model, number):
    slow = "import os, time\nif not os.path.getsize('main.py'):\n    open('tried', 'w')\n    time.sleep(300)\n"
    story = Story(python("test_main.py"), files=PROGRAM | {"test_main.py": slow})
    model.answers |= story.answers | {"coding": story.write}
    process = vesk.start(*vesk.arguments("Сад", "--allow-commands", *model.options()))
    assert until(lambda: list(vesk.data.glob("copies/*/project/tried")))
    process.send_signal(number)
    vesk.end(process)
    assert until(lambda: not vesk.alive())
    if number == signal.SIGKILL:
        assert (vesk.data / "copies").exists()
        assert vesk.run(vesk.calculator).code == 0
    assert vesk.records.phases[0] == ("CANCELLED" if number == signal.SIGINT else "INTERRUPTED")
    assert not (vesk.data / "copies").exists()
