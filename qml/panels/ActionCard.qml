import QtQuick
import QtQuick.Layouts
import Vesk

/* A line that waits for the user, with the button that answers it. */
Rectangle {
    id: root

    required property string text
    required property string action
    property bool primary: false

    signal triggered()

    implicitHeight: line.implicitHeight + 16
    radius: 14
    color: Theme.card
    border.color: Theme.cardBorder

    RowLayout {
        id: line
        anchors.fill: parent
        anchors.leftMargin: 16
        anchors.rightMargin: 12
        spacing: 12
        LabelText {
            text: root.text
            maximumLineCount: 2
            elide: Text.ElideRight
            Layout.fillWidth: true
        }
        Action {
            objectName: "cardAction"
            text: root.action
            primary: root.primary
            onClicked: root.triggered()
        }
    }
}
