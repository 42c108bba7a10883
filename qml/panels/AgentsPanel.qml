pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Vesk
import "../Wording.js" as Wording
import "../network/Network.js" as Network

/* The team at work. */
ColumnLayout {
    id: root

    required property Backend service
    required property var current
    required property string note
    readonly property list<var> profiles: service.agentProfiles
    readonly property int customAgents: profiles.filter(profile => profile.custom).length

    /* Who has been given something to do. */
    readonly property string atWork: {
        const runs = Object.values(Network.latestRuns(Array.from(current.runs ?? []))).filter(Network.isActive);
        const names = runs.map(run => Wording.agentName(run.name || run.role || "", profiles, service));
        return names.length > 0 ? "Работают: " + names.join(", ") : "";
    }

    signal addAgent()
    signal configureAgent(string role)
    signal inspectRun(var run)

    /* Two agents, or an agent and its stage. */
    function cut(agent: string, role: string) {
        if (profiles.find(profile => profile.id === role)?.custom)
            service.unlinkAgents(agent, role);
        else
            service.linkAgent(agent, "");
    }
    function reveal(top: real, bottom: real) {
        const tools = scroller.topMargin + 32; // the row of buttons lies over the picture
        if (top - tools < scroller.contentY)
            scroller.contentY = Math.max(-scroller.topMargin, top - tools);
        else if (bottom > scroller.contentY + scroller.height)
            scroller.contentY = Math.min(scroller.contentHeight, bottom) - scroller.height;
    }

    spacing: 12

    RowLayout {
        NameText {
            objectName: "atWork"
            text: root.atWork || root.note
            color: Theme.textNote
            font.pixelSize: Theme.note
            Layout.fillWidth: true
        }
        IconAction {
            objectName: "addAgent"
            text: "+ Агент"
            onClicked: root.addAgent()
        }
    }
    Flickable {
        id: scroller
        clip: true
        topMargin: Math.max(0, ((picture.item as AgentNetwork)?.toolsHeight ?? 0) - Theme.px(28)) // of more than one row
        onTopMarginChanged: if (contentY <= 0) contentY = -topMargin
        boundsBehavior: Flickable.StopAtBounds
        contentWidth: width
        contentHeight: Math.max(height, 760 + 100 * Math.ceil(root.customAgents / 3))
        Layout.fillWidth: true
        Layout.fillHeight: true
        Layout.minimumHeight: Math.min(400, root.height * .45) // what stands below stays in sight
        ScrollBar.vertical: ThinBar {}

        /* The window doesn't wait for it. */
        Loader {
            id: picture
            asynchronous: true
            width: scroller.width
            height: scroller.contentHeight
            sourceComponent: AgentNetwork {
                objectName: "agentNetwork"
                task: root.current
                profiles: root.profiles.map(profile => ({
                    id: profile.id, name: profile.name, enabled: profile.enabled, custom: profile.custom,
                    parent: profile.parent, mode: profile.mode, after: profile.after, priority: profile.priority
                }))
                positions: root.service.preferences.agent_positions ?? {}
                animated: Theme.animated
                scrollOffset: scroller.contentY
                onConfigure: role => root.configureAgent(role)
                onLink: (agent, role) => root.service.connectAgents(agent, role)
                onUnlink: (agent, role) => root.cut(agent, role)
                onRemove: role => (removal.show() as RemoveAgentDialog).ask(role)
                onRevealed: (top, bottom) => root.reveal(top, bottom)
                onMoveNode: positions => root.service.setPreference("agent_positions", positions)
                onInspect: run => {
                    if (run.role)
                        root.inspectRun(run);
                }
            }
        }
    }
    UndoLine {
        id: undo
        service: root.service
        Layout.fillWidth: true
    }
    Rectangle {
        color: Theme.rule
        Layout.fillWidth: true
        Layout.preferredHeight: 1
    }
    LabelText {
        objectName: "teamState"
        text: root.current.phase === "CLARIFICATION" ? "Главный агент ждёт ваше решение."
            : root.service.preferences.automatic_routing ?? true
            ? "Главный выбирает действия и нужных помощников"
            : "Ручная цепочка: план → структура → код → проверка"
        font.pixelSize: Theme.note
        Layout.fillWidth: true
    }
    Note {
        visible: root.height > Theme.px(330) || !undo.visible
        text: "Перетаскивайте узлы. Двойной щелчок — skill и настройки."
        font.pixelSize: Theme.small
        Layout.fillWidth: true
    }

    LazyDialog {
        id: removal
        visible: false
        sourceComponent: RemoveAgentDialog { service: root.service }
    }
}
