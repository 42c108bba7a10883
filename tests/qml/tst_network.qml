import QtQuick
import QtTest
import Vesk
import "qrc:/qt/qml/Vesk/network/Network.js" as Network

/* The picture of the team: what stands where, what is joined, and what each press tells the window. */
Rectangle {
    id: root
    width: 400
    height: 848
    color: "black"

    readonly property var chain: [own("a", "coding", []), own("b", "coding", ["a"])]
    function own(id, parent, after, mode) {
        return { id, name: id, custom: true, enabled: true, parent, mode: mode ?? "workflow", after };
    }
    function builtIn(id) {
        return { id, name: "Имя " + id, custom: false, enabled: true, parent: "" };
    }
    Component { id: component; AgentNetwork { width: 400; height: 848; animated: false } }
    Component { id: spyComponent; SignalSpy {} }

    TestCase {
        name: "Network"
        when: windowShown

        function init() { failOnWarning(/.?/); }
        function make(properties) {
            const made = createTemporaryObject(component, root, properties ?? {});
            waitForRendering(made);
            return made;
        }
        function listen(network, signalName) {
            return createTemporaryObject(spyComponent, root, { target: network, signalName });
        }
        function nodeOf(network, role) { return findChild(network, role); }
        function joined(profiles) {
            const nodes = Network.definitions(profiles, 848);
            return Network.edges(profiles, nodes).slice(24).map(edge => edge.map(i => nodes[i].role).join(">"));
        }

        function test_placesAreThoseOfTheTable() {
            const nodes = Network.definitions([builtIn("planner")], 848);
            compare(nodes.map(node => node.role + node.x + "," + node.y).join(" "), "orchestrator0.5,0.12 planner0.5,0.29 "
                + "requirements_judge0.18,0.44 architecture_judge0.5,0.47 risk_judge0.82,0.44 structure0.5,0.64 "
                + "dependency_judge0.19,0.73 maintainability_judge0.81,0.73 coding0.5,0.79 correctness_reviewer0.18,0.87 "
                + "integration_reviewer0.82,0.87 validator0.5,0.99");
            compare(Network.baseEdges.map(edge => edge.join("-")).join(", "), "0-1, 1-2, 1-3, 1-4, 2-3, 3-4, 2-4, 2-0, 4-0, "
                + "3-5, 5-6, 5-7, 6-7, 6-0, 7-0, 5-8, 8-9, 8-10, 9-10, 9-0, 10-0, 9-11, 10-11, 11-0");
        }
        function test_ownAgentsStandInABandAtTheTop() {
            const nodes = Network.definitions(["a", "b", "c", "d"].map(id => own(id, "", [])), 848);
            fuzzyCompare(nodes[0].y, .25 + .12 * .75, 1e-9);
            compare(nodes.slice(12).map(node => [node.role, node.x, node.y * 800]),
                    [["a", .17, 48], ["b", .5, 48], ["c", .17 + .66, 48], ["d", .17, 148]]);
        }
        function test_whoHandsResultsToWhom_data() {
            return [
                { tag: "chain", agents: chain, edges: ["a>b", "b>coding"] },
                { tag: "helpers", agents: [own("a", "coding", [], "delegate"), own("b", "coding", ["a"], "delegate")],
                  edges: ["a>coding", "a>b", "b>coding"] },
                { tag: "no such stage", agents: [own("a", "x", ["y"]), own("b", "", [])], edges: [] }
            ];
        }
        function test_whoHandsResultsToWhom(data) {
            compare(joined(data.agents), data.edges);
        }
        function test_onlyWhatIsDrawnCanBeCut() {
            const links = Network.links("a", chain, Network.definitions(chain, 848));
            compare(links.map(link => link.from + ">" + link.to), ["a>b"]);
        }
        function test_destinationsAreNamedOnce() {
            const network = make({ profiles: chain });
            compare([network.destinations("correctness_reviewer"), network.destinations("b"), network.destinations("x")],
                    ["Интеграция, Главный, Результат", "Разработка", ""]);
        }
        function test_anAgentSaysHowItStands_data() {
            const row = (tag, run, state, note, more) => Object.assign({ tag, run, state, note }, more);
            const waits = "Ожидает задания и результатов предыдущих агентов.";
            return [
                row("nothing", {}, "Ожидает", waits),
                row("working", { status: "FIXING" }, "В работе", "Выполняет задание. Результат ещё не получен."),
                row("done", { status: "COMPLETED" }, "Готово", "Работа завершена. Откройте результат."),
                row("told", { status: "COMPLETED", output: { summary: "Сделал", issues: ["x"] } }, "Готово", "Сделал"),
                row("issues", { status: "COMPLETED", output: { summary: "", issues: ["x", "y"] } }, "Готово",
                    "Есть замечания: x; y"),
                row("error", { status: "ERROR", error: "Нет сети", output: { summary: "s" } }, "Ошибка", "Нет сети"),
                row("stopped", { status: "CANCELLED" }, "Ожидает", waits),
                row("off", { status: "WORKING" }, "Отключён", "Выполняет задание. Результат ещё не получен.", { off: true }),
                row("asked", { status: "WORKING" }, "Ваш ответ", "Выполняет задание. Результат ещё не получен.",
                    { phase: "CLARIFICATION" })
            ];
        }
        function test_anAgentSaysHowItStands(data) {
            const network = make({
                profiles: [Object.assign(builtIn("orchestrator"), { enabled: !data.off })],
                task: { phase: data.phase, runs: [{ role: "coordinator", status: "ERROR", error: "старый" },
                                                  Object.assign({ role: "coordinator" }, data.run)] }
            });
            compare([network.stateText("orchestrator"), network.noteText("orchestrator")], [data.state, data.note]);
            verify(nodeOf(network, "orchestrator").Accessible.name.startsWith("Главный, " + data.state + ", передаёт: План"));
            compare(nodeOf(network, "orchestrator").opacity, data.off ? .35 : 1);
        }
        function test_labelsGiveWay_data() {
            const at = (x, y, width) => ({ x, y, width });
            return [
                { tag: "apart", nodes: [at(0, 0, 90), at(98, 0, 90)], widths: [90, 90] },
                { tag: "ended", nodes: [at(0, 0, 300), at(200, 0, 90)], widths: [100, 90] },
                { tag: "halves", nodes: [at(0, 0, 100), at(88, 0, 100)], widths: [80, 80] },
                { tag: "the longer", nodes: [at(0, 0, 100), at(88, 0, 70)], widths: [90, 70] },
                { tag: "on one another", nodes: [at(0, 0, 60), at(3, 3, 60)], widths: [60, 0] },
                { tag: "other lines", nodes: [at(0, 0, 100), at(10, 100, 100)], widths: [100, 100] },
                { tag: "a square", nodes: [at(0, 0, 100), at(55, 39, 60)], widths: [60, 60] },
                { tag: "the edges", across: 260, nodes: [at(0, 0, 100), at(190, 0, 90)], widths: [80, 60] }
            ];
        }
        function test_labelsGiveWay(data) {
            compare(Network.labelWidths(data.nodes, data.nodes.map(node => node.width), 1, data.across), data.widths);
        }
        function test_aNodeIsDraggedWithinThePicture_data() {
            return [
                { tag: "a click", by: [2, 2] },
                { tag: "moved", by: [40, 80], at: [.5 + 40 / 400, .12 + 80 / 800] },
                { tag: "upper left", by: [-199, -100], at: [.08, .04] },
                { tag: "lower right", by: [199, 740], at: [.92, .96] }
            ];
        }
        function test_aNodeIsDraggedWithinThePicture(data) {
            const network = make({ positions: { planner: { x: .3, y: .3 } } });
            const moves = listen(network, "moveNode");
            const [x, y] = [200, Math.round(.12 * 800) + 16];
            mousePress(network, x, y);
            mouseMove(network, x + data.by[0] / 2, y + data.by[1] / 2);
            mouseMove(network, x + data.by[0], y + data.by[1]);
            mouseRelease(network, x + data.by[0], y + data.by[1]);
            compare([moves.count, network.selectedRole], data.at ? [1, ""] : [0, "orchestrator"]);
            if (!data.at)
                return;
            const put = moves.signalArguments[0][0];
            compare(put.planner, { x: .3, y: .3 });
            fuzzyCompare(put.orchestrator.x, data.at[0], 1e-6);
            fuzzyCompare(put.orchestrator.y, data.at[1], 1e-6);
            compare(network.dragPositions, {});
        }
        function test_whatThePictureTells_data() {
            const click = role => network => mouseClick(nodeOf(network, role), 40, 16);
            const press = name => network => {
                const button = findChild(network, name);
                waitForItemPolished(button.parent);
                mouseClick(button);
            };
            const key = (role, ...keys) => network => {
                nodeOf(network, role).forceActiveFocus(Qt.TabFocusReason);
                keys.forEach(code => keyClick(code));
            };
            const choose = (role, downs) => key(role, Qt.Key_Menu, ...Array(downs).fill(Qt.Key_Down), Qt.Key_Return);
            const row = (tag, signalName, args, ...steps) => ({ tag, signalName, args, steps });
            return [
                row("link", "link", ["a", "coding"], click("a"), press("connectAgent"), click("coding")),
                row("link by keyboard", "link", ["a", "b"], choose("a", 3), key("b", Qt.Key_Return)),
                row("cut by keyboard", "unlink", ["a", "b"], choose("b", 4)),
                row("no link to itself", "link", null, click("a"), press("connectAgent"), click("a")),
                row("taken back", "link", null, click("a"), press("connectAgent"), press("connectAgent"), click("b")),
                row("escape", "link", null, click("a"), press("connectAgent"), key("a", Qt.Key_Escape), click("b")),
                row("configured", "configure", ["a"], key("a", Qt.Key_F2)),
                row("twice", "configure", ["planner"], network => mouseDoubleClickSequence(nodeOf(network, "planner"), 40, 16)),
                row("button", "configure", ["a"], click("a"), press("configureAgent")),
                row("removed", "remove", ["a"], key("a", Qt.Key_Delete)),
                row("a stage stays", "remove", null, key("coding", Qt.Key_Delete)),
                row("reset", "moveNode", [{}], press("resetPlaces")),
                row("inspected", "inspect", [{ role: "planner", name: "Имя planner", id: "r2", status: "ERROR" }],
                    click("planner"), press("inspectAgent")),
                row("arrows", "configure", ["planner"], key("orchestrator", Qt.Key_Down, Qt.Key_F2))
            ];
        }
        function test_whatThePictureTells(data) {
            const network = make({ profiles: chain.concat(builtIn("planner")),
                task: { runs: [{ role: "planner", id: "r1" }, { role: "planner", id: "r2", status: "ERROR" }] } });
            const told = listen(network, data.signalName);
            data.steps.forEach(step => step(network));
            if (data.args)
                tryCompare(told, "count", 1);
            compare(Array.from(told.signalArguments, args => Array.from(args)), data.args ? [data.args] : []);
        }
        function test_aWireIsLitWhileAnEndIsAtWork() {
            const seen = status => {
                const picture = grabImage(make({ task: { runs: [{ role: "planner", status }] } }));
                return [[200, 180], [198, 203]].map(([x, y]) => picture.red(x, y));
            };
            const [line, head] = seen("ERROR");
            const [litLine, litHead] = seen("WORKING");
            verify(line > 5 && line < 40 && litLine > 50, line + " " + litLine);
            verify(head > 5 && litHead > 2 * head, head + " " + litHead);
        }
        function test_onlyWorkMovesThePicture() {
            const network = make({ animated: true });
            const drawn = listen(network, "pulseChanged");
            wait(250);
            compare(drawn.count, 0);
            network.task = { runs: [{ role: "planner", status: "PLANNING" }] };
            tryVerify(() => drawn.count > 1);
            fuzzyCompare(network.pulse / .018, drawn.count, .01);
            network.animated = false;
            compare(network.wires.filter((number, i) => i % 5 === 4 && number).length, 4);
        }
    }
}
