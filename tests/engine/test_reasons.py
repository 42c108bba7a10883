"""What ends a task is written in English where it is thrown, and told in Russian by a table: neither has what the other
lacks."""
import re
from pathlib import Path

SOURCES = Path(__file__).parents[2] / "src"
TABLE = SOURCES / "engine/reasons.cpp"
# Faults of the program itself, which no task meets.
INTERNAL = {"Invalid table", "Missing role prompt"}


def texts(*folders):
    """The sources, literals of several lines in one piece."""
    paths = [path for folder in folders for path in (SOURCES / folder).rglob("*.cpp") if path != TABLE]
    return [re.sub(r'"\s*\n\s*u?"', "", path.read_text()) for path in paths]


KEYS = re.findall(r'Reason\{u"([^"]+)"', TABLE.read_text())


def is_told(text):
    return any(text == key or (key.endswith(" ") and text.startswith(key)) for key in KEYS)


def test_what_is_thrown_is_told():
    thrown = [literal for text in texts("core", "engine", "tools")
              for statement in re.findall(r"\b(?:require|refuse|fail)\([^;]*;", text)
              for literal in re.findall(r'"([A-Za-z]+[ :][ -!#-~]*)"', statement)]
    assert len(thrown) > 60
    assert sorted({text for text in thrown if not is_told(text)} - INTERNAL) == []


def test_what_is_told_is_thrown():
    everything = "".join(texts(""))
    assert [key for key in KEYS if f'"{key}' not in everything] == []
