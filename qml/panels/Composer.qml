pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Vesk

/* The one input box, with the files that go along with the next line. */
Rectangle {
    id: root

    required property Backend service
    required property bool live
    required property bool clarifying
    property alias input: input
    readonly property bool chatBusy: service.chatBusy
    readonly property bool importing: service.importing
    readonly property bool apiTesting: service.apiTesting

    signal submitted()
    signal filesRequested()

    implicitHeight: content.implicitHeight + 24
    radius: 18
    color: Theme.field
    border.color: input.activeFocus ? Theme.composerBorderFocus : Theme.composerBorder

    ColumnLayout {
        id: content
        anchors { left: parent.left; right: parent.right; top: parent.top; margins: 12 }
        spacing: 8

        /* In a low window one row of them is in sight, in a high one two and a half. */
        Flickable {
            id: shelf
            visible: chips.count > 0 || root.importing
            clip: true
            boundsBehavior: Flickable.StopAtBounds
            contentHeight: files.implicitHeight
            ScrollBar.vertical: ThinBar {}
            Layout.fillWidth: true
            Layout.preferredHeight: Math.min(files.implicitHeight, root.Window.height < Theme.px(720) ? 70 : 176)

            Flow {
                id: files
                width: shelf.width - 8
                spacing: 8
                Repeater {
                    id: chips
                    model: Rows {
                        source: root.service
                        list: "attachments"
                    }
                    AttachmentChip {
                        onRemoved: root.service.removeAttachment(row.id)
                        onReached: shelf.contentY = Math.max(0, Math.min(y, shelf.contentHeight - shelf.height))
                    }
                }
                Note {
                    visible: root.importing
                    text: "Добавляю файлы…"
                }
            }
        }
        Flickable {
            id: scroller
            clip: true
            boundsBehavior: Flickable.StopAtBounds
            contentWidth: width
            contentHeight: input.implicitHeight
            Layout.fillWidth: true
            Layout.preferredHeight: Math.max(54, Math.min(Theme.px(130), input.implicitHeight))
            ScrollBar.vertical: ThinBar {}

            TextArea.flickable: TextArea {
                id: input
                objectName: "chatInput"
                placeholderText: root.clarifying ? "Ваш ответ…" : "Напишите задачу или задайте вопрос"
                placeholderTextColor: Theme.inputPlaceholder
                color: Theme.textInput
                textFormat: TextEdit.PlainText
                wrapMode: TextEdit.Wrap
                selectByMouse: true
                padding: 6
                background: null
                font.family: Theme.family
                font.pixelSize: Theme.normal
                Accessible.name: "Сообщение"
                Keys.forwardTo: [pages]
                Keys.onPressed: event => {
                    const enter = event.key === Qt.Key_Return || event.key === Qt.Key_Enter;
                    if (!enter || (event.modifiers & Qt.ShiftModifier))
                        return;
                    event.accepted = true;
                    root.submitted();
                }

                TextPages {
                    id: pages
                    area: input
                    page: scroller.height
                }
            }
        }
        RowLayout {
            spacing: 10
            IconAction {
                id: attach
                objectName: "attachButton"
                text: "+"
                tip: "Добавить фото, видео или файл"
                enabled: !root.importing && !root.chatBusy
                onClicked: root.filesRequested()
            }
            IconAction {
                objectName: "composerStop"
                text: "Стоп"
                tip: "Остановить запросы, инструменты и очередь"
                visible: root.live || root.chatBusy || root.importing || root.apiTesting
                onClicked: root.service.stop()
            }
            Note {
                objectName: "composerHint"
                text: root.clarifying ? "Выберите вариант выше или напишите свой ответ"
                    : root.live ? "Следующее поручение сохранится в очереди"
                    : "Enter — отправить · Shift + Enter — новая строка"
                font.pixelSize: Theme.caption
                wrapMode: Text.NoWrap
                elide: Text.ElideRight
                Layout.fillWidth: true
            }
            Action {
                id: sendButton
                objectName: "sendButton"
                text: "↑"
                primary: true
                enabled: (input.text.trim() !== "" || chips.count > 0) && !root.importing && !root.chatBusy
                    && !root.apiTesting
                Accessible.name: "Отправить"
                Layout.preferredWidth: Theme.px(38)
                Layout.preferredHeight: Theme.px(36)
                onClicked: root.submitted()
            }
        }
    }
}
