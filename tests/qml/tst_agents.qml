import QtQuick
import QtTest
import Vesk
import Vesk.Test

/* The page of the agents, with an application that notes what it is asked. */
Item {
    id: root
    width: 900
    height: 760

    StandIn {
        id: stub
        property bool apiTesting: false
        property bool modelsLoading: false
        property string message: ""
        property string apiStatus: ""
        property string networkUndo: ""
        property string refused: ""
        property var settings: ({})
        property var preferences: ({})
        property var loadingSkills: []
        property var agentProfiles: []
        property var calls: []
        function note(name, given) { calls.push([name].concat(Array.from(given))); }
        function setPreference(key, value) { note("setPreference", arguments); }
        function addAgent(name, parent, skill, priority, rules) { note("addAgent", arguments); return name === refused ? "" : "new"; }
        function configureAgent(agent, rules, priority, kind) { note("configureAgent", arguments); }
        function setAgentEnabled(agent, enabled) { note("setAgentEnabled", arguments); }
        function setAgentTasks(agent, tasks) { note("setAgentTasks", [agent, Array.from(tasks)]); }
        function setAgentSkill(agent, url) { note("setAgentSkill", arguments); }
        function connectAgents(from, to) { note("connectAgents", arguments); }
        function unlinkAgents(from, to) { note("unlinkAgents", arguments); }
        function linkAgent(agent, parent) { note("linkAgent", arguments); }
        function removeAgent(agent) { note("removeAgent", arguments); }
        function addWorkflowTemplate() { note("addWorkflowTemplate", arguments); }
        function undoNetwork() { note("undoNetwork", arguments); }
        function agentSkill(agent: string): var { return { text: "# Skill", bytes: 7, given: 7, skill_url: "https://x" }; }
    }
    Component { id: component; SettingsPanel { service: stub } }

    TestCase {
        name: "Agents"
        when: windowShown

        function init() {
            failOnWarning(/.?/);
            Object.assign(stub, { calls: [], preferences: { automatic_routing: false }, refused: "", networkUndo: "" });
            stub.agentProfiles = profiles({});
        }
        function profiles(more) {
            return [{ id: "orchestrator", name: "Главный", custom: false, enabled: true, api: {}, skill_url: "https://s", status: "Загружен" },
                { id: "planner", name: "План", custom: false, enabled: true, api: {} },
                Object.assign({ id: "a", name: "Первый", custom: true, enabled: true, parent: "planner", mode: "workflow",
                    kind: "review", priority: 100, rules: "правила", tasks: ["code"], api: {} }, more),
                { id: "b", name: "Второй", custom: true, enabled: false, parent: "planner", mode: "workflow", after: ["a"],
                  media_analysis: "both", api: {} }];
        }
        function open(agent) {
            const dialog = createTemporaryObject(component, root);
            dialog.selectAgent(agent);
            tryCompare(dialog, "opened", true);
            return dialog;
        }
        function item(dialog, name) {
            let found = null;
            tryVerify(() => (found = named(dialog.contentItem, name)) !== null, 5000, name);
            return found;
        }
        /* The visible item of this objectName or text. */
        function named(at, name) {
            if (!at.visible)
                return null;
            if (at.objectName === name || at.text === name)
                return at;
            return Array.from(at.children).reduce((found, child) => found ?? named(child, name), null);
        }
        function use(dialog, name) {
            item(dialog, name).forceActiveFocus(Qt.TabFocusReason);
            keyClick(Qt.Key_Space);
        }

        function test_aPressAsksForWhatItSays_data() {
            const row = (agent, press, ...asked) => ({ tag: agent + ": " + press, agent, press, asked });
            return [
                row("planner", "agentEnabled", "setAgentEnabled", "planner", false),
                row("b", "agentEnabled", "setAgentEnabled", "b", true),
                row("planner", "automaticRouting", "setPreference", "automatic_routing", true),
                row("orchestrator", "loadSkill", "setAgentSkill", "orchestrator", "https://s"),
                row("orchestrator", "removeSkill", "setAgentSkill", "orchestrator", ""),
                row("a", "deleteAgent", "removeAgent", "a"),
                row("a", "saveRules", "configureAgent", "a", "правила", 100, "review"),
                row("a", "Второй", "connectAgents", "b", "a"),
                row("b", "Первый", "unlinkAgents", "a", "b"),
                Object.assign(row("a", "Ревью", "setAgentTasks", "a", ["code", "review"]), { tasks: true }),
                Object.assign(row("b", "Анализ фото", "setAgentTasks", "b", ["video"]), { tasks: true })
            ];
        }
        function test_aPressAsksForWhatItSays(data) {
            const dialog = open(data.agent);
            dialog.tasksExpanded = data.tasks ?? false;
            use(dialog, data.press);
            compare(stub.calls, [data.asked]);
            if (data.press === "deleteAgent")
                compare([dialog.selectedAgent, item(dialog, "skillAddress").text], ["orchestrator", "https://s"]);
        }
        function test_whatIsShownDependsOnTheAgent_data() {
            const row = (agent, automatic, there, gone) => ({ tag: agent + automatic, agent, automatic, there, gone });
            return [
                row("planner", false, ["Встроенная роль · шаблон сохраняется"], ["deleteAgent", "saveRules", "toggleTasks"]),
                row("a", false, ["Свой агент", "Задачи агента · 1 · настроить", "agentParent", "agentKind", "Ждать результаты от"],
                    ["mediaNote"]),
                row("b", true, ["mediaNote", "Задачи агента · 2 · настроить", "deleteAgent", "saveRules"],
                    ["agentParent", "agentKind", "Ждать результаты от", "Первый"])
            ];
        }
        function test_whatIsShownDependsOnTheAgent(data) {
            stub.preferences = data.automatic ? {} : { automatic_routing: false };
            const dialog = open(data.agent);
            data.there.forEach(name => item(dialog, name));
            compare(data.gone.filter(name => named(dialog.contentItem, name)), []);
        }
        function test_whatIsTypedStaysUntilAnotherAgentIsChosen() {
            const dialog = open("a");
            item(dialog, "agentRules").text = "новые";
            stub.agentProfiles = profiles({ rules: "чужие", priority: 25 });
            compare([item(dialog, "agentRules").text, item(dialog, "agentPriority").value], ["новые", 100]);
            compare(item(dialog, "agentChoice").currentText, "Первый");
            dialog.section = 0;
            dialog.section = 1;
            compare(item(dialog, "agentRules").text, "новые");
            dialog.selectedAgent = "b";
            compare([item(dialog, "agentRules").text, item(dialog, "agentPriority").value, item(dialog, "agentKind").currentIndex],
                    ["", 50, 0]);
            dialog.selectedAgent = "a";
            compare(item(dialog, "agentRules").text, "чужие");
        }
        function test_anAgentIsAdded_data() {
            return [
                { tag: "with a task", task: "ui", refused: "" }, { tag: "by its rules", task: "", refused: "" },
                { tag: "refused", task: "ui", refused: "Имя" }, { tag: "automatic", task: "", refused: "", automatic: true }
            ];
        }
        function test_anAgentIsAdded(data) {
            stub.refused = data.refused;
            stub.preferences = data.automatic ? {} : { automatic_routing: false };
            const dialog = open("planner");
            dialog.beginAdd();
            verify(!item(dialog, "addToNetwork").enabled);
            item(dialog, "newName").text = "  ";
            verify(!item(dialog, "addToNetwork").enabled);
            item(dialog, "newName").text = "Имя";
            item(dialog, "newTask").value = data.task;
            item(dialog, "newRules").text = "Правило";
            compare(named(dialog.contentItem, "newParent") === null, data.automatic ?? false);
            use(dialog, "addToNetwork");
            compare(stub.calls[0], ["addAgent", "Имя", "orchestrator", "", 50, "Правило"]);
            compare(stub.calls.slice(1), data.task && !data.refused ? [["setAgentTasks", "new", ["ui"]]] : []);
            compare([dialog.adding, dialog.selectedAgent], data.refused ? [true, "planner"] : [false, "new"]);
            dialog.adding = true;
            compare(item(dialog, "newName").text, data.refused);
        }
        function test_aSkillIsReadBeforeItCounts() {
            const dialog = open("orchestrator");
            use(dialog, "readSkill");
            compare(item(dialog, "skillText").text, "# Skill");
            compare(item(dialog, "skillOrigin").text, "https://x · байт: 7 · получит агент: 7 зн.");
        }
        function test_theLastChangeIsTakenBack() {
            stub.networkUndo = "Агент удалён";
            const dialog = open("planner");
            compare(item(dialog, "networkChange").text, "Агент удалён");
            use(dialog, "undoNetwork");
            compare(stub.calls, [["undoNetwork"]]);
        }
    }
}
