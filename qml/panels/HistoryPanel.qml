pragma ComponentBehavior: Bound
import QtQuick
import Vesk
import "../Wording.js" as Wording

/* What has happened, the newest first. */
PaneList {
    id: root

    required property Backend service

    signal eventRequested(var event)

    objectName: "eventList"
    spacing: 6
    Accessible.name: "События"
    model: Rows {
        id: events
        source: root.service
        list: "events"
        newestFirst: true
    }
    delegate: ListRow {
        id: row
        required property var row
        width: ListView.view.width
        height: Theme.px(65)
        leftPadding: 12
        rightPadding: 12
        fill: hovered ? Theme.rowUnderPointer : Theme.rowHovered
        Accessible.name: line.text
        onClicked: root.eventRequested(row.row)

        contentItem: Item {
            Column {
                anchors.verticalCenter: parent.verticalCenter
                width: parent.width
                spacing: 3
                LabelText {
                    id: line
                    width: parent.width
                    text: Wording.eventText(row.row, root.service)
                    font.pixelSize: Theme.small
                    maximumLineCount: 2
                    elide: Text.ElideRight
                }
                Note {
                    text: Qt.locale("ru_RU").toString(new Date(row.row.time), "hh:mm:ss")
                    font.pixelSize: Theme.tiny
                }
            }
        }
    }
    onActivated: place => eventRequested(events.at(place))
}
