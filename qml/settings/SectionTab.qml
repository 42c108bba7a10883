import QtQuick
import QtQuick.Controls.Basic
import Vesk

TabButton {
    id: root

    width: implicitWidth
    padding: 9
    leftPadding: 14
    rightPadding: 14
    font.pixelSize: Theme.body
    Accessible.name: text
    Accessible.onPressAction: click()
    background: Rectangle {
        radius: 9
        color: root.checked ? Theme.softButtonHovered : root.hovered ? Theme.softButton : "transparent"
        border.width: root.visualFocus ? 2 : 0
        border.color: Theme.focus
    }
    contentItem: Text {
        text: root.text
        font: root.font
        color: root.checked ? Theme.textStrong : Theme.textStatus
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
    }
}
