pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Layouts
import Vesk

/* The files that the user has changed beside the program, and whose version is to stand. */
Rectangle {
    id: root

    required property Backend service
    /* There is room for the files alone, each with its own answers. */
    property bool low: false
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
        anchors { fill: parent; margins: 14 }
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
            Layout.fillHeight: true // in a low window the list gives way
            Layout.preferredHeight: Math.min(Theme.px(132), contentHeight)
            Layout.maximumHeight: Layout.preferredHeight
            Accessible.name: heading.text
            model: edits
            onActivated: place => root.compared(edits.at(place).path)
            delegate: ListRow {
                id: line
                required property var row
                width: ListView.view.width
                text: row.text
                padding: 4
                fill: "transparent"
                onClicked: root.compared(row.path)

                contentItem: GridLayout {
                    id: cells
                    columns: choices.lineWidth > width - Theme.px(160) ? 1 : 2
                    columnSpacing: 8
                    rowSpacing: 4

                    LabelText {
                        text: line.text
                        font.pixelSize: Theme.note
                        wrapMode: Text.NoWrap
                        elide: Text.ElideMiddle
                        Layout.fillWidth: true
                    }
                    /* Of the row chosen: Tab does not go through hundreds. */
                    EditChoices {
                        id: choices
                        Layout.fillWidth: cells.columns === 1
                        Layout.preferredWidth: lineWidth
                        path: line.row.path
                        focusPolicy: line.ListView.isCurrentItem ? Qt.TabFocus : Qt.NoFocus
                        onTaken: root.service.takeEdits(path)
                        onUndone: root.service.undoEdits(path)
                        onCompared: root.compared(path)
                    }
                }
            }
        }
        EditChoices {
            visible: !root.single && !root.low
            path: ""
            Layout.alignment: Qt.AlignRight
            Layout.preferredWidth: lineWidth
            Layout.maximumWidth: content.width
            onTaken: root.service.takeEdits("")
            onUndone: root.service.undoEdits("")
        }
    }
}
