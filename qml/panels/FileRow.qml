import QtQuick
import QtQuick.Layouts
import Vesk

/* A file of the project, tracked or brought along. */
ListRow {
    id: root

    required property var row
    required property bool selected

    height: 56
    leftPadding: 12
    rightPadding: 12
    fill: selected ? Theme.rowSelected : hovered ? Theme.rowHovered : Theme.row
    Accessible.name: row.path + ", " + about.text

    contentItem: ColumnLayout {
        spacing: 2
        LabelText {
            text: "▤  " + root.row.path.replace(/\//g, "  ›  ")
            font.pixelSize: Theme.note
            wrapMode: Text.NoWrap
            elide: Text.ElideMiddle
            verticalAlignment: Text.AlignBottom
            Layout.fillWidth: true
            Layout.fillHeight: true
        }
        Note {
            id: about
            text: root.row.type === "media"
                ? (root.row.usage ? root.row.usage + " · " : "") + (root.row.kind ?? "") + " · "
                  + Math.ceil((root.row.bytes ?? 0) / 1024) + " КБ"
                : "Версия " + (root.row.revision ?? 0)
            font.pixelSize: Theme.caption
            wrapMode: Text.NoWrap
            elide: Text.ElideRight
            verticalAlignment: Text.AlignTop
            Layout.fillWidth: true
            Layout.fillHeight: true
        }
    }
}
