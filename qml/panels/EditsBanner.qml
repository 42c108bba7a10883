pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Layouts
import Vesk

/* The files that the user has changed beside the program, and whose version is to stand. */
Rectangle {
    id: root

    required property Backend service
    readonly property bool single: edits.count === 1

    signal compared(string path)

    implicitHeight: content.implicitHeight + 28
    radius: 14
    color: Theme.card
    border.color: Theme.cardBorder
    Accessible.role: Accessible.Grouping
    Accessible.name: heading.text

    Rows {
        id: edits
        source: root.service
        list: "handEdits"
    }
    ColumnLayout {
        id: content
        anchors { left: parent.left; right: parent.right; top: parent.top; margins: 14 }
        spacing: 8

        LabelText {
            id: heading
            objectName: "editsHeading"
            text: "Изменено вне программы, файлов: " + edits.count
            font.weight: Font.DemiBold
            Layout.fillWidth: true
        }
        PaneList {
            objectName: "editList"
            spacing: 4
            Layout.fillWidth: true
            Layout.preferredHeight: Math.min(Theme.px(132), contentHeight)
            Accessible.name: heading.text
            model: edits
            delegate: GridLayout {
                id: line
                required property var row
                width: ListView.view.width
                columns: choices.implicitWidth > width - Theme.px(160) ? 1 : 2
                columnSpacing: 8
                rowSpacing: 4

                LabelText {
                    text: line.row.text
                    font.pixelSize: Theme.note
                    wrapMode: Text.NoWrap
                    elide: Text.ElideMiddle
                    Layout.fillWidth: true
                }
                EditChoices {
                    id: choices
                    Layout.fillWidth: line.columns === 1
                    path: line.row.path
                    onTaken: root.service.takeEdits(path)
                    onUndone: root.service.undoEdits(path)
                    onCompared: root.compared(path)
                }
            }
        }
        EditChoices {
            visible: !root.single
            path: ""
            Layout.alignment: Qt.AlignRight
            onTaken: root.service.takeEdits("")
            onUndone: root.service.undoEdits("")
        }
    }
}
