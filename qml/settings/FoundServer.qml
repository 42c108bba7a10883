import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Vesk

/* A model server that answers on this machine. */
ItemDelegate {
    id: root

    required property var server
    property bool chosen: false
    readonly property int models: server.models.length
    /* The search takes no more of a server's list. */
    readonly property bool cut: models >= 200

    objectName: "foundServer"
    padding: 10
    leftPadding: 14
    rightPadding: 14
    Accessible.role: Accessible.Button
    Accessible.name: server.name + ", " + server.url + ", моделей: " + models + (cut ? " и больше" : "")
    Keys.onReturnPressed: click()
    Keys.onEnterPressed: click()
    background: Rectangle {
        radius: 10
        color: root.hovered ? Theme.softButtonHovered : Theme.rowSelected
        border.width: root.visualFocus ? 2 : root.chosen ? 1 : 0
        border.color: root.visualFocus ? Theme.focus : Theme.softButtonBorderHovered
    }
    contentItem: RowLayout {
        spacing: 12
        LabelText {
            text: root.server.name
            color: Theme.textStrong
            wrapMode: Text.NoWrap
        }
        LabelText {
            text: root.server.url
            color: Theme.textStatus
            font.pixelSize: Theme.note
            wrapMode: Text.NoWrap
            elide: Text.ElideMiddle
            Layout.fillWidth: true
        }
        LabelText {
            text: root.models > 0 ? "моделей: " + root.models + (root.cut ? " и больше" : "") : "нужен ключ или модель"
            color: Theme.textStatus
            font.pixelSize: Theme.note
            wrapMode: Text.NoWrap
        }
    }
}
