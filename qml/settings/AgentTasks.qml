pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Layouts
import Vesk

/* The kinds of tasks that an agent of the user's takes. */
ColumnLayout {
    id: root

    required property var panel
    readonly property var tasks: panel.agent.id ? panel.agentTasks() : []
    readonly property bool byRules: !panel.agent.tasks && !panel.agent.media_analysis

    function give(task: string, take: bool) {
        const others = tasks.filter(other => other !== task);
        panel.service.setAgentTasks(panel.selectedAgent, take ? others.concat(task) : others);
    }

    spacing: 8

    SoftButton {
        objectName: "toggleTasks"
        text: "Задачи агента · " + (root.byRules ? "по правилам" : root.tasks.length)
            + (root.panel.tasksExpanded ? " · свернуть" : " · настроить")
        onClicked: root.panel.tasksExpanded = !root.panel.tasksExpanded
    }
    GridLayout {
        visible: root.panel.tasksExpanded
        columns: 3
        columnSpacing: 8
        rowSpacing: 2
        uniformCellWidths: true

        Repeater {
            model: root.panel.taskOptions
            SettingCheck {
                required property var modelData
                text: modelData.name
                checked: root.tasks.includes(modelData.id)
                Layout.fillWidth: true
                onClicked: {
                    root.give(modelData.id, checked);
                    checked = Qt.binding(() => root.tasks.includes(modelData.id));
                }
            }
        }
    }
}
