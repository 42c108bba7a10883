import QtQuick
import QtTest
import Vesk
import Vesk.Test

/* How a model is connected in the settings: by the name of its provider, or at an address of the user's own. */
Item {
    id: root
    width: 900
    height: 700

    StandIn {
        id: stub
        property bool apiTesting: false
        property bool modelsLoading: false
        property bool serversSearching: false
        property bool measuring: false
        property string message: ""
        property string apiStatus: ""
        property string serverStatus: ""
        property string modelCatalogOwner: ""
        property var models: []
        property var foundServers: []
        property var connectionMeasures: []
        property var settings: ({})
        property var preferences: ({})
        property var agentProfiles: []
        property var calls: []
        function note(name, given) { calls.push([name].concat(Array.from(given))); }
        function loadModels(provider, key, agent) { note("loadModels", arguments); }
        function connectProvider(provider, model, key) { note("connectProvider", arguments); }
        function forgetProvider(provider) { note("forgetProvider", arguments); }
        function setAgentApi(agent, provider, model, key) { note("setAgentApi", arguments); }
        function findServers() { note("findServers", arguments); }
        function loadServerModels(url, key, agent) { note("loadServerModels", arguments); }
        function connectServer(url, model, key, agent) { note("connectServer", arguments); }
        function forgetServer(url) { note("forgetServer", arguments); }
        function measureConnection() { note("measureConnection", arguments); }
        function stopCheck() { note("stopCheck", arguments); }
        function saveNetwork(name) { preferences = { network_layouts: { [name]: {} } }; }
        function loadNetwork(name) { note("loadNetwork", arguments); }
    }
    Component { id: dialogComponent; SettingsPanel { service: stub; section: 4 } }
    Component { id: apiComponent; ApiSettings { width: 600; service: stub } }
    Component { id: formComponent; ServerForm { width: 600; service: stub } }
    Component { id: checkComponent; ConnectionCheck { width: 600; service: stub } }
    Component { id: lookComponent; LookPage { width: 600; height: 600; service: stub } }
    Component { id: choiceComponent; Choice { width: 300; model: Array.from({ length: 1000 }, (_, i) => "model-" + i) } }
    SignalSpy { id: chosen; signalName: "activated" }

    TestCase {
        name: "Settings"
        when: windowShown

        function init() {
            failOnWarning(/.?/);
            Object.assign(stub, { apiTesting: false, modelsLoading: false, serversSearching: false, measuring: false,
                message: "", apiStatus: "", modelCatalogOwner: "", models: [], foundServers: [], calls: [],
                settings: { mock: true }, preferences: {},
                agentProfiles: [{ id: "coding", api: { provider: "Gemini", model: "g" } }, { id: "planner" }] });
            root.Window.window.requestActivate();
            tryVerify(() => root.Window.window.active);
        }
        function make(component, properties) {
            const made = createTemporaryObject(component, root, properties ?? {});
            waitForRendering(made);
            return made;
        }
        function part(made, name) {
            const found = findChild(made, name);
            verify(found, name);
            return found;
        }
        function press(made, name) {
            part(made, name).forceActiveFocus();
            keyClick(Qt.Key_Return);
        }
        function type(made, name, text) {
            part(made, name).forceActiveFocus();
            for (const letter of text)
                keyClick(letter);
        }
        function lastCall() { return stub.calls[stub.calls.length - 1]; }
        function answer(properties) {
            Object.assign(stub, properties);
            stub.changed();
        }
        /* A list that was asked for, and the first of its models. */
        function chooseModel(form, owner) {
            keyClick(Qt.Key_Return);
            answer({ modelCatalogOwner: owner, models: [{ id: "m1" }, { id: "m2" }] });
            part(form, "models").forceActiveFocus();
            keyClick(Qt.Key_Down);
        }

        function test_aModelIsConnectedByTheNameOfItsProvider_data() {
            return [
                { tag: "the team", target: "", provider: "OpenAI", says: "Модель не подключена",
                  ask: ["connectProvider", "OpenAI", "m1", "k1"], done: "Подключено: m1",
                  back: ["forgetProvider", "OpenAI"] },
                { tag: "an agent", target: "coding", provider: "Gemini", says: "Подключено: Gemini · g",
                  ask: ["setAgentApi", "coding", "Gemini", "m1", "k1"], done: "API агента подключён: m1",
                  back: ["setAgentApi", "coding", "", "", ""] },
            ];
        }
        function test_aModelIsConnectedByTheNameOfItsProvider(data) {
            const form = make(apiComponent, { targetAgent: data.target });
            compare(part(form, "connectedTo").text, data.says);
            type(form, "providerKey", "k1");
            chooseModel(form, data.provider + "/" + data.target);
            compare(stub.calls, [["loadModels", data.provider, "k1", data.target]]);
            press(form, "connectProvider");
            compare(lastCall(), data.ask);
            answer({ apiTesting: true });
            compare(part(form, "connectProvider").text, "Проверка…");
            answer({ apiTesting: false, apiStatus: "Ключ не принят" });
            compare([part(form, "providerKey").text, part(form, "providerStatus").text], ["k1", "Ключ не принят"]);
            press(form, "connectProvider");
            answer({ apiStatus: data.done });
            compare(part(form, "providerKey").text, "");
            press(form, "forgetProvider");
            compare(lastCall(), data.back);
        }
        function test_modelsOfOneProviderOrAgentAreNotShownForAnother_data() {
            return [
                { tag: "of another agent", change: () => stub.modelCatalogOwner = "OpenAI/coding" },
                { tag: "another provider is chosen", change: form => {
                    part(form, "provider").forceActiveFocus();
                    keyClick(Qt.Key_Down);
                } },
                { tag: "another key is typed", change: form => type(form, "providerKey", "2") },
                { tag: "another agent is set", change: form => form.targetAgent = "planner" },
            ];
        }
        function test_modelsOfOneProviderOrAgentAreNotShownForAnother(data) {
            const form = make(apiComponent);
            type(form, "providerKey", "k");
            chooseModel(form, "OpenAI/");
            compare([part(form, "models").count, part(form, "models").displayText], [2, "m1"]);
            data.change(form);
            compare(part(form, "models").count, 0);
            verify(!part(form, "connectProvider").enabled);
        }
        function test_eachAgentsFormBeginsWithItsOwnProvider() {
            const form = make(apiComponent, { targetAgent: "planner" });
            form.targetAgent = "coding";
            compare(part(form, "provider").currentText, "Gemini");
            form.targetAgent = "planner";
            compare(part(form, "provider").currentText, "OpenAI");
        }
        function test_aLongListIsNarrowedDownByTyping() {
            const dialog = createTemporaryObject(dialogComponent, root);
            dialog.open();
            tryCompare(dialog, "opened", true);
            const choice = createTemporaryObject(choiceComponent, dialog.contentItem);
            chosen.clear();
            chosen.target = choice;
            choice.forceActiveFocus();
            keyClick(Qt.Key_Space);
            tryCompare(choice.popup, "opened", true);
            for (const letter of "EL-99")
                keyClick(letter);
            compare(findChild(choice.popup.contentItem, "choiceList").count, 11);
            keyClick(Qt.Key_Down);
            keyClick(Qt.Key_Return);
            compare([chosen.count, choice.currentText], [1, "model-990"]);
            keyClick(Qt.Key_Space);
            tryCompare(choice.popup, "opened", true);
            keyClick(Qt.Key_Escape);
            tryCompare(choice.popup, "visible", false);
            verify(dialog.visible);
        }
        function test_aFoundServerIsConnectedByKeyboard() {
            const form = make(formComponent);
            press(form, "findModelServers");
            const one = { name: "llama.cpp", url: "http://127.0.0.1:8080/v1", models: [{ id: "only" }] };
            const many = { name: "vLLM", url: "http://127.0.0.1:8000/v1", models: Array(200).fill({ id: "x" }) };
            type(form, "serverKey", "secret");
            answer({ foundServers: [one, many] });
            tryVerify(() => findChild(form, "foundServer"));
            press(form, "foundServer");
            keyClick(Qt.Key_Return);
            compare(stub.calls, [["findServers"], ["connectServer", one.url, "only", "", ""]]);
            answer({ apiStatus: "Подключено: only" });
            compare(part(form, "serverFormStatus").text, "Подключено: only");
            form.take(part(form, "foundServer").parent.children.find(item => item.cut));
            compare(lastCall(), ["loadServerModels", many.url, "", ""]);
            press(form, "forgetServer");
            compare(lastCall(), ["forgetServer", many.url]);
        }
        function test_onlyWhatRunsHereCanBeStoppedHere() {
            const [form, check] = [make(formComponent), make(checkComponent)];
            answer({ settings: { mock: false, model: "m" } });
            press(check, "measureConnection");
            answer({ apiTesting: true, measuring: true, apiStatus: "Проверяю" });
            verify(!part(form, "stopCheck").visible && !part(form, "serverFormStatus").visible);
            press(check, "stopMeasuring");
            compare(stub.calls, [["measureConnection"], ["stopCheck"]]);
        }
        function test_aLayoutIsKeptAndTakenByItsName() {
            const page = make(lookComponent);
            type(page, "layoutName", "abc");
            keyClick(Qt.Key_Return);
            compare(part(page, "layoutName").text, "");
            part(page, "layouts").forceActiveFocus();
            keyClick(Qt.Key_Down);
            compare(lastCall(), ["loadNetwork", "abc"]);
        }
    }
}
