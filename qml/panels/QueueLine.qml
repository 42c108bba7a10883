import QtQuick
import QtQuick.Layouts
import Vesk

/* How many requests wait. */
RowLayout {
    id: root

    required property int count
    required property bool paused

    signal resumed()
    signal opened()

    spacing: 12

    Note {
        objectName: "queueText"
        text: "В очереди " + root.count + (root.paused ? " · приостановлена" : "")
        Layout.fillWidth: true
    }
    IconAction {
        objectName: "queueOpen"
        text: "Посмотреть"
        visible: root.paused
        onClicked: root.opened()
    }
    IconAction {
        objectName: "queueAction"
        text: root.paused ? "Продолжить" : "Посмотреть"
        onClicked: root.paused ? root.resumed() : root.opened()
    }
}
