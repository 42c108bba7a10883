import QtQuick
import QtQuick.Controls.Basic
import Vesk

/* What a button does, after the pointer has rested on it. */
ToolTip {
    id: root

    delay: Theme.tipDelay
    padding: 8
    contentItem: LabelText {
        text: root.text
        font.pixelSize: Theme.note
    }
    background: Rectangle {
        color: Theme.menu
        radius: 8
        border.color: Theme.menuBorder
    }
}
