import QtQuick
import QtQuick.Layouts
import Vesk

/* What has happened, the newest first. */
PaneList {
    id: root

    required property var service
    property var eventText: event => ""

    signal detailsRequested(string text)

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
        height: 65
        leftPadding: 12
        rightPadding: 12
        fill: hovered ? Theme.rowSelected : Theme.rowHovered
        Accessible.name: line.text
        onClicked: root.showEvent(row.row)

        contentItem: ColumnLayout {
            spacing: 2
            LabelText {
                id: line
                text: root.eventText(row.row)
                font.pixelSize: Theme.small
                maximumLineCount: 2
                elide: Text.ElideRight
                verticalAlignment: Text.AlignBottom
                Layout.fillWidth: true
                Layout.fillHeight: true
            }
            Note {
                text: Qt.locale("ru_RU").toString(new Date(row.row.time), "hh:mm:ss")
                font.pixelSize: Theme.tiny
                Layout.fillWidth: true
            }
        }
    }
    onActivated: place => showEvent(events.at(place))

    function showEvent(event: var) {
        detailsRequested(JSON.stringify(event, null, 2));
    }
}
