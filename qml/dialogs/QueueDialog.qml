pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Layouts
import Vesk

/* The requests that wait. */
FloatingDialog {
    id: root

    required property Backend service

    objectName: "queueDialog"
    title: "Ожидающие запросы"
    width: Math.min(Theme.px(600), (parent?.width ?? 600) - edge)
    height: Math.min(Theme.px(400), (parent?.height ?? 400) - edge)

    contentItem: ColumnLayout {
        spacing: 12
        PaneList {
            objectName: "queueList"
            Layout.fillWidth: true
            Layout.fillHeight: true
            Accessible.name: root.title
            model: Rows {
                id: requests
                source: root.service
                list: "queue"
            }
            onRemoved: place => root.service.cancelQueued(requests.at(place).id)
            delegate: ListRow {
                id: waiting
                required property var row
                width: ListView.view.width
                leftPadding: 12
                rightPadding: 8
                topPadding: 8
                bottomPadding: 8
                Accessible.name: row.request ?? ""
                contentItem: RowLayout {
                    spacing: 10
                    LabelText {
                        text: (waiting.row.request ?? "").slice(0, 1000)
                        font.pixelSize: Theme.body
                        maximumLineCount: 3
                        elide: Text.ElideRight
                        Layout.fillWidth: true
                    }
                    Action {
                        objectName: "cancelQueued"
                        text: "Убрать"
                        focusPolicy: Qt.NoFocus // Delete in the list does the same
                        onClicked: root.service.cancelQueued(waiting.row.id)
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
