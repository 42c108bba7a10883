import QtQuick
import QtQuick.Controls.Basic
import Vesk

Switch {
    id: root

    spacing: 10
    leftPadding: 0
    Accessible.name: text
    indicator: Rectangle {
        x: root.leftPadding
        anchors.verticalCenter: parent.verticalCenter
        width: 40
        height: 22
        radius: 11
        color: root.checked ? Theme.dotOn : Theme.handle
        border.width: root.visualFocus ? 2 : 1
        border.color: root.visualFocus ? Theme.focus : Theme.handleHovered
        Behavior on color { ColorAnimation { duration: Theme.tint } }

        Rectangle {
            x: root.checked ? parent.width - width - 4 : 4
            anchors.verticalCenter: parent.verticalCenter
            width: 14
            height: 14
            radius: 7
            color: root.checked ? Theme.window : Theme.textNote
            Behavior on x { NumberAnimation { duration: Theme.press } }
        }
    }
    contentItem: LabelText {
        leftPadding: root.indicator.width + root.spacing
        text: root.text
        verticalAlignment: Text.AlignVCenter
    }
}
