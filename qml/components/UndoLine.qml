import QtQuick
import QtQuick.Layouts
import Vesk

/* The last change of the team, to be taken back. It can be put away, until a change reads otherwise. */
GridLayout {
    id: root

    required property Backend service
    readonly property string change: service.networkUndo ?? ""
    property string seen: ""

    visible: change !== "" && change !== seen
    columns: width < Theme.px(300) ? 2 : 3
    columnSpacing: 8
    rowSpacing: 4
    onChangeChanged: if (change === "") seen = ""

    LabelText {
        objectName: "networkChange"
        text: root.change
        color: Theme.textStatus
        font.pixelSize: Theme.note
        maximumLineCount: 3
        elide: Text.ElideRight
        Accessible.role: Accessible.AlertMessage
        Layout.columnSpan: root.columns === 2 ? 2 : 1
        Layout.fillWidth: true
    }
    IconAction {
        objectName: "undoNetwork"
        text: "Вернуть"
        Layout.fillWidth: root.columns === 2
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
