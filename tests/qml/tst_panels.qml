import QtQuick
import QtTest
import Vesk
import Vesk.Test

/* What each part of the window says, and what it asks of the application when it is pressed. */
Item {
    id: root
    width: 900
    height: 700

    StandIn {
        id: stub
        property bool chatBusy: false
        property bool importing: false
        property bool apiTesting: false
        property string streamNote: ""
        property string projectName: ""
        property string root: "/p"
        property string message: ""
        property var settings: ({})
        property var preferences: ({})
        property var attachments: []
        property var queue: [{ id: "q1", request: "Создай сайт" }]
        property bool queuePaused: true
        property int queueRemoved: 2
        property var projects: [{ id: "1", name: "Первый" }, { id: "2", name: "Второй" }]
        property var tasks: [{ id: "t1", phase: "", spec: { title: "Старый" } },
            { id: "t2", phase: "", spec: { title: "Новый" } }]
        property var files: []
        property var events: [{ id: "1", type: "TaskCreated", time: "2024-05-01T09:08:07Z" },
            { id: "2", type: "TaskPaused", time: "2024-05-01T10:00:00Z" }]
        property var calls: []
        function note(name, given) { calls.push([name].concat(Array.from(given))); }
        function phaseLabel(code: string): string { return "фаза"; }
        function roleLabel(code: string): string { return "роль"; }
        function statusLabel(code: string): string { return "статус"; }
        function fileContent(path: string): string { return "текст " + path; }
        function runDetails(id) { return { stored: id }; }
        function setPreference(key, value) { note("setPreference", arguments); }
        function pinAsset(path, usage) { note("pinAsset", arguments); }
        function openFile(path) { note("openFile", arguments); }
        function openWorkspace() { note("openWorkspace", arguments); }
        function approve(item, allow) { note("approve", arguments); }
        function clearQueue() { note("clearQueue", arguments); }
        function undoQueue() { note("undoQueue", arguments); }
        function resumeQueue() { note("resumeQueue", arguments); }
        function cancelQueued(item) { note("cancelQueued", arguments); }
        function selectProject(item) { note("selectProject", arguments); }
        function selectTask(item) { note("selectTask", arguments); }
    }
    Component { id: settings; SettingsPanel { service: stub } }
    Component {
        id: files
        FilesPanel { service: stub; shown: true; selected: stub.files[0]; width: 400; height: 600 }
    }
    Component {
        id: permissions
        PermissionsDialog { service: stub; pending: [{ id: "p1", node: { input: { program: "make" } } }] }
    }
    Component { id: queue; QueueDialog { service: stub } }
    Component { id: projects; ProjectMenu { service: stub; width: 240 } }
    Component { id: composer; Composer { service: stub; live: true; clarifying: false; width: 600 } }
    Component { id: left; LeftColumn { service: stub; quiet: false; currentTask: "t2"; width: 240; height: 600 } }
    Component { id: history; HistoryPanel { service: stub; width: 360; height: 400 } }
    Component { id: details; AgentDetails { service: stub; run: ({ id: "r1" }) } }
    Component { id: panelMenu; PanelMenu {} }
    Component { id: welcome; Welcome { width: 600 } }
    Component { id: statusLine; StatusLine { service: stub; live: true } }
    Component { id: progress; ProgressCard { note: "План"; streamNote: ""; live: true; width: 600 } }
    Component { id: told; StatusLine { service: stub; live: true; told: true } }
    Component {
        id: far
        ProgressCard {
            note: "План"; streamNote: ""; live: true; width: 600
            progress: ({ began: "2024-05-01T09:00:00", steps: 3, done: 1, step: "Читаю" })
        }
    }
    Component {
        id: ended
        ProgressCard {
            note: "Готово"; streamNote: "x"; live: false; width: 600
            progress: ({ began: "2024-05-01T10:57:55", ended: "2024-05-01T12:00:00" })
        }
    }
    Component { id: waiting; WaitingLine { width: 300; streamNote: "" } }
    Component { id: fileRow; FileRow { row: stub.files[0] } }
    Component { id: thread; ThreadRow { width: 240; chosen: false; phase: "Завершено"; row: ({ id: "t", spec: {} }) } }
    Component { id: selection; Selection { service: stub } }
    Component { id: spyComponent; SignalSpy {} }

    TestCase {
        name: "Panels"
        when: windowShown

        function init() {
            failOnWarning(/.?/);
            Object.assign(stub, { calls: [], settings: { mock: false }, preferences: {}, streamNote: "",
                attachments: [{ id: "a1", name: "фото.png" }],
                files: [{ path: "a/b.png", type: "media", kind: "image", usage: "Баннер", bytes: 1025 }] });
        }
        function make(component, properties) {
            const made = createTemporaryObject(component, root, properties ?? {});
            if (made.open) {
                made.open();
                tryCompare(made, "opened", true);
            } else if (made instanceof Item) {
                waitForRendering(made);
            }
            return made;
        }
        /* The item with this text or accessible name. */
        function named(item, name) {
            if (item.visible && (item.text === name || item.Accessible?.name === name) && item.clicked)
                return item;
            for (const child of item.children) {
                const found = named(child, name);
                if (found)
                    return found;
            }
            return null;
        }
        function find(made, name) {
            let found = null;
            tryVerify(() => (found = named(made.open ? made.contentItem : made, name)) !== null, 5000, name);
            return found;
        }

        function test_aButtonAsksForWhatItSays_data() {
            const row = (make, press, ...asked) => ({ tag: press, make, press, asked });
            const width = (side, value) => ["setPreference", side + "_width", value];
            return [
                row(settings, "Прозрачные панели", ["setPreference", "glass", false]),
                row(settings, "Анимации", ["setPreference", "animations", false]),
                row(settings, "Команда слева", ["setPreference", "team_left", true]),
                row(settings, "Сбросить ширину панелей", width("sidebar", 236), width("inspector", 390)),
                row(files, "Баннер", ["pinAsset", "a/b.png", "Баннер"]),
                row(files, "Иконка", ["pinAsset", "a/b.png", "Иконка"]),
                row(files, "Открепить", ["pinAsset", "a/b.png", ""]),
                row(files, "Открыть файл ↗", ["openFile", "a/b.png"]), row(files, "Открыть папку", ["openWorkspace"]),
                Object.assign(row(files, "a/b.png, Баннер · image · 2 КБ", ["openFile", "a/b.png"]), { twice: true }),
                row(permissions, "Запретить", ["approve", "p1", false]),
                row(queue, "Убрать все", ["clearQueue"]), row(queue, "Вернуть", ["undoQueue"]),
                row(queue, "Продолжить", ["resumeQueue"]),
                row(projects, "Второй", ["selectProject", "2"]),
                row(left, "Старый, фаза", ["selectTask", "t1"])
            ];
        }
        function test_aButtonAsksForWhatItSays(data) {
            const button = find(make(data.make), data.press);
            if (data.twice)
                mouseDoubleClickSequence(button);
            else
                mouseClick(button);
            compare(stub.calls, data.asked);
        }
        function test_aPressIsToldToTheWindow_data() {
            const row = (make, press, told, sent) => ({ tag: press, make, press, told, sent });
            return [
                row(welcome, "Улучшить проект", "drafted", "Улучши проект: "),
                row(welcome, "Посмотреть демо", "demoRequested"),
                row(details, "Технические данные", "runRequested", "r1"),
                row(history, "Запрос принят", "eventRequested", stub.events[0]),
                row(panelMenu, "Сеть агентов", "panelChosen", "agents"), row(panelMenu, "Файлы", "panelChosen", "files"),
                row(panelMenu, "Закрыть панель", "hidden")
            ];
        }
        function test_aPressIsToldToTheWindow(data) {
            const made = make(data.make);
            const told = createTemporaryObject(spyComponent, root, { target: made, signalName: data.told });
            mouseClick(find(made, data.press), 20, 15);
            compare(told.count, 1);
            compare(told.signalArguments[0][0], data.sent);
        }
        function test_aLineSaysHowThingsStand_data() {
            const row = (tag, make, given, text, of) => ({ tag, make, given, text, of });
            return [
                row("status, connected", statusLine, { settings: { mock: false, model: "m" } }, "m · до 8 агентов"),
                row("status, at work", statusLine, { streamNote: "Пишу" }, "Пишу"),
                row("status, said elsewhere", told, { streamNote: "Пишу" }, " · до 8 агентов"),
                row("progress", progress, {}, "План, структура и действия команды", "progressNote"),
                row("progress, step", far, {}, "План · Читаю", "progressState"),
                row("progress, steps", far, {}, "Готово 1 из 3", "progressSteps"),
                row("progress, ended", ended, {}, "За 1 ч 2 мин · 1 мая, 12:00", "progressNote")
            ];
        }
        function test_aLineSaysHowThingsStand(data) {
            Object.assign(stub, data.given);
            const made = make(data.make);
            compare((data.of ? findChild(made, data.of) : made).text, data.text);
        }
        function test_aRowIsNamedByWhatItHas_data() {
            const spec = (title, original_request) => ({ id: "t", spec: { title, original_request } });
            return [
                { tag: "title", make: thread, row: spec("Калькулятор", "Создай"), name: "Калькулятор, Завершено" },
                { tag: "request", make: thread, row: spec("", "Создай\nсайт"), name: "Создай сайт, Завершено" },
                { tag: "file", make: fileRow, row: { path: "a.js", revision: 3 }, name: "a.js, Версия 3" },
                { tag: "media", make: fileRow, row: { path: "a.png", type: "media", kind: "image", bytes: 1024 },
                  name: "a.png, image · 1 КБ" }
            ];
        }
        function test_aRowIsNamedByWhatItHas(data) {
            compare(make(data.make, { row: data.row }).Accessible.name, data.name);
        }
        function test_whatIsBeingSentIsShown() {
            for (const component of [progress, waiting])
                verify(texts(make(component, { streamNote: "Получаю ответ" })).includes("Получаю ответ"));
        }
        function texts(item) {
            return Array.from(item.children).reduce((all, child) => all.concat(texts(child)), [item.text ?? ""]);
        }
        function test_theNewestStandsFirst() {
            const list = make(history);
            compare([list.itemAtIndex(0).Accessible.name, list.itemAtIndex(0).height], ["Работа приостановлена", 65]);
            const column = make(left);
            verify(find(column, "Новый, фаза").y < find(column, "Старый, фаза").y);
        }
        function test_aLineIsSentWhenNothingElseIsGoingOn() {
            const box = make(composer);
            const send = findChild(box, "sendButton");
            verify(send.enabled, "a file is enough");
            for (const busy of ["chatBusy", "importing", "apiTesting"]) {
                stub[busy] = true;
                verify(!send.enabled, busy);
                stub[busy] = false;
            }
            stub.attachments = [];
            box.input.text = " ";
            verify(!send.enabled);
            box.input.text = "x";
            verify(send.enabled);
        }
        function test_whatIsInViewFollowsItsRecord() {
            const inView = make(selection);
            inView.file = { path: "a/b.png", revision: 1 };
            stub.files = [{ path: "a/b.png", revision: 2 }];
            inView.refresh();
            compare(inView.file.revision, 2);
            stub.files = [];
            inView.refresh();
            compare(inView.file, {});
        }
        function test_aListIsWorkedByTheKeyboard_data() {
            return [
                { tag: "queueList", make: queue, key: Qt.Key_Delete, asked: ["cancelQueued", "q1"] },
                { tag: "projectList", make: projects, key: Qt.Key_Space, asked: ["selectProject", "1"] },
                { tag: "threadList", make: left, key: Qt.Key_Return, asked: ["selectTask", "t2"] },
                { tag: "fileList", make: files, key: Qt.Key_Enter, asked: ["fileSelected", "a/b.png"] }
            ];
        }
        function test_aListIsWorkedByTheKeyboard(data) {
            const made = make(data.make);
            made.fileSelected?.connect(file => stub.note("fileSelected", [file.path]));
            findChild(made.contentItem ?? made, data.tag).forceActiveFocus(Qt.TabFocusReason);
            keyClick(data.key);
            compare(stub.calls, [data.asked]);
        }
    }
}
