"""Tools of MCP servers, called by a whole program: servers are found in the home folder, and in the project after a yes."""
import json

import pexpect
import pytest

from model import page, plan
from program import until

READY = r"""read -r a; echo '{"id":1,"result":{}}'; read -r b; read -r c
echo '{"id":2,"result":{"tools":[{"name":"ask","inputSchema":{"type":"object"}}]}}'; read -r d; echo "$d" > CALLED; """
ANSWERS = r"""echo '{"id":3,"result":{"content":[{"type":"text","text":"ключ '$TOKEN' подошёл"}]}}'; cat"""
REQUEST = "Спроси сервер Справка", "--allow-commands"


def describe(file, script, called):
    file.parent.mkdir(parents=True, exist_ok=True)
    entry = {"command": "sh", "args": ["-c", script.replace("CALLED", str(called))], "env": {"TOKEN": "geheim-4711"}}
    file.write_text(json.dumps({"mcpServers": {"Справка": entry}}))


def asks(given):
    tools = given["task"].get("available_mcp_tools", [])
    call = [("mcp", {"server_id": tool["server_id"], "tool": tool["name"], "arguments": {"q": "я"}}) for tool in tools]
    return plan(*call, ("code", {"path": "a.txt"}))


@pytest.mark.parametrize("end, code, said", [
    (ANSWERS, 0, "Задача завершена."),
    ("""printf '{"id":3,"resu'; kill -9 $$""", 1, "MCP-сервер отключился"),
    ("""echo '{"id":3,"result":{"isError":true}}'; cat""", 1, "Ошибка инструмента MCP"),
], ids=["answers", "dies in the call", "fails"])
def test_a_plan_calls_a_tool(vesk, model, end, code, said):
    describe(vesk.folder / "home/.mcp.json", READY + end, vesk.folder / "called")
    model.answers |= {"planner": asks, "coding": page("a.txt", "готово\n")}
    ended = vesk.run(*REQUEST, *model.options())
    assert (ended.code, said in ended.out) == (code, True), ended.said
    assert json.loads((vesk.folder / "called").read_text())["params"] == {"name": "ask", "arguments": {"q": "я"}}
    result = vesk.records["tasks"][-1]["graph"][0]["output"]
    assert (result["server"], result["tool"], result["success"]) == ("Справка", "ask", code == 0)
    assert "Справка: Подключён · инструментов: 1" in ended.err and "• Узел 1" in ended.out
    kept = b"".join(file.read_bytes() for file in vesk.data.rglob("*") if file.is_file())
    assert b"geheim-4711" not in kept + json.dumps(model.bodies).encode() + ended.said.encode()


def test_a_server_of_the_project_is_started_after_a_yes_and_again_without(vesk, model):
    describe(vesk.project / ".mcp.json", READY + ANSWERS, vesk.folder / "called")
    model.answers |= {"planner": asks, "coding": page("a.txt", "готово\n")}
    ended = vesk.run(*REQUEST, *model.options())
    assert ended.code == 0 and '"TOKEN"' in ended.err and "не подключается" in ended.err
    assert "geheim" not in ended.said and not (vesk.folder / "called").exists()

    def talk(*answers):
        terminal = pexpect.spawn(vesk.program, [str(word) for word in vesk.arguments(*REQUEST, *model.options())],
                                 env=vesk.environment, timeout=60, encoding="utf-8")
        for answer in answers:
            terminal.expect("Выполнить")
            terminal.sendline(answer)
        terminal.expect(pexpect.EOF)
        terminal.close()
        return terminal.exitstatus

    assert talk("нет") == 0 and not (vesk.folder / "called").exists()
    assert talk("да") == 0 and (vesk.folder / "called").exists()
    assert talk() == 0
    describe(vesk.project / ".mcp.json", READY + ANSWERS + "; true", vesk.folder / "again")
    assert talk("нет") == 0 and not (vesk.folder / "again").exists()


@pytest.mark.parametrize("name, script, code", [
    ("Другой", "", 2), ("My Roblox", READY + "cat", 0), ("Roblox", "exit 1", 3)])
def test_a_connection_is_probed(vesk, name, script, code):
    (vesk.folder / "home").mkdir()
    servers = {name: {"command": "sh", "args": ["-c", script.replace("CALLED", "/dev/null")]}}
    (vesk.folder / "home/.mcp.json").write_text(json.dumps({"servers": servers}))
    ended = vesk.call("--probe-mcp")
    assert ended.code == code, ended.said
    assert code == 2 or f"{name} {['Подключён', '', '', 'Ошибка'][code]} tools {int(not code)}" in ended.err
    assert until(lambda: not vesk.alive())


def test_a_killed_program_takes_its_servers_along(vesk, model):
    describe(vesk.folder / "home/.mcp.json", READY + "sleep 1000 & exec sleep 1000", vesk.folder / "called")
    model.answers["planner"] = asks
    process = vesk.start(*vesk.arguments(*REQUEST, *model.options()))
    assert until((vesk.folder / "called").exists)
    process.kill()
    process.communicate()
    assert until(lambda: not vesk.alive())
