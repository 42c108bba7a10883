pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Layouts
import Vesk

/* One turn of the conversation: the user's on a card at the right, the others' over the whole width. */
Item {
    id: root

    required property var row
    property bool hasFiles: false

    readonly property bool own: row.role === "user"
    readonly property bool report: row.kind === "report"
    readonly property string content: row.content ?? ""
    /* A text beyond this is opened apart: laying out a megabyte in a list would stop the window. */
    readonly property int longest: 20000
    readonly property string shown: report ? shortReport(content) : row.display_content ?? content

    signal fileRequested(string path)
    signal resultRequested()
    signal detailsRequested(string text)

    function shortReport(text: string): string {
        return text.startsWith("Задача завершена")
            ? "Готово. Результат сохранён в проекте.\nВыполненные проверки и ограничения — в подробностях."
            : text.split("\n\n")[0];
    }

    implicitHeight: card.height

    Rectangle {
        id: card
        anchors.right: root.own ? parent.right : undefined
        width: root.own ? Math.min(parent.width * .9, 610, Math.ceil(body.wanted) + 30) : parent.width
        height: body.implicitHeight + (root.own ? 24 : 0)
        radius: 14
        color: root.own ? Theme.message : "transparent"

        ColumnLayout {
            id: body
            readonly property real wanted: Math.max(header.implicitWidth, text.naturalWidth,
                                                    tiles.visible ? 156 * Math.min(3, tiles.count) + 16 : 0)
            x: root.own ? 14 : 0
            y: root.own ? 12 : 0
            width: parent.width - 2 * x
            spacing: 8

            Note {
                id: header
                objectName: "messageHeader"
                text: root.own ? "Вы" : root.report ? "VESK · результат" : "VESK"
                font.pixelSize: Theme.small
            }
            TextEdit {
                id: text
                objectName: "messageText"
                /* As wide as the text would like to be, however narrow the card is. */
                readonly property real naturalWidth: metrics.advanceWidth > 560 ? 610 : widest.implicitWidth
                text: root.shown.length > root.longest ? root.shown.slice(0, root.longest) + "…" : root.shown
                textFormat: TextEdit.PlainText
                readOnly: true
                selectByMouse: true
                wrapMode: TextEdit.Wrap
                color: Theme.textMessage
                selectionColor: Theme.dotOn
                selectedTextColor: Theme.window
                font.family: Theme.family
                font.pixelSize: Theme.normal
                activeFocusOnPress: true
                Accessible.name: header.text
                Layout.fillWidth: true
            }
            Action {
                text: "Показать полностью"
                visible: root.shown.length > root.longest
                onClicked: root.detailsRequested(root.shown)
            }
            Flow {
                id: tiles
                readonly property int count: root.row.attachments?.length ?? 0
                visible: count > 0
                spacing: 8
                Layout.fillWidth: true
                Repeater {
                    model: root.row.attachments ?? []
                    MessageAttachment {
                        required property var modelData
                        file: modelData
                        onClicked: root.fileRequested(file.path)
                    }
                }
            }
            RowLayout {
                visible: root.report
                spacing: 10
                Action {
                    objectName: "openResult"
                    text: "Открыть результат"
                    primary: true
                    enabled: root.hasFiles
                    onClicked: root.resultRequested()
                }
                Action {
                    objectName: "reportDetails"
                    text: "Подробности"
                    onClicked: root.detailsRequested(root.content)
                }
            }
        }
    }
    TextMetrics {
        id: metrics
        font: text.font
        text: root.own ? root.shown.slice(0, 200) : ""
    }
    Text {
        id: widest
        visible: false
        textFormat: Text.PlainText
        font: text.font
        text: root.own && root.shown.length < 400 ? root.shown : ""
    }
}
