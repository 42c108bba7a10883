import QtQuick
import Vesk

/* What can be done in the picture of the team, in sight however far it is scrolled. */
Flow {
    id: root

    /* The picture; by its type the two would need each other. */
    required property var network
    readonly property string role: network.selectedRole

    component Tool: Action {
        padding: 6
        leftPadding: 6
        rightPadding: 6
        implicitHeight: Theme.px(28)
        font.pixelSize: Theme.small
    }

    spacing: 4

    Tool {
        objectName: "inspectAgent"
        visible: root.role !== ""
        text: "Подробнее"
        onClicked: root.network.inspectRole(root.role)
    }
    Tool {
        objectName: "resetPlaces"
        text: "Сброс"
        onClicked: root.network.moveNode({})
    }
    Tool {
        objectName: "configureAgent"
        visible: root.role !== ""
        text: "Настроить"
        onClicked: root.network.configure(root.role)
    }
    Tool {
        objectName: "connectAgent"
        visible: root.role !== ""
        text: root.network.connecting === "" ? "Соединить" : "Отмена"
        tip: "Нажмите на следующего агента или основной этап"
        Accessible.name: text
        Accessible.description: tip
        onClicked: root.network.connecting = root.network.connecting === "" ? root.role : ""
    }
}
