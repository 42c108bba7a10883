pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Vesk
import "../Wording.js" as Wording

/* The commands that a run asks leave for, each in full. */
FloatingDialog {
    id: root

    required property Backend service
    required property list<var> pending

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
            spacing: 14
            boundsBehavior: Flickable.StopAtBounds
            model: root.pending
            Layout.fillWidth: true
            Layout.fillHeight: true
            ScrollBar.vertical: ScrollBar {}
            delegate: ColumnLayout {
                id: request
                required property var modelData
                width: ListView.view.width
                spacing: 10
                PlainArea {
                    name: "Команда"
                    text: Wording.visible(Wording.pretty(request.modelData.node?.input ?? {}))
                    textFont.family: Theme.codeFamily
                    textFont.pixelSize: Theme.note
                    Layout.fillWidth: true
                    Layout.preferredHeight: Math.min(requests.count > 1 ? 220 : 260, implicitHeight)
                }
                RowLayout {
                    spacing: 10
                    Layout.alignment: Qt.AlignRight
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
            text: "Закрыть"
            Layout.alignment: Qt.AlignRight
            onClicked: root.close()
        }
    }
}
