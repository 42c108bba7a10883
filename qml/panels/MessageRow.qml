pragma ComponentBehavior: Bound
import QtQuick
import Vesk

/* One turn of the conversation: the user's on a card at the right, the others' over the whole width. A long list makes
   and unmakes these while it scrolls, so that only what a message really has is made. */
Item {
    id: root

    required property var row
    property bool hasFiles: false
    /* Its buttons are in view. Tab does not go through all that lies above and below. */
    property bool reachable: true
    readonly property int focusPolicy: reachable ? Qt.TabFocus : Qt.NoFocus

    readonly property bool own: row.role === "user"
    readonly property bool report: row.kind === "report"
    readonly property string content: row.content ?? ""
    /* Why the work has stopped, of a report that tells it. */
    readonly property string reason: report ? content.split("\n\nПочему работа остановилась\n")[1]?.split("\n\n")[0] ?? "" : ""
    readonly property string whole: report ? shortReport(content) : row.display_content ?? content
    /* "Задача завершена. 3 из 5 критериев подтверждены проверками, 2 — только мнением агентов.": its parts. */
    readonly property list<string> proved: report && content.startsWith(done + " ")
        ? content.split("\n")[0].slice(done.length + 1).replace(/\.$/, "").split(", ") : []
    readonly property string done: "Задача завершена."
    /* A text beyond this is opened apart: laying out a megabyte in a list would stop the window. */
    readonly property int longest: 20000
    readonly property bool cut: whole.length > longest
    readonly property list<var> files: row.attachments ?? []
    /* Long texts take all the room there is; only of a short one it matters how long it is. */
    readonly property real wanted: files.length > 0 || whole.length > 120 ? room
        : Math.ceil(Math.max(40, ...whole.split("\n").map(line => metrics.advanceWidth(line)))) + 2 * inset + 2
    readonly property real room: own ? Math.min(width * .9, 610) : width
    readonly property int inset: own ? 14 : 0

    signal fileRequested(string path)
    /* While the text is read by keyboard: the cursor is at this height now, and has left for the message that many
       places on, or, with 0, for the list. */
    signal cursorMoved(real top, real bottom)
    signal cursorLeft(int step)
    signal tabPressed(bool forward)
    signal resultRequested()
    signal detailsRequested(string text)
    /* With a mark: what has it first. */
    signal proofsRequested(string mark)
    signal copyRequested()

    function read(atEnd: bool) {
        text.read(atEnd);
    }
    function markOf(part: string): string {
        return part.includes("мнением") ? "opinion" : part.includes("— не ") ? "none" : part.startsWith("Проверками не") ? "" : "check";
    }
    function shortReport(text: string): string {
        return text.startsWith("Задача завершена")
            ? "Готово. Результат сохранён в проекте.\nВыполненные проверки и ограничения — в подробностях."
            : text.split("\n\n")[0];
    }

    height: body.height + (own ? 24 : 0)
    Accessible.role: Accessible.ListItem
    Accessible.name: header.text + ": " + whole.slice(0, 300)
    Accessible.onPressAction: read(false)
    ListView.onPooled: if (text.activeFocus) cursorLeft(0)

    Rectangle {
        x: root.own ? root.width - width : 0
        width: root.own ? Math.min(root.room, root.wanted) : root.width
        height: root.height
        radius: 14
        color: root.own ? Theme.message : "transparent"

        Column {
            id: body
            x: root.inset
            y: root.own ? 12 : 0
            width: parent.width - 2 * root.inset
            spacing: 8

            Note {
                id: header
                objectName: "messageHeader"
                text: root.own ? "Вы" : root.report ? "VESK · результат"
                    : root.row.kind === "question" ? "VESK · вопрос" : "VESK"
                font.pixelSize: Theme.small
            }
            ReadText {
                id: text
                objectName: "messageText"
                width: body.width
                text: root.cut ? root.whole.slice(0, root.longest) + "…" : root.whole
                font.pixelSize: Theme.normal
                Accessible.name: header.text
                onCursorMoved: (top, bottom) => {
                    const y = mapToItem(root, 0, 0).y;
                    root.cursorMoved(y + top, y + bottom);
                }
                onCursorLeft: step => root.cursorLeft(step)
                onTabPressed: forward => root.tabPressed(forward)
            }
            Loader {
                active: root.proved.length > 0
                visible: active
                width: body.width
                sourceComponent: Flow {
                    spacing: 14
                    Repeater {
                        model: root.proved
                        TextLink {
                            required property string modelData
                            objectName: "proof-" + root.markOf(modelData)
                            focusPolicy: activeFocus ? Qt.TabFocus : root.focusPolicy
                            text: modelData
                            onClicked: root.proofsRequested(root.markOf(modelData))
                        }
                    }
                }
            }
            Loader {
                active: root.reason !== ""
                visible: active
                width: body.width
                sourceComponent: Note {
                    objectName: "reportReason"
                    text: root.reason
                    font.pixelSize: Theme.body
                }
            }
            Loader {
                active: root.cut
                visible: active
                sourceComponent: Action {
                    text: "Показать полностью"
                    focusPolicy: activeFocus ? Qt.TabFocus : root.focusPolicy
                    onClicked: root.detailsRequested(root.whole)
                }
            }
            Loader {
                active: root.files.length > 0
                visible: active
                width: body.width
                sourceComponent: Flow {
                    spacing: 8
                    Repeater {
                        model: root.files
                        MessageAttachment {
                            required property var modelData
                            file: modelData
                            focusPolicy: activeFocus ? Qt.TabFocus : root.focusPolicy
                            onClicked: root.fileRequested(file.path ?? "")
                        }
                    }
                }
            }
            Loader {
                active: root.report
                visible: active
                width: body.width
                sourceComponent: Flow {
                    spacing: 10
                    Action {
                        objectName: "openResult"
                        focusPolicy: activeFocus ? Qt.TabFocus : root.focusPolicy
                        text: "Открыть результат"
                        primary: true
                        enabled: root.hasFiles
                        onClicked: root.resultRequested()
                    }
                    Action {
                        objectName: "reportDetails"
                        focusPolicy: activeFocus ? Qt.TabFocus : root.focusPolicy
                        text: "Подробности"
                        onClicked: root.detailsRequested(root.content)
                    }
                    Action {
                        objectName: "reportProofs"
                        focusPolicy: activeFocus ? Qt.TabFocus : root.focusPolicy
                        text: "Доказательства"
                        visible: root.content.startsWith("Задача завершена")
                        onClicked: root.proofsRequested("")
                    }
                    Action {
                        id: copy
                        objectName: "copyReport"
                        focusPolicy: activeFocus ? Qt.TabFocus : root.focusPolicy
                        text: copied.running ? "Скопировано" : "Скопировать отчёт"
                        onClicked: {
                            root.copyRequested();
                            copied.restart();
                            Accessible.announce("Отчёт скопирован");
                        }
                        Timer {
                            id: copied
                            interval: 2000
                        }
                    }
                }
            }
        }
    }
    FontMetrics {
        id: metrics
        font: text.font
    }
}
