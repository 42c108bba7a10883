import QtQuick
import QtQuick.Controls.Basic
import Vesk

/* What a button does, after the pointer has rested on it. */
ToolTip {
    id: root

    delay: Theme.tipDelay
    // Centred by the width that it has, not by that of one long line.
    x: Math.round(((parent?.width ?? 0) - width) / 2)
    width: Math.min(implicitWidth, Theme.px(420))
    y: (parent?.height ?? 0) + 6 // below: above the header there is no room
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
