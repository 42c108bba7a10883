import QtQuick
import QtTest
import Vesk
import Vesk.Test

/* Dialogs and forms, with an application that notes what it is asked. */
Item {
    id: root
    width: 900
    height: 700

    readonly property alias service: stub
    StandIn {
        id: stub
        property bool apiTesting: false
        property string message: ""
        property string apiStatus: ""
        property var settings: ({ mock: true, provider: "" })
        property var calls: []
        function connectProvider(provider: string, model: string, key: string) { calls.push([provider, model, key]); }
        function proofs(): var {
            return { headline: "1 из 2 критериев подтверждён проверками.", gaps: ["main.py: пустой файл."],
                counts: [{ level: "unproved", count: 1 }], rows: [
                { list: "criteria", place: 1, section: "Критерии готовности", text: "Работает", marks: ["только мнение"],
                  level: "unproved", mark: "opinion", note: "" },
                { list: "files", place: 0, section: "Файлы", text: "main.py", marks: ["проверка", "две рецензии"],
                  level: "proved", mark: "check", note: "пустой файл" }] };
        }
        function proofBehind(list: string, place: int): string { return list + place; }
        function proofPictures(list: string, place: int): var { return list === "files" ? ["qrc:/x.png"] : []; }
        property var mcpServers: []
        property var mcpRequests: []
        function connectMcp(id: string) { calls.push(["connect", id]); }
        function disconnectMcp(id: string) { calls.push(["disconnect", id]); }
        function allowMcp(id: string, allow: bool) { calls.push([id, allow]); }
        function renameTask(task: string, title: string) { calls.push([task, title]); }
    }
    Component {
        id: dialogComponent
        FloatingDialog { title: "<i>Заголовок</i>"; width: 500; height: 300; contentItem: Item {} }
    }
    Component { id: spyComponent; SignalSpy {} }
    Component { id: proofsComponent; ProofsDialog { service: root.service } }
    Component { id: lazyComponent; LazyDialog { sourceComponent: dialogComponent } }
    Component { id: apiComponent; MainApi { width: 360; service: root.service } }
    Component { id: mcpComponent; McpPage { width: 740; height: 560; backend: root.service } }
    Component { id: renameComponent; RenameBox { width: 208; service: root.service; task: "t1"; draft: "Черновик" } }

    TestCase {
        name: "Dialogs"
        when: windowShown

        function test_aProofOpensTheRecordBehindIt() {
            const dialog = createTemporaryObject(proofsComponent, root);
            const opened = createTemporaryObject(spyComponent, root, { target: dialog, signalName: "detailsRequested" });
            dialog.begin("check");
            tryCompare(dialog, "opened", true);
            const list = findChild(dialog.contentItem, "proofRows");
            compare([list.count, list.currentIndex], [2, 1]);
            tryCompare(findChild(dialog.contentItem, "proofsBar"), "width", list.width);
            dialog.begin("");
            compare(list.currentIndex, 0);
            compare(list.itemAtIndex(1).Accessible.name, "проверка, две рецензии: main.py");
            keyClick(Qt.Key_Return);
            mouseClick(list.itemAtIndex(1));
            compare(opened.signalArguments.map(call => [call[0], call[1].length]), [["criteria1", 0], ["files0", 1]]);
        }

        function init() {
            failOnWarning(/.?/);
            Object.assign(stub, { apiTesting: false, message: "", apiStatus: "", calls: [] });
            stub.settings = { mock: true, provider: "" };
            root.Window.window.requestActivate();
            tryVerify(() => root.Window.window.active);
        }
        function openDialog() {
            const dialog = createTemporaryObject(dialogComponent, root);
            dialog.open();
            tryCompare(dialog, "opened", true);
            return dialog;
        }
        function drag(fromX, fromY, toX, toY) {
            mousePress(root, fromX, fromY);
            mouseMove(root, (fromX + toX) / 2, (fromY + toY) / 2);
            mouseMove(root, toX, toY);
            mouseRelease(root, toX, toY);
        }

        function test_aDialogIsMovedByItsHeaderAndStaysInReach() {
            const dialog = openDialog();
            compare([dialog.x, dialog.y], [200, 200]);
            compare(dialog.header.height, 58);
            drag(300, 220, 350, 180);
            compare([dialog.x, dialog.y], [250, 160]);
            drag(350, 180, 20, 20);
            compare(dialog.y, 0);
            drag(Math.max(dialog.x, 0) + 20, 20, 899, 699);
            verify(dialog.x <= root.width - 40 && dialog.y <= root.height - 40);
            compare(dialog.width, 500);
        }
        function test_aDialogIsResizedWithinLimits_data() {
            return [
                { tag: "larger", by: [60, 40], size: [560, 340] },
                { tag: "smaller", by: [-60, -40], size: [440, 260] },
                { tag: "too small", by: [-490, -290], size: [380, 200] },
                { tag: "too large", by: [2000, 2000], size: [880, 680] }
            ];
        }
        function test_aDialogIsResizedWithinLimits(data) {
            const dialog = openDialog();
            compare(dialog.footer.height, 16);
            drag(690, 490, 690 + data.by[0], 490 + data.by[1]);
            compare([dialog.width, dialog.height], data.size);
            compare([dialog.x, dialog.y], [200, 200]);
        }
        function test_aDialogIsClosedByEscapeAndByItsCross() {
            const dialog = openDialog();
            keyClick(Qt.Key_Escape);
            tryCompare(dialog, "visible", false);
            dialog.open();
            tryCompare(dialog, "opened", true);
            root.forceActiveFocus();
            keyClick(Qt.Key_Escape);
            tryCompare(dialog, "visible", false);
            dialog.open();
            tryCompare(dialog, "opened", true);
            mouseClick(findChild(dialog.header, "dialogClose"));
            tryCompare(dialog, "visible", false);
        }
        function test_theDialogAskedForLastStandsInFront() {
            const lazy = createTemporaryObject(lazyComponent, root);
            const first = lazy.show();
            first.open();
            openDialog();
            const inFront = () => first.room.children[first.room.children.length - 1] === first.contentItem.parent;
            verify(!inFront());
            compare(lazy.show(), first);
            verify(inFront());
        }
        function test_aNewTitleIsStoredByEnterAlone() {
            const box = createTemporaryObject(renameComponent, root);
            box.open();
            tryCompare(box, "opened", true);
            const editor = findChild(box.contentItem, "renameEditor") ?? box.contentItem;
            compare(editor.selectedText, "Черновик");
            compare(editor.maximumLength, 120);
            keyClick(" ");
            keyClick(Qt.Key_Return);
            compare([stub.calls.length, box.visible], [0, true]);
            stub.message = "Диалог не найден.";
            keyClick("x");
            keyClick(Qt.Key_Return);
            compare(stub.calls, [["t1", " x"]]);
            compare(box.visible, true);
            keyClick(Qt.Key_Escape);
            tryCompare(box, "visible", false);
            compare(stub.calls.length, 1);
        }
        function test_aKeyIsSentOnceAndForgottenWhenItWorks() {
            const form = createTemporaryObject(apiComponent, root);
            const key = findChild(form, "apiKey");
            const button = findChild(form, "connectButton");
            const status = findChild(form, "connectionStatus");
            compare([status.visible, key.placeholderText, button.text], [false, "API-ключ Alem Plus", "Подключить"]);
            compare(key.echoMode, TextInput.Password);
            key.forceActiveFocus();
            for (const letter of "sk-1")
                keyClick(letter);
            keyClick(Qt.Key_Return);
            compare(stub.calls, [["Alem Plus", "qwen3-8", "sk-1"]]);
            stub.apiTesting = true;
            compare([key.enabled, button.enabled, button.text], [false, true, "Подключаю…"]);
            stub.changed();
            form.connectModel();
            compare([stub.calls.length, form.connecting], [1, true]);
            stub.apiTesting = false;
            stub.apiStatus = "Ключ не подошёл";
            stub.changed();
            compare([form.connecting, key.text, status.text], [false, "sk-1", "Ключ не подошёл"]);
            mouseClick(button);
            stub.apiStatus = "Подключено: qwen3-8";
            stub.changed();
            compare([key.text, status.text, stub.calls.length], ["", "Подключено: qwen3-8", 2]);
            stub.message = "Нет сети";
            compare(status.text, "Нет сети");
        }
        function test_aServerSaysHowItStandsWithIt_data() {
            return [
                { status: "Доступен", text: "Доступен для подключения", button: "Подключить", called: "connect" },
                { status: "Подключение…", text: "Подключаюсь…", button: "Подключить", called: "" },
                { status: "Подключён", text: "Подключён · инструментов: 3", button: "Отключить", called: "disconnect" },
                { status: "Ошибка", error: "<b>нет</b>", text: "<b>нет</b>", button: "Подключить", called: "connect",
                  details: "Traceback" }
            ].map(row => Object.assign({ tag: row.status, error: "", details: "" }, row));
        }
        function test_aServerSaysHowItStandsWithIt(data) {
            stub.mcpServers = [{ id: "s", name: "и".repeat(300), tool_count: 3, status: data.status, error: data.error,
                                 details: data.details }];
            const page = createTemporaryObject(mcpComponent, root);
            const list = findChild(page, "mcpServers");
            tryVerify(() => list.itemAtIndex(0));
            const entry = list.itemAtIndex(0);
            compare(findChild(entry, "serverStatus").text, data.text);
            compare(findChild(entry, "serverDetails").visible, data.details !== "");
            compare(entry.width, list.width - list.barSpace);
            const button = findChild(entry, "serverAction");
            compare(button.text, data.button);
            mouseClick(button);
            compare(stub.calls, data.called ? [[data.called, "s"]] : []);
        }
        function test_aServerOfTheProjectIsShownInFullBeforeItIsAllowed() {
            stub.mcpServers = [];
            stub.mcpRequests = [{ id: "p", name: "Имя", source: "/p/.mcp.json", program: "sh", arguments: ["-c", "\u202e"],
                                  cwd: "/p", environment: ["KEY"] }];
            const page = createTemporaryObject(mcpComponent, root);
            verify(findChild(page, "noServers").visible);
            const text = findChild(findChild(page, "serverEntry"), "plainText").text;
            for (const shown of ['"sh"', '"-c"', "u202e", '"/p"', '"KEY"', "/p/.mcp.json"])
                verify(text.includes(shown), shown);
            mouseClick(findChild(page, "allowServer"));
            mouseClick(findChild(page, "denyServer"));
            compare(stub.calls, [["p", true], ["p", false]]);
        }
        function test_theFormSaysWhatIsConnectedAlready() {
            stub.settings = { mock: false, provider: "Alem Plus" };
            const form = createTemporaryObject(apiComponent, root);
            compare(findChild(form, "connectionStatus").text, "Подключено");
        }
    }
}
