pragma ComponentBehavior: Bound
import QtQuick
import Vesk

/* The agents of the team, each with the state of its last run in this task. */
Item {
    id: root

    property var task: ({})
    property list<var> profiles: []
    property var positions: ({})
    property bool animated: true
    property real scrollOffset: 0

    signal configure(string role)
    signal link(string agent, string role)
    signal moveNode(var positions)
    signal inspect(var run)

    /* The last run of an agent, or an empty record. The chief agent has two roles, and one name. */
    function runOf(role: string): var {
        const runs = (task.runs ?? []).filter(run => run.logical_role === role || run.role === role);
        return runs.length ? runs[runs.length - 1] : role === "orchestrator" ? runOf("coordinator") : {};
    }

    Column {
        width: parent.width
        spacing: 6

        Repeater {
            model: root.profiles.filter(profile => profile.id !== "coordinator")
            ListRow {
                id: agent
                required property var modelData
                readonly property var run: root.runOf(modelData.id)
                readonly property bool active: run.status === "RUNNING" || run.status === "QUEUED"
                objectName: modelData.id
                width: parent.width
                height: 44
                leftPadding: 12
                rightPadding: 12
                focusPolicy: Qt.TabFocus
                current: visualFocus
                fill: hovered ? Theme.rowSelected : Theme.row
                opacity: modelData.enabled ? 1 : .35
                Accessible.name: modelData.name
                Keys.onReturnPressed: click()
                onClicked: root.inspect(Object.assign({}, run, { role: modelData.id, name: modelData.name }))
                onDoubleClicked: root.configure(modelData.id)
                contentItem: Row {
                    spacing: 10
                    Rectangle {
                        anchors.verticalCenter: parent.verticalCenter
                        width: 8
                        height: 8
                        radius: 4
                        color: agent.active ? Theme.dotLive : agent.run.id ? Theme.dotIdle : "transparent"
                        border.color: Theme.dotOff
                    }
                    LabelText {
                        anchors.verticalCenter: parent.verticalCenter
                        width: parent.width - 18
                        text: agent.modelData.name
                        font.pixelSize: Theme.note
                        wrapMode: Text.NoWrap
                        elide: Text.ElideRight
                    }
                }
            }
        }
    }
}
