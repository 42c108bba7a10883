pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Vesk
import "../Wording.js" as Wording

/* The commands that a run asks leave for: what would be run, then the request in full. */
FloatingDialog {
    id: root

    required property Backend service
    required property list<var> pending
    readonly property bool single: pending.length === 1

    objectName: "permissions"
    title: "Разрешить команду?"
    width: Math.min(Theme.px(650), (parent?.width ?? 650) - edge)
    height: Math.min(Theme.px(430), (parent?.height ?? 430) - edge)

    function decide(item: string, allow: bool) {
        service.approve(item, allow);
        close();
    }

    contentItem: ColumnLayout {
        spacing: 12
        ListView {
            id: requests
            clip: true
            spacing: 20
            boundsBehavior: Flickable.StopAtBounds
            model: root.pending
            Layout.fillWidth: true
            Layout.fillHeight: true
            ScrollBar.vertical: ThinBar {}
            delegate: ColumnLayout {
                id: request
                required property var modelData
                readonly property var input: modelData.node?.input ?? {}
                width: ListView.view.width
                height: Math.max(implicitHeight, root.single ? ListView.view.height : 0)
                spacing: 10
                Rectangle {
                    color: Theme.code
                    radius: 8
                    Layout.fillWidth: true
                    Layout.preferredHeight: Math.min(Theme.px(180), command.implicitHeight)

                    PlainArea {
                        id: command
                        objectName: "commandLine"
                        anchors.fill: parent
                        name: "Команда"
                        text: Wording.visible(Wording.commandText(request.input))
                        textFont.family: Theme.codeFamily
                        textFont.pixelSize: Theme.body
                    }
                }
                Heading { text: "ЗАПРОС ЦЕЛИКОМ" }
                PlainArea {
                    objectName: "commandRequest"
                    name: "Запрос целиком"
                    text: Wording.visible(Wording.pretty(request.input))
                    textColor: Theme.textDetail
                    textFont.family: Theme.codeFamily
                    textFont.pixelSize: Theme.note
                    Layout.fillWidth: true
                    Layout.fillHeight: true
                    Layout.minimumHeight: Theme.px(60)
                    Layout.preferredHeight: Math.min(Theme.px(140), implicitHeight)
                }
                RowLayout {
                    spacing: 10
                    Action {
                        visible: root.single
                        text: "Закрыть"
                        onClicked: root.close()
                    }
                    Item { Layout.fillWidth: true }
                    Action {
                        objectName: "denyCommand"
                        text: "Запретить"
                        onClicked: root.decide(request.modelData.id, false)
                    }
                    Action {
                        objectName: "allowCommand"
                        text: "Разрешить"
                        primary: true
                        onClicked: root.decide(request.modelData.id, true)
                    }
                }
            }
        }
        Action {
            visible: !root.single
            text: "Закрыть"
            Layout.alignment: Qt.AlignRight
            onClicked: root.close()
        }
    }
}
