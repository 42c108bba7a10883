import QtQuick
import QtQuick.Controls.Basic
import Vesk

/* Some lines to be typed; Tab leads on. */
ScrollView {
    id: root

    property alias text: area.text
    property alias placeholderText: area.placeholderText

    function clear() {
        area.clear();
    }

    TextArea {
        id: area
        padding: 12
        color: Theme.softButtonText
        placeholderTextColor: Theme.softPlaceholder
        selectByMouse: true
        textFormat: TextEdit.PlainText
        wrapMode: TextEdit.Wrap
        font.pixelSize: Theme.body
        Accessible.name: placeholderText
        Keys.priority: Keys.BeforeItem
        Keys.forwardTo: [pages]

        TextPages {
            id: pages
            area: area
            page: root.availableHeight
        }

        background: Rectangle {
            radius: 10
            color: Theme.popupField
            border.color: area.activeFocus ? Theme.popupFieldBorderFocus : Theme.popupFieldBorder
        }
    }
}
