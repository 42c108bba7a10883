import QtQuick
import Vesk

/* A file of the project, tracked or brought along. */
ListRow {
    id: root

    required property var row

    height: Theme.px(56)
    leftPadding: 12
    rightPadding: 12
    fill: chosen ? Theme.rowSelected : hovered ? Theme.rowUnderPointer : Theme.row
    Accessible.name: (row.path ?? "") + ", " + about.text

    contentItem: Item {
        LabelText {
            anchors { left: parent.left; right: parent.right; bottom: parent.verticalCenter }
            text: "▤  " + (root.row.path ?? "").replace(/\//g, "  ›  ")
            font.pixelSize: Theme.note
            wrapMode: Text.NoWrap
            elide: Text.ElideMiddle
        }
        Note {
            id: about
            anchors { left: parent.left; right: parent.right; top: parent.verticalCenter; topMargin: 3 }
            text: root.row.type === "media"
                ? (root.row.usage ? root.row.usage + " · " : "") + (root.row.kind ?? "") + " · "
                  + Math.ceil((root.row.bytes ?? 0) / 1024) + " КБ"
                : "Версия " + (root.row.revision ?? 0)
            color: root.selected ? Theme.textDetail : Theme.textNote
            font.pixelSize: Theme.caption
            wrapMode: Text.NoWrap
            elide: Text.ElideRight
        }
    }
}
