pragma ComponentBehavior: Bound
import QtQuick
import Vesk
import "../Wording.js" as Wording

/* One row of a comparison: a line on one or both sides, or a fold. */
Item {
    id: root

    required property int index
    required property string kind
    required property int oldNumber
    required property int newNumber
    required property string oldText
    required property string newText
    required property int hidden
    required property bool beside
    required property bool current
    required property real shift
    readonly property bool fold: kind === "fold"

    signal opened()

    implicitHeight: Theme.px(20)
    Accessible.role: Accessible.ListItem
    Accessible.onPressAction: if (fold) opened()
    Accessible.name: fold ? foldText.text
        : kind === "removed" ? "Удалено, строка " + oldNumber + ": " + Wording.plain(oldText)
        : (kind === "added" ? "Добавлено, строка " : kind === "changed" ? "Изменено, строка " : "Строка ") + newNumber + ": "
            + Wording.plain(newText)

    component Side: Rectangle {
        id: side
        required property int number
        required property string line
        required property string sign

        color: sign === "−" ? Theme.lineRemoved : sign === "+" ? Theme.lineAdded : "transparent"
        clip: true

        Text {
            x: 4
            width: Theme.px(44)
            height: parent.height
            text: side.number > 0 ? side.number : ""
            textFormat: Text.PlainText
            horizontalAlignment: Text.AlignRight
            verticalAlignment: Text.AlignVCenter
            font.family: Theme.codeFamily
            font.pixelSize: Theme.caption
            color: Theme.textNote
        }
        Text {
            x: Theme.px(54)
            width: Theme.px(12)
            height: parent.height
            text: side.sign
            textFormat: Text.PlainText
            verticalAlignment: Text.AlignVCenter
            font.family: Theme.codeFamily
            font.pixelSize: Theme.small
            color: Theme.textMessage
        }
        Item {
            x: Theme.px(68)
            width: parent.width - x
            height: parent.height
            clip: true

            Text {
                x: -root.shift
                height: parent.height
                text: side.line
                textFormat: Text.StyledText // escaped by the model; only changed words are marked
                verticalAlignment: Text.AlignVCenter
                font.family: Theme.codeFamily
                font.pixelSize: Theme.small
                font.features: ({ calt: 0, liga: 0 })
                color: Theme.textCode
            }
        }
    }

    Rectangle {
        anchors.fill: parent
        visible: root.current
        color: "transparent"
        border.color: Theme.focus
        z: 1
    }
    Rectangle {
        anchors.fill: parent
        visible: root.fold
        color: Theme.row

        Text {
            id: foldText
            anchors.centerIn: parent
            text: "⋯  без изменений, строк: " + root.hidden
            textFormat: Text.PlainText
            font.pixelSize: Theme.caption
            color: Theme.textNote
        }
        TapHandler { onTapped: root.opened() }
    }
    Row {
        anchors.fill: parent
        visible: !root.fold && root.beside

        Side {
            width: parent.width / 2
            height: parent.height
            number: root.oldNumber
            line: root.oldText
            sign: root.kind === "removed" || root.kind === "changed" ? "−" : ""
        }
        Side {
            width: parent.width / 2
            height: parent.height
            number: root.newNumber
            line: root.newText
            sign: root.kind === "added" || root.kind === "changed" ? "+" : ""
        }
    }
    Side {
        anchors.fill: parent
        visible: !root.fold && !root.beside
        number: root.kind === "removed" ? root.oldNumber : root.newNumber
        line: root.kind === "removed" ? root.oldText : root.newText
        sign: root.kind === "removed" ? "−" : root.kind === "added" ? "+" : ""
    }
}
