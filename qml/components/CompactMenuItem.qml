import QtQuick
import QtQuick.Controls.Basic
import Vesk

MenuItem {
    id: root

    implicitHeight: Theme.px(32)
    padding: 8
    arrow: null
    indicator: null
    Accessible.name: text
    background: Rectangle {
        radius: 6
        color: root.highlighted ? Theme.menuHighlight : "transparent"
        Behavior on color { ColorAnimation { duration: Theme.animated ? 100 : 0 } }
    }
    contentItem: Text {
        text: root.text
        textFormat: Text.PlainText
        font.family: Theme.family
        font.pixelSize: Theme.note
        color: Theme.textMenu
        elide: Text.ElideRight
        verticalAlignment: Text.AlignVCenter
    }
}
