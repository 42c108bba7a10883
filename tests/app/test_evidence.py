"""What a finished task says about its proofs: runs whose agents lie in one way each, and honest ones that stay quiet."""
import sys

import pytest

from model import page, plan, spec, tool, verdict

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


class Story:
    """A run: what the request is, which nodes the plan has, what the coder writes (a list: one text after the other),
    and what other agents say. `said` are pieces of lines that must stand open; without them none may but opinions."""

    def __init__(self, *nodes, files=None, request="Сделай сад", said=(), ends="COMPLETED", before=None, **answers):
        self.files, self.request, self.said, self.ends, self.before = files or {}, request, said, ends, before
        paths = [given["path"] for kind, given in nodes if kind == "code"]
        planned = [file(path) for path in self.files if path not in paths] + list(nodes)
        self.answers = {"orchestrator": task(), "planner": plan(*planned)} | answers
        self.written = {}

    def write(self, given):
        path = given["artifact"]["node"]["input"]["path"]
        texts = self.files[path]
        if isinstance(texts, str):
            return page(path, texts)
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
    "nothing was run": Story(files={"main.py": MAIN}, said=["Смотрели только проверяющие, запуском не проверены: main.py"]),
    "an empty file": Story(files={"сад.md": " \n"}, said=["сад.md: пустой файл"]),
    "a promise": Story(files={"сад.md": "TODO: описать сад"}, said=["сад.md: только обещание"]),
    "a body that is a comment": Story(files={"main.py": "def add(a, b):\n    # TODO\n    pass\n"},
                                      said=["main.py: функция без тела: add"]),
    "a file made by a command": Story(sh("cp сад.md копия.md"), files=TEXT, said=["Созданы командами", "копия.md"]),
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
    # Opinions
    "an approval with a remark": Story(files=TEXT, validator=verdict() | {"issues": ["Нет роз"]}, said=["Нет роз"]),
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
    "data": Story(files={"сад.json": '{"роза": 1}', "сад.svg": "<svg/>",
                             "run.sh": "a=(1 2)\necho \"${a[@]}\"\n"}),
    "what tools leave": Story(sh("touch package-lock.json main.o .coverage; cp /bin/true program; test -s сад.md"), files=TEXT),
    "a change that was asked for": Story(files=TEXT, request="Перепиши сад.md", before={"сад.md": "Сад был другим."}),
    "a satisfied observer": Story(files=TEXT, observer={
        "summary": "Ошибки отсутствуют, проваленных проверок нет, ничего подозрительного. Замечаний не обнаружено."}),
    "a review that names its file": Story(files=TEXT, correctness_reviewer=verdict() | {"path": "./сад.md", "revision": 1}),
    "a repair of a syntax error": Story(files={"main.py": ["def add(:\n", MAIN], "other.py": MAIN}),
    "a page that is used": Story(request="Сад на странице", orchestrator=task("Страница открывается без ошибок"), files={
        "index.html": HTML.format("<button onclick='n.textContent++'>Полить</button><p id=n>0</p>"
                                  "<button onclick='n.textContent=0'>Сброс</button>")}),
    "a request in another language": Story(files=TEXT, request="Make a garden"),
}


def tell(vesk, model, story):
    """Runs it; gives the ended process and its last line."""
    story.written = {}
    model.answers |= story.answers | {"coding": story.write}
    if story.before:
        earlier = Story(files=story.before)
        model.answers |= earlier.answers | {"coding": earlier.write}
        assert vesk.run(earlier.request, *model.options()).code == 0
        model.answers |= story.answers | {"coding": story.write}
    ended = vesk.run(story.request, "--allow-commands", "--json", *model.options())
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
