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
    readonly property real shownInspectorWidth: Math.max(Theme.inspectorLeast, Math.min(
        inspectorWidth === Theme.inspectorWidth && !rightHandle.dragging
            ? Math.min(Theme.inspectorMost, inspectorWidth + spare * .7) : inspectorWidth,
        width - (sidebarOpen ? shownSidebarWidth : 0) - 2 * Theme.handleWidth - Theme.centreLeast))
    /* What a wide window leaves beside a comfortable conversation goes to columns whose width nobody has set. Large texts
       take some of it for the left one. */
    readonly property real spare: Math.max(0, width - Theme.sidebarWidth - Theme.inspectorWidth - 2 * Theme.handleWidth
                                              - Theme.textColumn - 160)
    readonly property real shownSidebarWidth: sidebarWidth === Theme.sidebarWidth && !leftHandle.dragging
        ? Math.max(sidebarWidth, Math.min(Theme.sidebarRoomy, Math.max(sidebarWidth + spare * .3, Theme.px(sidebarWidth)),
                                          width - Theme.centreLeast - Theme.inspectorLeast - 2 * Theme.handleWidth))
        : sidebarWidth
    readonly property bool animated: (preferences.animations ?? true) && active && visibility !== Window.Minimized
    readonly property bool glass: preferences.glass ?? true
    readonly property var current: backend.uiState
    property bool sidebarOpen: true
    property bool inspectorOpen: true
    property bool panelCalled: false
    property string panel: "agents"
    property string page: "Чат"
    property alias selectedRun: selection.run
    property alias selectedFile: selection.file
    property string settingsAgent: ""
    property string menuTask: ""
    property string renameDraft: ""
    readonly property string phase: current.phase || "IDLE"
    readonly property bool live: !["IDLE", "COMPLETED", "FAILED", "CANCELLED", "INTERRUPTED"].includes(phase)
    readonly property bool asked: live && current.pending?.length > 0
    readonly property string note: backend.chatBusy ? "Готовлю ответ"
        : backend.apiTesting ? "Проверяю API"
        : current.paused ? "На паузе"
        : phase === "CLARIFICATION" ? "Нужен ваш ответ"
        : asked ? "Нужно ваше разрешение"
        : live ? backend.phaseLabel(phase) : "Готов к работе"
    readonly property bool teamLeft: preferences.team_left === true
    property alias input: chat.input
    property alias projectMenu: left.projectMenu
    readonly property Rows tasks: taskRows
    /* Whether the desktop has a dialog for files. */
    property bool desktopFileDialogs: false
    /* What the desktop tells every program: a Qt.ColorScheme. */
    property int portalScheme: Qt.ColorScheme.Unknown
    /* Of the desktop's own font, when the window was made. */
    property real desktopPoints: 10
    /* The control that had the focus is gone, or can't be used any more. */
    readonly property bool focusLost: active && (!activeFocusItem || activeFocusItem === contentItem
        || !activeFocusItem.visible || !activeFocusItem.enabled)

    title: "VESK — рабочий чат"
    width: 1440
    height: 900
    minimumWidth: 1000
    minimumHeight: 700
    visible: true
    color: Theme.window
    font.family: Theme.family
    font.pixelSize: Theme.normal
    palette: Theme.palette

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
        return Wording.agentReport(run, storedRun(run), backend.agentProfiles, backend);
    }
    function agentFields(run: var): list<var> {
        // What state it is in stands above them.
        return Wording.asFields(Wording.agentSections(run, storedRun(run), backend.agentProfiles, backend).slice(1));
    }
    function storedRun(run: var): var {
        const stored = run.id ? backend.runDetails(run.id) : {};
        return Object.keys(stored).length ? stored : run;
    }
    function openResult() {
        const page = backend.files.find(file => file.path?.endsWith(".html"));
        const path = Wording.reportedPath(backend.state.graph ?? []) || page?.path;
        if (path)
            backend.openFile(path);
        else
            showPanel("files");
    }
    /* A WindowDialogs: a result of that type would have it loaded at the start. */
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
    function focusInput() {
        page = "Чат";
        input.forceActiveFocus();
    }
    /* The parts of the window in their order, as far as they are shown. */
    function panes(): list<var> {
        return [leftColumn, chat.messages, chat.card, input, rightColumn].filter(pane => pane?.visible);
    }
    function stepPane(forward: bool) {
        const all = panes();
        const order = tabKeys.order;
        const here = all.findIndex(pane => order.holds(pane, activeFocusItem));
        const next = here < 0 ? all.indexOf(input) : (here + (forward ? 1 : all.length - 1)) % all.length;
        if (all[next] === input)
            input.forceActiveFocus(Qt.TabFocusReason);
        else if (all[next] === chat.messages)
            chat.messages.takeFocus();
        else
            order.enter(all[next]);
    }
    /* Into a panel, or away from it. */
    function stepPanel(name: string) {
        if (inspectorOpen && panel === name && tabKeys.order.holds(rightColumn, activeFocusItem)) {
            inspectorOpen = false;
            return;
        }
        showPanel(name);
        panelCalled = true;
        Qt.callLater(enterPanel);
    }
    /* A column that slides in can't have the focus before. */
    function enterPanel() {
        if (!panelCalled || !rightColumn.visible)
            return;
        panelCalled = false;
        tabKeys.order.enter(rightColumn);
    }
    function beginChat() {
        backend.newConversation();
        focusInput();
    }
    function keepFocus() {
        if (focusLost)
            input.forceActiveFocus();
    }
    function showPage() {
        const panels = { "Файлы": "files", "Ход работы": "agents", "История": "history" };
        if (page in panels)
            showPanel(panels[page]);
        else if (page !== "Чат")
            dialogs().showPage(page);
    }

    onActiveChanged: if (active) backend.lookForEdits()
    onWidthChanged: if (width < 1150) inspectorOpen = false
    onInspectorOpenChanged: if (inspectorOpen && width < 1250) sidebarOpen = false
    onSidebarOpenChanged: if (sidebarOpen && width < 1250) inspectorOpen = false
    onFocusLostChanged: if (focusLost) Qt.callLater(keepFocus)
    onPageChanged: showPage()
    /* Not in the middle of a commit. */
    onClosing: event => event.accepted = backend.mayClose()
    onSettingsAgentChanged: if (settingsAgent !== "") dialogs().showSettingsOf(settingsAgent)
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
    Binding {
        target: Theme
        property: "look"
        value: app.preferences.theme ?? "dark"
    }
    Binding {
        target: Theme
        property: "desktopScheme"
        value: app.portalScheme || Application.styleHints.colorScheme
    }
    Binding {
        target: Theme
        property: "desktopPoints"
        value: app.desktopPoints
    }
    Binding {
        target: Theme
        property: "chosenTextScale"
        value: Number(app.preferences.text_scale) || 0
    }
    Selection {
        id: selection
        service: app.backend
        onRunMoved: app.dialogs().refreshAgent()
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
        function onChanged() { selection.refresh(); }
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
        Keys.onEscapePressed: event => {
            event.accepted = true;
            if (app.backend.message === "")
                app.focusInput();
            else
                app.backend.dismissMessage();
        }

        TabKeys {
            id: tabKeys
            ground: app.contentItem
        }

        SlidingColumn {
            id: leftColumn
            objectName: "leftColumn"
            open: app.sidebarOpen
            contentWidth: app.shownSidebarWidth
            dragged: leftHandle.dragging
            Layout.fillHeight: true

            LeftColumn {
                id: left
                width: app.shownSidebarWidth
                height: parent.height
                service: app.backend
                quiet: !app.live && !app.backend.chatBusy
                currentTask: app.current.id ?? ""
                currentNote: app.asked ? "Нужно ваше разрешение" : ""
                onNewChat: app.beginChat()
                onNewProject: app.dialogs().beginProject()
                onFolderRequested: app.dialogs().pick(app.dialogs().folderPicker)
                onProjectChosen: selection.dropFile()
                onTaskChosen: app.page = "Чат"
                onTaskMenu: (task, row) => app.dialogs().showThreadMenu(task, row)
                onTaskRename: (task, row) => app.dialogs().renameThread(task, row)
                onSettings: app.dialogs().workspaceSettings.show().open()
                onHidden: app.sidebarOpen = false
            }
        }
        ColumnHandle {
            id: leftHandle
            objectName: "leftHandle"
            visible: app.sidebarOpen
            value: app.shownSidebarWidth
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
            onProgressRequested: app.dialogs().showProgress()
            onResultRequested: app.openResult()
            onDetailsRequested: text => app.dialogs().showDetails(text)
            onProofsRequested: mark => app.dialogs().showProofs(mark)
            onQueueRequested: app.dialogs().queueDialog.show().open()
            onPermissionsRequested: app.dialogs().permissions.show().open()
            onServersRequested: app.dialogs().serverRequests.show().open()
            onDifferencesRequested: app.dialogs().showDifferences()
            onFilesRequested: app.dialogs().pick(app.dialogs().attachmentPicker)
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
            id: rightColumn
            objectName: "rightColumn"
            onVisibleChanged: app.enterPanel()
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

    WindowKeys {
        onNewChat: if (left.quiet) app.beginChat()
        onNewProject: app.dialogs().beginProject()
        onFolderRequested: app.dialogs().pick(app.dialogs().folderPicker)
        onSettingsRequested: app.dialogs().workspaceSettings.show().open()
        onPanelCalled: panel => app.stepPanel(panel)
        onSidebarToggled: app.sidebarOpen = !app.sidebarOpen
        onConversationStepped: rows => left.step(rows)
        onPaneStepped: forward => app.stepPane(forward)
        onInputRequested: app.focusInput()
        onHelpRequested: app.dialogs().showKeys()
        onEndRequested: app.close()
    }
    Loader { id: dialogLoader }
}
