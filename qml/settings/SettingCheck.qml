import QtQuick
import QtQuick.Controls.Basic
import Vesk

CheckBox {
    id: root

    padding: 4
    leftPadding: 0
    spacing: 8
    Accessible.name: text
    Keys.onReturnPressed: click()
    Keys.onEnterPressed: click()
    indicator: Rectangle {
        anchors.verticalCenter: parent.verticalCenter
        width: 20
        height: 20
        radius: 6
        color: root.checked ? Theme.dotOn : Theme.popupField
        border.width: root.visualFocus ? 2 : 1
        border.color: root.visualFocus ? Theme.focus : root.hovered ? Theme.softButtonBorderHovered : Theme.popupFieldBorder
        Sign {
            anchors.centerIn: parent
            width: 16
            height: 16
            visible: root.checked
            sign: "✓"
            color: Theme.window
        }
    }
    contentItem: LabelText {
        leftPadding: root.indicator.width + root.spacing
        text: root.text
        font.pixelSize: Theme.body
        wrapMode: Text.NoWrap
        elide: Text.ElideRight
        verticalAlignment: Text.AlignVCenter
    }
}
