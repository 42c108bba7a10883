pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Layouts
import Vesk

/* The middle of the window: state, conversation, what waits for the user, and the input box. */
Rectangle {
    id: root

    required property Backend service
    required property var current
    required property string note
    required property bool live
    required property bool sidebarOpen
    required property string openPanel
    required property int fileCount
    property alias input: composer.input
    property alias messages: messages
    /* What waits for the user's answer, if anything does. */
    readonly property Item card: [decisionCard, previewCard, permissionCard, serverCard].find(card => card.visible) ?? null
    readonly property bool clarifying: current.phase === "CLARIFICATION"
    readonly property bool empty: all.count === 0
    readonly property bool asked: (current.pending?.length ?? 0) > 0
    /* A window on half a small screen: what stands elsewhere, too, gives way to the conversation and the input box. */
    readonly property bool low: height < Theme.px(400)

    signal sidebarRequested()
    signal connectionRequested()
    signal panelToggled(string panel)
    signal submitted()
    signal progressRequested()
    signal resultRequested()
    signal detailsRequested(string text)
    signal proofsRequested(string mark)
    signal queueRequested()
    signal permissionsRequested()
    signal serversRequested()
    signal filesRequested()
    signal differencesRequested()

    color: "transparent"
    Accessible.role: Accessible.Pane
    Accessible.name: "Диалог"

    readonly property string task: current.id ?? ""

    function followEnd() {
        messages.follow = true;
        messages.keepEnd();
    }

    onTaskChanged: messages.follow = true
    Keys.onPressed: event => event.accepted = messages.turn(event.key === Qt.Key_PageUp || event.key === Qt.Key_PageDown ? event.key : 0)

    Rows {
        id: all
        source: root.service
        list: "chat"
    }
    Rows {
        id: told
        source: root.service
        list: "chat"
        only: ["progress"]
    }

    Teller {
        service: root.service
        note: root.note
        question: root.clarifying ? decisionCard.said : ""
    }
    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        ChatHeader {
            service: root.service
            note: root.note
            live: root.live
            paused: root.current.paused ?? false
            sidebarOpen: root.sidebarOpen
            openPanel: root.openPanel
            fileCount: root.fileCount
            Layout.fillWidth: true
            onSidebarRequested: root.sidebarRequested()
            onConnectionRequested: root.connectionRequested()
            onPanelToggled: panel => root.panelToggled(panel)
        }
        MessageStrip {
            id: strip
            message: root.service.message
            Layout.fillWidth: true
            onOpened: root.detailsRequested(message)
            onDismissed: root.service.dismissMessage()
        }
        Item {
            Layout.fillWidth: true
            Layout.fillHeight: true

            Loader {
                anchors.fill: parent
                asynchronous: true
                sourceComponent: AmbientMesh {
                    objectName: "ambientMesh"
                    animate: Theme.animated
                    opacity: root.empty ? .16 : .045
                }
            }
            ColumnLayout {
                readonly property real side: Math.max(Theme.sideMargin, (parent.width - Theme.textColumn) / 2)
                anchors.fill: parent
                anchors.leftMargin: side
                anchors.rightMargin: side
                anchors.topMargin: strip.visible ? 12 : 0
                anchors.bottomMargin: root.low ? 10 : 18
                spacing: root.low ? 8 : 14

                Item {
                    visible: root.empty
                    Layout.fillWidth: true
                    Layout.fillHeight: true
                    Welcome {
                        anchors.centerIn: parent
                        width: parent.width
                        low: root.low
                        onDrafted: text => {
                            root.input.text = text;
                            root.input.cursorPosition = text.length;
                            root.input.forceActiveFocus();
                        }
                        onDemoRequested: {
                            root.input.text = "Создай калькулятор";
                            root.submitted();
                        }
                    }
                }
                ProgressCard {
                    objectName: "progressCard"
                    visible: told.count > 0 && !root.low
                    note: root.live ? root.note : root.service.phaseLabel(root.current.phase || "IDLE")
                    streamNote: root.live && !root.service.chatBusy ? root.service.streamNote : ""
                    live: root.live
                    waiting: root.clarifying || root.asked || root.current.phase === "PREVIEW" || !!root.current.paused
                    progress: root.service.progress
                    Layout.fillWidth: true
                    onExpanded: root.progressRequested()
                }
                MessageList {
                    id: messages
                    objectName: "messageList"
                    visible: !root.empty
                    hasFiles: root.fileCount > 0
                    Layout.fillWidth: true
                    Layout.fillHeight: true
                    Layout.rightMargin: -barSpace // into the margin of the column
                    model: Rows {
                        source: root.service
                        list: "chat"
                        without: ["progress", "file"]
                    }
                    onFileRequested: path => root.service.openFile(path)
                    onResultRequested: root.resultRequested()
                    onDetailsRequested: text => root.detailsRequested(text)
                    onProofsRequested: mark => root.proofsRequested(mark)
                    onCopyRequested: root.service.copyReport()
                }
                WaitingLine {
                    visible: root.service.chatBusy
                    streamNote: root.service.streamNote
                    Layout.fillWidth: true
                }
                Loader {
                    objectName: "edits"
                    active: !root.live && root.service.handEdits.length > 0
                    visible: active
                    Layout.fillWidth: true
                    Layout.fillHeight: true
                    Layout.minimumHeight: Theme.px(130)
                    Layout.maximumHeight: Math.max(Theme.px(130), implicitHeight)
                    sourceComponent: EditsBanner {
                        service: root.service
                        low: root.low
                        onCompared: path => {
                            root.service.compareEdit(path);
                            root.differencesRequested();
                        }
                    }
                }
                DecisionCard {
                    id: decisionCard
                    objectName: "decisionCard"
                    visible: root.clarifying
                    decision: root.current.decision
                    low: root.low
                    Layout.fillWidth: true
                    onCompared: path => {
                        root.service.compareEdit(path);
                        root.differencesRequested();
                    }
                    onAnswered: answer => {
                        root.service.clarify(answer);
                        root.input.forceActiveFocus();
                    }
                    onOwnAnswer: root.input.forceActiveFocus()
                }
                ActionCard {
                    id: previewCard
                    objectName: "previewCard"
                    visible: root.current.phase === "PREVIEW"
                    text: "План из предыдущей версии готов."
                    action: "Продолжить"
                    primary: true
                    Layout.fillWidth: true
                    Layout.preferredHeight: Math.max(54, implicitHeight)
                    onTriggered: root.service.runPreview()
                }
                ActionCard {
                    id: permissionCard
                    objectName: "permissionCard"
                    visible: root.asked
                    text: "Нужно разрешение на команду"
                    action: "Посмотреть"
                    Layout.fillWidth: true
                    Layout.preferredHeight: Math.max(58, implicitHeight)
                    onTriggered: root.permissionsRequested()
                }
                ActionCard {
                    id: serverCard
                    objectName: "serverCard"
                    visible: root.service.mcpRequests.length > 0 && !(root.low && root.asked)
                    text: "Проект просит запустить свой сервер инструментов"
                    action: "Посмотреть"
                    Layout.fillWidth: true
                    Layout.preferredHeight: Math.max(58, implicitHeight)
                    onTriggered: root.serversRequested()
                }
                QueueLine {
                    objectName: "queueLine"
                    visible: count > 0
                    count: root.service.queue.length
                    paused: root.service.queuePaused
                    Layout.fillWidth: true
                    onResumed: root.service.resumeQueue()
                    onOpened: root.queueRequested()
                }
                Composer {
                    id: composer
                    objectName: "composer"
                    service: root.service
                    live: root.live
                    clarifying: root.clarifying
                    Layout.fillWidth: true
                    onSubmitted: root.submitted()
                    onFilesRequested: root.filesRequested()
                }
                StatusLine {
                    service: root.service
                    live: root.live
                    told: told.count > 0 || root.service.chatBusy
                    visible: !root.low
                    Layout.fillWidth: true
                }
            }
        }
    }
}
