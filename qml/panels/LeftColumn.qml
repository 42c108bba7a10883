pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Layouts
import Vesk

/* Projects and conversations. */
Rectangle {
    id: root

    required property Backend service
    /* Neither a run nor a chat is going on. */
    required property bool quiet
    required property string currentTask
    /* What the task in view waits for, when its phase doesn't tell. */
    property string currentNote: ""
    readonly property bool demo: service.settings.mock ?? true
    property alias projectMenu: projectMenu

    signal newChat()
    signal newProject()
    signal folderRequested()
    signal projectChosen()
    signal taskChosen()
    signal taskMenu(string task, Item row)
    signal taskRename(string task, Item row)
    signal settings()
    signal hidden()

    color: Theme.column
    Accessible.role: Accessible.Pane
    Accessible.name: "Проекты и диалоги"

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 14
        spacing: 12

        RowLayout {
            spacing: 10
            Image {
                source: "qrc:/assets/vesk-logo.png"
                asynchronous: true
                sourceSize: Qt.size(28 * Screen.devicePixelRatio, 28 * Screen.devicePixelRatio)
                Layout.preferredWidth: 28
                Layout.preferredHeight: 28
                smooth: true
                mipmap: true
                Accessible.ignored: true
            }
            LabelText {
                text: "VESK"
                font.pixelSize: Theme.title
                font.bold: true
                font.letterSpacing: 2
                Layout.fillWidth: true
            }
            IconAction {
                objectName: "hideSidebar"
                text: "‹"
                tip: "Скрыть панель"
                onClicked: root.hidden()
            }
        }
        Action {
            objectName: "newChat"
            text: "+  Новый чат"
            font.weight: Font.DemiBold
            enabled: root.quiet
            Layout.fillWidth: true
            onClicked: root.newChat()
        }
        RowLayout {
            Heading {
                text: "ПРОЕКТ"
                Layout.fillWidth: true
            }
            IconAction {
                objectName: "newProject"
                text: "+"
                tip: "Новый проект"
                onClicked: root.newProject()
            }
        }
        Action {
            id: projectButton
            objectName: "projectButton"
            text: root.service.projectName || "Выбрать проект"
            trailing: "▾"
            Layout.fillWidth: true
            onClicked: projectMenu.toggle()

            LazyDialog {
                id: projectMenu
                function toggle() {
                    if (dialog?.visible)
                        hide();
                    else
                        show().open();
                }
                sourceComponent: ProjectMenu {
                    parent: projectButton
                    y: projectButton.height + 4
                    width: Math.max(projectButton.width, Theme.px(220))
                    service: root.service
                    onChosen: root.projectChosen()
                    onNewProject: root.newProject()
                    onFolderRequested: root.folderRequested()
                }
            }
        }
        Action {
            objectName: "openFolder"
            text: "Открыть папку"
            flat: true
            visible: root.service.root !== "" && root.height > Theme.px(400) // the panel of files has it, too
            Layout.fillWidth: true
            onClicked: root.service.openWorkspace()
        }
        Heading { text: "ДИАЛОГИ" }
        PaneList {
            id: threadList
            objectName: "threadList"
            Layout.fillWidth: true
            Layout.fillHeight: true
            Accessible.name: "Диалоги"
            model: Rows {
                id: threads
                source: root.service
                list: "tasks"
                newestFirst: true
            }
            delegate: ThreadRow {
                width: ListView.view.width
                chosen: row.id === root.currentTask
                phase: chosen && root.currentNote !== "" ? root.currentNote : root.service.phaseLabel(row.phase)
                onClicked: root.choose(row.id)
                onMenuRequested: root.taskMenu(row.id, this)
            }
            onActivated: place => root.choose(threads.at(place).id)
            onMenuRequested: place => root.taskMenu(threads.at(place).id, itemAtIndex(place))
            /* What is renamed or goes on moves to the top, and stays the one that the keyboard is on. */
            property string moving: ""
            function follow() {
                const place = root.placeOf(moving);
                if (place >= 0)
                    currentIndex = place;
            }
            Connections {
                target: threads
                function onRowsAboutToBeRemoved(parent: var, first: int, last: int) {
                    const here = threadList.currentIndex;
                    if (here < first || here > last)
                        return;
                    threadList.moving = threads.at(here).id;
                    Qt.callLater(threadList.follow);
                }
            }
            onRenamed: place => root.taskRename(threads.at(place).id, itemAtIndex(place))
        }
        Rectangle {
            color: Theme.rule
            Layout.fillWidth: true
            Layout.preferredHeight: 1
        }
        /* With large texts in a narrow column the button stands below. */
        GridLayout {
            id: foot
            columns: model.implicitWidth + settingsButton.implicitWidth + 24 > width ? 2 : 3
            columnSpacing: 8
            Rectangle {
                color: root.demo ? Theme.dotOff : Theme.dotOn
                radius: 3.5
                Layout.preferredWidth: 7
                Layout.preferredHeight: 7
            }
            NameText {
                id: model
                objectName: "modelName"
                text: root.demo ? "Демонстрация" : root.service.settings.model ?? ""
                color: Theme.textNote
                font.pixelSize: Theme.note
                Layout.fillWidth: true
            }
            IconAction {
                id: settingsButton
                objectName: "settingsButton"
                Layout.columnSpan: 4 - foot.columns
                Layout.fillWidth: foot.columns === 2
                text: "Настройки"
                tip: "Настройки пространства и агентов"
                onClicked: root.settings()
            }
        }
    }

    function placeOf(task: string): int {
        for (let i = 0; i < threads.count; ++i) {
            if (threads.at(i).id === task)
                return i;
        }
        return -1;
    }
    /* The conversation that many rows below the one in view. */
    function step(rows: int) {
        const here = placeOf(currentTask);
        const next = here < 0 ? 0 : here + rows;
        if (next >= 0 && next < threads.count)
            choose(threads.at(next).id);
    }
    function choose(task: string) {
        service.selectTask(task);
        taskChosen();
    }
}
