import QtQuick
import QtTest
import Vesk
import Vesk.Test

/* Every scene of the window, without a mouse and by name alone. */
Item {
    id: root
    width: 400
    height: 300

    StandIn {
        id: stub
        property bool chatBusy: false
        property bool queuePaused: false
        property string message: ""
        property string networkUndo: ""
        property var uiState: ({})
        property var chat: []
        property var tasks: []
        property var files: []
        property var events: []
        property var queue: []
        property var attachments: []
        property var handEdits: []
        property var mcpServers: []
        property var mcpRequests: []
        property var takeIn: ({})
        property var commit: ({ phase: "ready", branch: "main", files: [{ path: "a.txt", change: "новый" }] })
        function lookAtCommit() {}
        function cancelCommit() {}
        function fileContent(path: string): string { return "строка\n".repeat(200); }
        function runDetails(id: string): var { return { id }; }
        function restorePoints(): var { return [{ id: "a", title: "Начало", time: "" }, { id: "b", title: "Конец", time: "" }]; }
        function compareRestore(id: string) {}
        function cancelFolder() {}
        function dismissMessage() { message = ""; }
        function proofs(): var {
            return { headline: "1 из 1", gaps: ["пусто"], rows: [{ list: "files", place: 0, section: "Файлы", text: "main.py",
                marks: ["проверка"], level: "proved", note: "" }] };
        }
    }
    Component { id: mainComponent; Main { backend: stub; width: 1300; height: 760; minimumWidth: 500; minimumHeight: 300 } }
    Component { id: textComponent; PlainArea { width: 300; height: 200; text: "строка\n".repeat(99) + "конец" } }
    Component { id: rulesComponent; RulesInput { width: 300; height: 200; text: "строка\n".repeat(99) + "конец" } }
    Component {
        id: listComponent
        PaneList { width: 300; height: 200; model: 100; delegate: ListRow { width: 300; height: 20; text: "строка" } }
    }
    Keyboard { id: keyboard }

    TestCase {
        name: "Keyboard"
        when: windowShown

        property Main app: null
        property string agent: ""
        readonly property var nothing: ({ chatBusy: false, queuePaused: false, message: "", networkUndo: "", uiState: {},
            chat: [], tasks: [], files: [], events: [], queue: [], attachments: [], handEdits: [], mcpServers: [],
            mcpRequests: [], takeIn: {} })
        readonly property var talk: [{ id: "1", role: "user", kind: "message", content: "Привет", attachments: [{ name: "a.txt", path: "a" }] },
            { id: "2", role: "assistant", kind: "message", content: "текст ".repeat(5000) },
            { id: "3", role: "assistant", kind: "progress", content: "План" },
            { id: "4", role: "assistant", kind: "report", content: "Задача завершена. Готово" }]
        readonly property var pending: [{ id: "p", node: { input: { program: "make", arguments: ["a", "b"] } } },
            { id: "q", node: { input: { program: "ls" } } }]
        readonly property var server: ({ id: "s", name: "Сервер", program: "sh", arguments: [], environment: [], status: "Ошибка",
            error: "нет", details: "Traceback" })

        function initTestCase() {
            stub.addAgent("Дизайн", "coding", "");
            agent = stub.agentProfiles.find(profile => profile.custom).id;
            stub.addAgent("Тест", "coding", "");
            stub.setPreference("automatic_routing", false);
            stub.setPreference("animations", false);
            app = mainComponent.createObject(null);
        }
        function cleanupTestCase() { app.destroy(); }
        function cleanup() {
            for (let i = 0; i < 3; ++i)
                keyClick(Qt.Key_Escape);
        }
        function init() {
            failOnWarning(/^(?!QUnifiedTimer)/); // taking pictures confuses Qt's clock of animations
            app.requestActivate();
            tryVerify(() => app.active);
            app.sidebarOpen = true;
            app.inspectorOpen = false;
            app.inspectorWidth = 390;
            app.selectedFile = {};
            app.input.clear();
            app.input.forceActiveFocus();
        }
        function give(properties) {
            Object.assign(stub, nothing, properties);
            stub.changed();
            stub.chatChanged();
            stub.connectorsChanged();
            stub.preferencesChanged();
        }

        function test_everyControlIsReachedAndNamed_data() {
            const scene = (tag, given, ready) => ({ tag, given, ready: ready ?? (() => {}), over: "" });
            const over = (tag, given, ready) => Object.assign(scene(tag, given, ready), { over: tag.split(",")[0] });
            const settings = (tag, section, then) => over("workspaceSettings, " + tag, { mcpServers: [server], mcpRequests: [server] }, w => {
                const dialog = w.dialogs().workspaceSettings.show();
                dialog.adding = false;
                dialog.selectedAgent = agent;
                dialog.section = section;
                dialog.open();
                then?.(dialog);
            });
            const keyOn = (name, key) => {
                tryVerify(() => findChild(app.contentItem, name)?.visible);
                findChild(app.contentItem, name).forceActiveFocus(Qt.TabFocusReason);
                keyClick(key);
            };
            const team = then => w => {
                w.showPanel("agents");
                tryVerify(() => findChild(w.contentItem, agent)?.visible);
                then?.(w);
            };
            return [
                scene("welcome", {}),
                scene("conversation", { chat: talk, tasks: [{ id: "t", phase: "", spec: { title: "Тест" } }], files: [{ path: "a.txt" }] }),
                scene("question", { chat: talk, uiState: { id: "t", phase: "CLARIFICATION",
                    decision: { question: "Как?", options: Array.from({ length: 20 }, (_, i) => "Ответ " + i + " ".repeat(i) + "x".repeat(30)) } } }),
                scene("cards", { message: "Ошибка", queue: [{ id: "q", request: "a" }], attachments: [{ id: "a", name: "a.png" }],
                    mcpRequests: [server], chatBusy: true, uiState: { id: "t", phase: "PREVIEW", pending } }),
                scene("edits", { chat: talk, handEdits: Array.from({ length: 8 }, (_, i) => ({ path: i + ".txt", text: i + ".txt изменён" })) }),
                scene("paused queue", { queue: [{ id: "q", request: "a" }], queuePaused: true, uiState: { paused: true, phase: "EXECUTION" } }),
                scene("without the left column", {}, w => w.sidebarOpen = false),
                scene("picture", { networkUndo: "Агент удалён" }, team(w => findChild(w.contentItem, "agentNetwork").selectedRole = agent)),
                scene("files", { files: [{ path: "a.png", type: "media", kind: "image", bytes: 1 }, { path: "b.txt" }] }, w => {
                    w.showPanel("files");
                    w.selectedFile = stub.files[0];
                }),
                scene("history", { events: [{ id: "1", type: "TaskCreated", time: "" }, { id: "2", type: "TaskPaused", time: "" }] }, w => w.showPanel("history")),
                settings("look", 0), settings("agent", 1, dialog => dialog.tasksExpanded = true),
                settings("new agent", 1, dialog => dialog.beginAdd()),
                settings("servers", 2), settings("background", 3), settings("model", 4),
                over("connection", {}, w => w.dialogs().connection.show().open()),
                over("projectDialog", {}, w => w.dialogs().beginProject()),
                over("projectMenu", {}, w => w.projectMenu.show().open()),
                over("threadMenu", { tasks: [{ id: "t", phase: "", spec: { title: "Тест" } }] }, () => keyOn("threadList", Qt.Key_Menu)),
                over("panelMenu", {}, team(() => keyOn("panelMenuButton", Qt.Key_Return))),
                over("agentMenu", {}, team(() => keyOn(agent, Qt.Key_Menu))),
                over("filesMenu", { files: [{ path: "a.txt" }], commit: { possible: true } }, w => {
                    w.inspectorWidth = 280;
                    w.showPanel("files");
                    keyOn("allFiles", Qt.Key_Return);
                }),
                over("renameBox", {}, w => w.dialogs().showRename(Qt.point(14, 280))),
                over("agentDetails", {}, w => w.dialogs().showAgent()),
                over("details", {}, w => w.dialogs().showDetails("строка\n".repeat(300))),
                over("proofs", {}, w => w.dialogs().showProofs()),
                over("restore", {}, w => w.dialogs().showRestore()),
                over("commit", {}, w => w.dialogs().showCommit()),
                over("attachmentPicker", {}, w => w.dialogs().pick(w.dialogs().attachmentPicker)),
                over("exportPicker", {}, w => w.dialogs().showExport("")),
                over("differences", {}, w => w.dialogs().showDifferences()),
                over("queueDialog", { queue: [{ id: "q", request: "a" }] }, w => w.dialogs().queueDialog.show().open()),
                over("permissions", { uiState: { phase: "EXECUTION", pending } }, w => w.dialogs().permissions.show().open()),
                over("mcpRequests", { mcpRequests: [server] }, w => w.dialogs().serverRequests.show().open()),
                over("takeIn", { takeIn: { phase: "looking", folder: "/a", count: 1 } }),
                over("removeAgent", {}, team(() => keyOn(agent, Qt.Key_Delete)))
            ];
        }
        function test_everyControlIsReachedAndNamed(data) {
            const before = app.activeFocusItem;
            give(data.given);
            waitForRendering(app.contentItem);
            data.ready(app);
            if (data.over !== "")
                tryVerify(() => findChild(app, data.over)?.opened);
            waitForRendering(app.contentItem);
            wait(60); // A conversation finds its end once the texts are laid out.
            compare(keyboard.faults(app).join("\n"), "");
            if (data.over === "")
                return;
            keyClick(Qt.Key_Escape);
            tryVerify(() => !findChild(app, data.over).visible);
            if (!data.over.includes("Menu") && data.over !== "removeAgent")
                compare(app.activeFocusItem, before);
        }
        function test_whatIsToBeAnsweredIsInSightInALowWindow_data() {
            const options = Array.from({ length: 9 }, (_, i) => "Ответ " + i + " слово".repeat(20));
            const edits = Array.from({ length: 8 }, (_, i) => ({ path: i + ".txt", text: i + ".txt изменён" }));
            return [
                { tag: "decisionCard", given: { uiState: { phase: "CLARIFICATION", decision: { question: "Как? ".repeat(30), options } } } },
                { tag: "editList", given: { handEdits: edits } },
                { tag: "permissionCard", given: { message: "Ошибка ".repeat(60), mcpRequests: [server], uiState: { phase: "EXECUTION", pending } } }
            ];
        }
        function test_whatIsToBeAnsweredIsInSightInALowWindow(data) {
            give(Object.assign({ chat: talk }, data.given));
            Object.assign(app, { width: 681, height: 344 });
            for (const name of [data.tag, "composer"])
                tryVerify(() => {
                    const item = findChild(app.contentItem, name);
                    return item?.height > 30 && item.mapToItem(null, 0, item.height).y <= app.height;
                }, 5000, name);
            Object.assign(app, { width: 1300, height: 760 });
        }
        function test_aLongTextOrListTurnsPages_data() {
            return [{ tag: "text", make: textComponent }, { tag: "input", make: rulesComponent }, { tag: "list", make: listComponent }];
        }
        function test_aLongTextOrListTurnsPages(data) {
            root.Window.window.requestActivate();
            tryVerify(() => root.Window.window.active);
            const made = createTemporaryObject(data.make, root);
            const view = made.contentItem instanceof Flickable ? made.contentItem : made;
            const seen = () => Math.round(view.contentY - view.originY);
            (made.area ?? made.contentItem.contentItem?.children[0] ?? made).forceActiveFocus(Qt.TabFocusReason);
            waitForRendering(made);
            keyClick(Qt.Key_PageDown);
            keyClick(Qt.Key_PageDown);
            tryVerify(() => seen() > 100 && seen() < 450);
            keyClick(Qt.Key_End, Qt.ControlModifier);
            tryCompare(view, "atYEnd", true);
            const end = seen();
            keyClick(Qt.Key_PageUp);
            keyClick(Qt.Key_PageUp);
            tryVerify(() => seen() < end - 100 && seen() > end - 450);
            keyClick(Qt.Key_Home, Qt.ControlModifier);
            tryVerify(() => seen() < 10);
        }
        function test_whatIsInTheWayGoesAndTheFocusIsKept() {
            give({ message: "Ошибка" });
            keyClick(Qt.Key_Escape);
            compare(stub.message, "");
            const button = findChild(app.contentItem, "hideSidebar");
            button.forceActiveFocus(Qt.TabFocusReason);
            keyClick(Qt.Key_Return);
            tryVerify(() => app.input.activeFocus);
        }
        function test_theWindowHasKeysOfItsOwn_data() {
            const dialog = name => () => findChild(app, name)?.opened ?? false;
            const focus = name => () => app.activeFocusItem?.objectName === name;
            return [
                { tag: "Ctrl+B", done: () => !app.sidebarOpen }, { tag: "Ctrl+2", done: () => app.inspectorOpen && app.panel === "files" },
                { tag: "Ctrl+,", done: dialog("workspaceSettings") }, { tag: "F1", done: dialog("keysDialog") },
                { tag: "Ctrl+Shift+N", done: dialog("projectDialog") }, { tag: "Ctrl+O", done: dialog("folderPicker") },
                { tag: "Shift+F6", done: focus("decisionOption0") }, { tag: "F6", done: focus("threadList") }
            ];
        }
        function test_theWindowHasKeysOfItsOwn(data) {
            give({ chat: talk, tasks: [{ id: "t", phase: "", spec: {} }],
                   uiState: { id: "t", phase: "CLARIFICATION", decision: { question: "Как?", options: ["Так"] } } });
            keySequence(data.tag);
            tryVerify(() => data.done() || app.activeFocusItem?.ListView.view?.objectName === "threadList" && data.tag === "F6");
        }
        function test_aDialogIsMovedReadAndClosedByKeyboard() {
            app.dialogs().showRecord([{ label: "Имя", text: "один" }, { label: "Вид", text: "два" }], null);
            const dialog = findChild(app, "details");
            tryCompare(dialog, "opened", true);
            const place = [dialog.x, dialog.width];
            keySequence("Alt+Left");
            keySequence("Alt+Shift+Right");
            compare([dialog.x < place[0], dialog.width > place[1]], [true, true]);
            const list = findChild(dialog.contentItem, "detailsFields");
            keyClick(Qt.Key_Return);
            keyClick(Qt.Key_Down);
            keyClick(Qt.Key_End, Qt.ShiftModifier);
            compare(app.activeFocusItem.selectedText, "два");
            keyClick(Qt.Key_Escape);
            verify(list.activeFocus && app.activeFocusItem.objectName !== "fieldValue");
            keyClick(Qt.Key_Return);
            keyClick(Qt.Key_Tab);
            compare(app.activeFocusItem.objectName, "rawData");
            keySequence("Ctrl+W");
            tryCompare(dialog, "visible", false);
        }
        function test_theRowUnderTheKeyboardStaysTheSame() {
            const row = id => ({ id, phase: "", spec: { title: id } });
            give({ tasks: [row("a"), row("b"), row("c")] });
            const list = findChild(app.contentItem, "threadList");
            list.forceActiveFocus(Qt.TabFocusReason);
            keyClick(Qt.Key_End);
            compare(list.currentItem.row.id, "a");
            stub.tasks = [row("b"), row("c"), row("a")];
            tryVerify(() => list.currentItem.row.id === "a");
        }
        function test_aScreenReaderIsToldWhatHappens() {
            give({ chat: talk.slice(0, 1) });
            keyboard.told();
            stub.chat = talk;
            compare(keyboard.told().map(text => text.slice(0, 11)), ["VESK: текст", "VESK: Задач"]);
            stub.uiState = { phase: "EXECUTION", pending };
            compare(keyboard.told(), ["Нужно ваше разрешение"]);
            stub.uiState = { phase: "CLARIFICATION", decision: { question: "Как?", options: ["Так"] } };
            let said = [];
            tryVerify(() => (said = said.concat(keyboard.told())).includes("Вопрос: Как? Варианты: Так"));
            give({ chat: [{ id: "9", role: "assistant", content: "Другой разговор" }] });
            compare(keyboard.told().filter(text => text.startsWith("VESK")), []);
        }
    }
}
