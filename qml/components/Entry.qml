import QtQuick
import QtQuick.Controls.Basic
import Vesk

/* One line to be typed. */
TextField {
    id: root

    padding: 12
    color: Theme.textField
    placeholderTextColor: Theme.placeholder
    selectByMouse: true
    Accessible.name: placeholderText

    background: Rectangle {
        color: Theme.field
        radius: 9
        border.color: root.activeFocus ? Theme.fieldBorderFocus : Theme.fieldBorder
    }
}
