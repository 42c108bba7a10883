import QtQuick
import QtQuick.Layouts
import Vesk
import "../Wording.js" as Wording

/* One server: its name, how it stands with it, and the button that changes that. Below, if it has failed, what it said. */
Column {
    id: root

    required property var server
    signal connectRequested()
    signal disconnectRequested()

    readonly property bool connected: server.status === "Подключён"
    readonly property bool connecting: server.status === "Подключение…"
    readonly property string said: server.details ?? ""

    spacing: 6
    Accessible.role: Accessible.Grouping
    Accessible.name: server.name ?? ""

    Rectangle {
        width: root.width
        height: Theme.px(104)
        radius: 12
        color: Theme.rowSelected
        ColumnLayout {
            anchors { fill: parent; margins: 12 }
            spacing: 6
            RowLayout {
                spacing: 12
                LabelText {
                    objectName: "serverName"
                    text: Wording.visible(root.server.name ?? "")
                    color: Theme.textStrong
                    wrapMode: Text.NoWrap
                    elide: Text.ElideRight
                    Layout.fillWidth: true
                }
                SoftButton {
                    objectName: "serverAction"
                    text: root.connected ? "Отключить" : "Подключить"
                    enabled: !root.connecting
                    Accessible.name: text + " " + (root.server.name ?? "")
                    onClicked: root.connected ? root.disconnectRequested() : root.connectRequested()
                }
            }
            LiveText {
                objectName: "serverStatus"
                text: root.server.error ? Wording.visible(root.server.error)
                    : root.connected ? "Подключён · инструментов: " + root.server.tool_count
                    : root.connecting ? "Подключаюсь…" : "Доступен для подключения"
                color: Theme.textDetail
                font.pixelSize: Theme.note
                elide: Text.ElideRight
                verticalAlignment: Text.AlignTop
                Layout.fillWidth: true
                Layout.fillHeight: true
            }
        }
    }
    Rectangle {
        visible: root.said !== "" && !root.connected
        width: root.width
        height: visible ? Math.min(Theme.px(120), details.implicitHeight) : 0
        radius: 8
        color: Theme.code

        PlainArea {
            id: details
            objectName: "serverDetails"
            anchors.fill: parent
            name: "Что сообщил сервер"
            text: Wording.visible(root.said)
            textColor: Theme.textCode
            textFont.family: Theme.codeFamily
            textFont.pixelSize: Theme.note
        }
    }
}
