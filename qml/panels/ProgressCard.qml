import QtQuick
import QtQuick.Layouts
import Vesk

/* What the team is doing, in two lines; the whole story opens apart. */
Rectangle {
    id: root

    required property string note
    required property string streamNote
    required property bool live

    signal expanded()

    implicitHeight: Math.max(62, line.implicitHeight + 16)
    radius: 16
    color: Theme.progressCard
    border.color: Theme.progressBorder

    RowLayout {
        id: line
        anchors.fill: parent
        anchors.leftMargin: 18
        anchors.rightMargin: 14
        spacing: 14

        Rectangle {
            color: root.live ? Theme.dotLive : Theme.dotIdle
            radius: 4
            Layout.preferredWidth: 8
            Layout.preferredHeight: 8
        }
        ColumnLayout {
            spacing: 2
            LabelText {
                text: root.note
                wrapMode: Text.NoWrap
                elide: Text.ElideRight
                Layout.fillWidth: true
            }
            Note {
                objectName: "progressNote"
                text: root.streamNote || "План, структура и действия команды"
                wrapMode: Text.NoWrap
                elide: Text.ElideRight
                Layout.fillWidth: true
            }
        }
        Action {
            objectName: "expandProgress"
            text: "Развернуть"
            onClicked: root.expanded()
        }
    }
}
