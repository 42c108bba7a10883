import QtQuick
import QtQuick.Layouts
import Vesk

/* The last change of the team, to be taken back. It can be put away, until a change reads otherwise. */
RowLayout {
    id: root

    required property Backend service
    readonly property string change: service.networkUndo ?? ""
    property string seen: ""

    visible: change !== "" && change !== seen
    spacing: 8
    onChangeChanged: if (change === "") seen = ""

    LabelText {
        objectName: "networkChange"
        text: root.change
        color: Theme.textStatus
        font.pixelSize: Theme.note
        wrapMode: Text.NoWrap
        elide: Text.ElideRight
        Accessible.role: Accessible.AlertMessage
        Layout.fillWidth: true
    }
    IconAction {
        objectName: "undoNetwork"
        text: "Вернуть"
        Accessible.description: root.change
        onClicked: root.service.undoNetwork()
    }
    IconAction {
        objectName: "hideChange"
        text: "×"
        tip: "Скрыть строку"
        onClicked: root.seen = root.change
    }
}
