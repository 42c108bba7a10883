import QtQuick
import QtQuick.Controls.Basic
import Vesk

/* A line to be typed in the settings. */
TextField {
    id: root

    padding: 12
    color: Theme.softButtonText
    placeholderTextColor: Theme.softPlaceholder
    selectByMouse: true
    Accessible.name: placeholderText
    background: Rectangle {
        radius: 10
        color: Theme.popupField
        border.color: root.activeFocus ? Theme.popupFieldBorderFocus : Theme.popupFieldBorder
    }
}
