pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Layouts
import Vesk

/* The requests that wait: whole, in their order, each or all to be taken out and brought back. */
FloatingDialog {
    id: root

    required property Backend service
    readonly property int removed: service.queueRemoved

    objectName: "queueDialog"
    title: "Ожидающие запросы"
    width: Math.min(Theme.px(600), (parent?.width ?? 600) - edge)
    height: Math.min(Theme.px(400), (parent?.height ?? 400) - edge)

    contentItem: ColumnLayout {
        spacing: 12
        Note {
            objectName: "queueState"
            text: requests.count === 0 ? "Очередь пуста."
                : root.service.queuePaused ? "Очередь приостановлена: запросы ждут, пока вы её не продолжите."
                : "Запросы начнутся по порядку после текущей задачи."
            Layout.fillWidth: true
        }
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
                required property int index
                width: ListView.view.width
                leftPadding: 12
                rightPadding: 8
                topPadding: 8
                bottomPadding: 8
                Accessible.name: (index + 1) + ". " + (row.request ?? "")
                contentItem: RowLayout {
                    spacing: 10
                    Note {
                        text: waiting.index + 1
                        Layout.alignment: Qt.AlignTop
                    }
                    LabelText {
                        text: (waiting.row.request ?? "").slice(0, 1000)
                        font.pixelSize: Theme.body
                        maximumLineCount: 6
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
        RowLayout {
            visible: root.removed > 0
            spacing: 8
            Note {
                objectName: "queueRemoved"
                text: "Убрано запросов: " + root.removed
                Accessible.role: Accessible.AlertMessage
                Layout.fillWidth: true
            }
            IconAction {
                objectName: "undoQueue"
                text: "Вернуть"
                onClicked: root.service.undoQueue()
            }
        }
        RowLayout {
            spacing: 10
            Action {
                objectName: "clearQueue"
                text: "Убрать все"
                enabled: requests.count > 0
                onClicked: root.service.clearQueue()
            }
            Item { Layout.fillWidth: true }
            Action {
                objectName: "resumeQueue"
                text: "Продолжить"
                primary: true
                visible: root.service.queuePaused && requests.count > 0
                onClicked: root.service.resumeQueue()
            }
            Action {
                text: "Закрыть"
                onClicked: root.close()
            }
        }
    }
}
