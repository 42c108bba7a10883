import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Vesk

/* The last failure, above the conversation, until it is put away. */
Rectangle {
    id: root

    required property string message

    signal opened()
    signal dismissed()

    objectName: "messageStrip"
    visible: message !== ""
    implicitHeight: Math.max(Math.min(text.implicitHeight, 160, Math.max(40, Window.height * .12)), 28) + 16
    color: Theme.strip
    clip: true
    Accessible.role: Accessible.AlertMessage
    Accessible.name: message
    onMessageChanged: if (message !== "") Accessible.announce(message)

    RowLayout {
        anchors.fill: parent
        anchors.margins: 8
        spacing: 8

        AbstractButton {
            id: open
            objectName: "openMessage"
            focusPolicy: Qt.TabFocus
            Accessible.name: "Показать сообщение полностью"
            Accessible.description: root.message
            Keys.onReturnPressed: click()
            Keys.onEnterPressed: click()
            Layout.fillWidth: true
            Layout.fillHeight: true
            onClicked: root.opened()
            contentItem: LabelText {
                id: text
                text: root.message
                font.pixelSize: Theme.note
                elide: Text.ElideRight
                verticalAlignment: Text.AlignVCenter
            }
            background: Rectangle {
                color: "transparent"
                radius: 6
                border.width: open.visualFocus ? 2 : 0
                border.color: Theme.focus
            }
        }
        IconAction {
            objectName: "dismissMessage"
            text: "×"
            tip: "Скрыть сообщение (Esc)"
            Accessible.name: "Скрыть сообщение"
            Layout.alignment: Qt.AlignTop
            onClicked: root.dismissed()
        }
    }
}
