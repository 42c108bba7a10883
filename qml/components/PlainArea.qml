import QtQuick
import QtQuick.Controls.Basic
import Vesk

/* A long text that can be read, selected and copied. */
ScrollView {
    id: root

    property alias text: area.text
    property alias textFont: area.font
    property alias textColor: area.color
    property alias wrapMode: area.wrapMode
    property string name: ""
    property alias area: area

    clip: true
    ScrollBar.vertical: ThinBar {
        parent: root
        x: parent.width - width
        y: root.topPadding
        height: root.availableHeight
    }
    background: Rectangle {
        color: "transparent"
        radius: 8
        border.width: area.activeFocus && area.focusReason !== Qt.PopupFocusReason ? 1 : 0
        border.color: Theme.focus
    }

    TextArea {
        id: area
        objectName: "plainText"
        readOnly: true
        cursorVisible: activeFocus
        selectByMouse: true
        selectByKeyboard: true
        textFormat: TextEdit.PlainText
        wrapMode: TextEdit.Wrap
        color: Theme.textMessage
        font.pixelSize: Theme.body
        padding: 8
        background: null
        Accessible.name: root.name
        Keys.forwardTo: [pages]

        TextPages {
            id: pages
            area: area
            page: root.availableHeight
        }
    }
}
