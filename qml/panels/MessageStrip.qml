import QtQuick
import Vesk

/* The last failure, above the conversation. */
Rectangle {
    id: root

    required property string message

    signal opened()

    objectName: "messageStrip"
    visible: message !== ""
    implicitHeight: Math.min(text.implicitHeight, 160) + 16
    color: Theme.strip
    clip: true
    Accessible.role: Accessible.AlertMessage
    Accessible.name: message
    onMessageChanged: if (message !== "") Accessible.announce(message)

    TapHandler { onTapped: root.opened() }

    LabelText {
        id: text
        anchors.fill: parent
        anchors.margins: 8
        text: root.message
        font.pixelSize: Theme.note
        elide: Text.ElideRight
    }
}
