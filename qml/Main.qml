pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Vesk
import "Wording.js" as Wording

/* The one window: projects and conversations at the left, the conversation in the middle, the team at the right. It
   keeps nothing but what is in view; everything else is asked of, and done by, the application object. */
ApplicationWindow {
    id: app

    required property Backend backend
    readonly property var preferences: backend.preferences
    property real sidebarWidth: wantedSidebar()
    property real inspectorWidth: wantedInspector()
    /* What of it there is room for beside the conversation. */
    readonly property real shownInspectorWidth: Math.max(Theme.inspectorLeast, Math.min(inspectorWidth,
        width - (sidebarOpen ? sidebarWidth : 0) - 2 * Theme.handleWidth - Theme.centreLeast))
    readonly property bool animated: (preferences.animations ?? true) && active && visibility !== Window.Minimized
    readonly property bool glass: preferences.glass ?? true
    readonly property var current: backend.uiState
    property bool sidebarOpen: true
    property bool inspectorOpen: true
    property string panel: "agents"
    property string page: "Чат"
    property var selectedRun: ({})
    property var selectedFile: ({})
    property string settingsAgent: ""
    property string menuTask: ""
    property string renameDraft: ""
    readonly property string phase: current.phase || "IDLE"
    readonly property bool live: !["IDLE", "COMPLETED", "FAILED", "CANCELLED", "INTERRUPTED"].includes(phase)
    readonly property string note: backend.chatBusy ? "Готовлю ответ"
        : backend.apiTesting ? "Проверяю API"
        : current.paused ? "На паузе"
        : phase === "CLARIFICATION" ? "Нужен ваш ответ"
        : live ? backend.phaseLabel(phase) : "Готов к работе"
    readonly property bool teamLeft: preferences.team_left === true
    property alias input: chat.input

    title: "VESK — рабочий чат"
    width: 1440
    height: 900
    minimumWidth: 1000
    minimumHeight: 700
    visible: true
    color: Theme.window
    font.family: Theme.family
    font.pixelSize: Theme.normal
    palette {
        window: "#181818"
        base: "#202020"
        text: "#f0f0f0"
        windowText: "#eeeeee"
        button: "#252525"
        buttonText: "#eeeeee"
        highlight: "#eeeeee"
        highlightedText: "#111111"
        placeholderText: "#777777"
        toolTipBase: "#242424"
        toolTipText: "#e1e1e1"
        light: "#242424"
        midlight: "#303030"
        mid: "#5a5a5a"
        dark: "#8a8a8a"
    }

    function send() {
        const value = input.text.trim();
        if (value === "" && backend.attachments.length === 0)
            return;
        backend.sendMessage(value);
        // A refused line stays in the box.
        if (backend.message === "") {
            input.clear();
            chat.followEnd();
        }
        input.forceActiveFocus();
    }
    function wantedSidebar(): real {
        return Math.max(Theme.sidebarLeast, Math.min(Theme.sidebarMost, Number(preferences.sidebar_width) || Theme.sidebarWidth));
    }
    function wantedInspector(): real {
        return Math.max(Theme.inspectorLeast,
                        Math.min(Theme.inspectorMost, Number(preferences.inspector_width) || Theme.inspectorWidth));
    }
    function pretty(value: var): string {
        return Wording.pretty(value);
    }
    function eventText(event: var): string {
        return Wording.eventText(event, backend);
    }
    function agentReport(run: var): string {
        const stored = run.id ? backend.runDetails(run.id) : {};
        return Wording.agentReport(run, Object.keys(stored).length ? stored : run, backend.agentProfiles, backend);
    }
    /* The path that a tool of this task has reported last. */
    function reportedResult(): string {
        let path = "";
        for (const node of backend.state.graph ?? []) {
            try {
                const told = JSON.parse(node.output?.stdout ?? "");
                if (told?.success && told.path)
                    path = told.path;
            } catch (error) {
                continue; // Most output is no such report.
            }
        }
        return path;
    }
    function openResult() {
        const made = reportedResult();
        const page = backend.files.find(file => file.path?.endsWith(".html"));
        if (made !== "" || page)
            backend.openFile(made || page.path);
        else
            showPanel("files");
    }
    function dialogs(): var {
        if (!dialogLoader.item)
            dialogLoader.setSource("dialogs/WindowDialogs.qml", { app: app, backdrop: workspaceLayout });
        return dialogLoader.item;
    }
    function showPanel(name: string) {
        panel = name;
        inspectorOpen = true;
    }
    function togglePanel(name: string) {
        if (inspectorOpen && panel === name)
            inspectorOpen = false;
        else
            showPanel(name);
    }
    function showDetails(text: string) {
        const dialog = dialogs().details.show();
        dialog.detailsText = text;
        dialog.open();
    }
    function showProgress() {
        const told = backend.chat.filter(row => row.kind === "progress" || row.kind === "file").map(row => row.content);
        const happened = backend.events.map(event => eventText(event)).join("\n");
        showDetails(told.concat(happened).join("\n\n"));
    }
    function showAgent() {
        const dialog = dialogs().agentDetails.show();
        dialog.report = agentReport(selectedRun);
        dialog.open();
    }
    function showRename(task: string, draft: string, x: real, y: real) {
        menuTask = task;
        renameDraft = draft;
        const box = dialogs().renameBox.show();
        box.x = x;
        box.y = y;
        box.open();
    }
    function titleOf(task: string): string {
        return taskRows.find("id", task).spec?.title || "Диалог";
    }
    function dropFile() {
        selectedFile = {};
    }
    function focusInput() {
        page = "Чат";
        input.forceActiveFocus();
    }

    /* What is in view follows what has become of it. */
    function refreshSelection() {
        if (selectedFile.path) {
            // Asked of the backend itself: the rows follow the same signal, and may do so later.
            const file = backend.files.find(other => other.path === selectedFile.path);
            if (!file)
                dropFile();
            else if (file.revision !== selectedFile.revision)
                selectedFile = file;
        }
        if (selectedRun.id) {
            const run = (current.runs ?? []).find(other => other.id === selectedRun.id);
            if (run && run.status !== selectedRun.status) {
                selectedRun = run;
                if (dialogs().agentDetails.dialog?.visible)
                    dialogs().agentDetails.dialog.report = agentReport(run);
            }
        }
    }
    function showPage() {
        switch (page) {
        case "Выбор проекта":
            dialogs().agentDetails.hide();
            left.projectMenu.show().open();
            break;
        case "Переименование":
            left.projectMenu.hide();
            if (taskRows.count > 0) {
                const task = taskRows.at(0);
                showRename(task.id, task.spec?.title || "Диалог", 14, 280);
            }
            break;
        case "Отчёт агента":
            dialogs().workspaceSettings.hide();
            dialogs().connection.hide();
            showAgent();
            break;
        case "Настройки агентов": {
            dialogs().connection.hide();
            const settings = dialogs().workspaceSettings.show();
            settings.section = 1;
            settings.open();
            break;
        }
        case "Модель и API":
            dialogs().connection.show().open();
            break;
        case "Файлы":
            showPanel("files");
            break;
        case "Ход работы":
            showPanel("agents");
            break;
        case "История":
            showPanel("history");
            break;
        }
    }
    function showSettingsOf(agent: string) {
        if (agent === "__new__")
            dialogs().workspaceSettings.show().beginAdd();
        else if (agent === "__api__")
            dialogs().connection.show().open();
        else if (agent !== "")
            dialogs().workspaceSettings.show().selectAgent(agent);
    }

    onWidthChanged: if (width < 1150) inspectorOpen = false
    onInspectorOpenChanged: if (inspectorOpen && width < 1250) sidebarOpen = false
    onSidebarOpenChanged: if (sidebarOpen && width < 1250) inspectorOpen = false
    onPageChanged: showPage()
    onSettingsAgentChanged: showSettingsOf(settingsAgent)
    Component.onCompleted: input.forceActiveFocus()

    Binding {
        target: Theme
        property: "animated"
        value: app.animated
    }
    Binding {
        target: Theme
        property: "glass"
        value: app.glass
    }
    Rows {
        id: fileRows
        source: app.backend
        list: "files"
    }
    Rows {
        id: taskRows
        source: app.backend
        list: "tasks"
    }
    Connections {
        target: app.backend
        function onChanged() { app.refreshSelection(); }
        function onPreferencesChanged() {
            app.sidebarWidth = app.wantedSidebar();
            app.inspectorWidth = app.wantedInspector();
            app.backend.renderBackground(Date.now() / 1000, app.width, app.height);
        }
    }

    Loader {
        anchors.fill: parent
        active: !!app.preferences.background_js
        sourceComponent: CustomBackground {
            id: customBackground
            objectName: "customBackground"
            service: app.backend
            animated: app.animated
            visible: app.visible
        }
    }
    DropArea {
        anchors.fill: parent
        onDropped: drop => {
            if (!drop.hasUrls)
                return;
            drop.acceptProposedAction();
            app.backend.attachFiles(drop.urls.map(url => url.toString()));
        }
    }
    RowLayout {
        id: workspaceLayout
        anchors.fill: parent
        spacing: 0
        layoutDirection: app.teamLeft ? Qt.RightToLeft : Qt.LeftToRight

        SlidingColumn {
            objectName: "leftColumn"
            open: app.sidebarOpen
            contentWidth: app.sidebarWidth
            dragged: leftHandle.dragging
            Layout.fillHeight: true

            LeftColumn {
                id: left
                width: app.sidebarWidth
                height: parent.height
                service: app.backend
                quiet: !app.live && !app.backend.chatBusy
                currentTask: app.current.id ?? ""
                onNewChat: {
                    app.backend.newConversation();
                    app.focusInput();
                }
                onNewProject: app.dialogs().projectDialog.show().begin()
                onProjectChosen: app.dropFile()
                onTaskChosen: app.page = "Чат"
                onTaskMenu: (task, row) => {
                    app.menuTask = task;
                    app.renameDraft = app.titleOf(task);
                    const place = row.mapToItem(null, 0, 0);
                    app.dialogs().threadMenu.show().openBy(row, Qt.point(place.x, Math.min(place.y, app.height - 70)));
                }
                onSettings: app.dialogs().workspaceSettings.show().open()
                onHidden: app.sidebarOpen = false
            }
        }
        ColumnHandle {
            id: leftHandle
            objectName: "leftHandle"
            visible: app.sidebarOpen
            value: app.sidebarWidth
            from: Theme.sidebarLeast
            to: Theme.sidebarMost
            direction: app.teamLeft ? -1 : 1
            Layout.fillHeight: true
            onMoved: value => app.sidebarWidth = value
            onReleased: value => app.backend.setPreference("sidebar_width", value)
        }
        ChatColumn {
            id: chat
            objectName: "chatColumn"
            service: app.backend
            current: app.current
            note: app.note
            live: app.live
            sidebarOpen: app.sidebarOpen
            openPanel: app.inspectorOpen ? app.panel : ""
            fileCount: fileRows.count
            Layout.fillWidth: true
            Layout.fillHeight: true
            onSidebarRequested: app.sidebarOpen = true
            onConnectionRequested: app.dialogs().connection.show().open()
            onPanelToggled: panel => app.togglePanel(panel)
            onSubmitted: app.send()
            onProgressRequested: app.showProgress()
            onResultRequested: app.openResult()
            onDetailsRequested: text => app.showDetails(text)
            onQueueRequested: app.dialogs().queueDialog.show().open()
            onPermissionsRequested: app.dialogs().permissions.show().open()
            onFilesRequested: app.dialogs().attachmentPicker.show().open()
        }
        ColumnHandle {
            id: rightHandle
            objectName: "rightHandle"
            visible: app.inspectorOpen
            value: app.shownInspectorWidth
            from: Theme.inspectorLeast
            to: Theme.inspectorMost
            direction: app.teamLeft ? 1 : -1
            Layout.fillHeight: true
            onMoved: value => app.inspectorWidth = value
            onReleased: value => app.backend.setPreference("inspector_width", value)
        }
        SlidingColumn {
            objectName: "rightColumn"
            open: app.inspectorOpen
            contentWidth: app.shownInspectorWidth
            dragged: rightHandle.dragging
            Layout.fillHeight: true

            Loader {
                width: app.shownInspectorWidth
                height: parent.height
                asynchronous: true // the first frame doesn't wait for it, nor for its types
                Component.onCompleted: setSource("panels/RightColumn.qml", { app: app })
            }
        }
    }

    Loader { id: dialogLoader }
}
