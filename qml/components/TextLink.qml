import QtQuick
import QtQuick.Controls.Basic
import Vesk

/* Words that lead somewhere. */
AbstractButton {
    id: root

    hoverEnabled: true
    padding: 2
    font.pixelSize: Theme.note
    Accessible.role: Accessible.Link
    Accessible.name: text
    Keys.onReturnPressed: click()
    Keys.onEnterPressed: click()

    contentItem: Text {
        text: root.text
        textFormat: Text.PlainText
        font.family: root.font.family
        font.pixelSize: root.font.pixelSize
        font.underline: true
        color: root.hovered || root.visualFocus ? Theme.text : Theme.textNote
    }
    background: Rectangle {
        radius: 4
        color: "transparent"
        border.width: root.visualFocus ? 1 : 0
        border.color: Theme.focus
    }
    HoverHandler { cursorShape: Qt.PointingHandCursor }
}
