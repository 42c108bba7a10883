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
        Sign {
            id: sign
            anchors { left: parent.left; verticalCenter: path.verticalCenter }
            width: Theme.px(15)
            height: width
            sign: "▤"
            color: path.color
        }
        NameText {
            id: path
            anchors { left: sign.right; leftMargin: 8; right: parent.right; bottom: parent.verticalCenter }
            text: (root.row.path ?? "").replace(/\//g, "  ›  ")
            font.pixelSize: Theme.note
            elide: Text.ElideMiddle
        }
        Note {
            id: about
            anchors { left: path.left; right: parent.right; top: parent.verticalCenter; topMargin: 3 }
            text: root.row.type === "media"
                ? (root.row.usage ? root.row.usage + " · " : "") + (root.row.kind ?? "") + " · "
                  + Math.ceil((root.row.bytes ?? 0) / 1024) + " КБ"
                : "Версия " + (root.row.revision ?? 0)
            color: root.chosen ? Theme.textDetail : Theme.textNote
            font.pixelSize: Theme.caption
            wrapMode: Text.NoWrap
            elide: Text.ElideRight
        }
    }
}
