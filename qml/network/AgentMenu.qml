pragma ComponentBehavior: Bound
import QtQuick
import QtQml.Models
import Vesk

/* What can be done with one agent; with the keyboard the only way to its links. */
CompactMenu {
    id: root

    /* The picture; by its type the two would need each other. */
    required property var network
    property string role: ""
    readonly property bool custom: network.profile(role).custom ?? false

    objectName: "agentMenu"
    title: "Действия с агентом"
    width: Theme.px(260)

    CompactMenuItem {
        text: "Подробнее"
        onTriggered: root.network.inspectRole(root.role)
    }
    CompactMenuItem {
        text: "Настроить"
        onTriggered: root.network.configure(root.role)
    }
    CompactMenuItem {
        text: "Соединить с другим"
        onTriggered: root.network.beginConnecting(root.role)
    }
    Instantiator {
        model: root.network.links(root.role)
        delegate: CompactMenuItem {
            required property var modelData
            text: modelData.text
            onTriggered: root.network.unlink(modelData.from, modelData.to)
        }
        onObjectAdded: (index, item) => root.insertItem(3 + index, item as CompactMenuItem)
        onObjectRemoved: (index, item) => root.removeItem(item as CompactMenuItem)
    }
    CompactMenuItem {
        text: "Удалить агента…"
        visible: root.custom
        height: visible ? implicitHeight : 0
        onTriggered: root.network.remove(root.role)
    }
}
