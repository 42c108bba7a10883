import QtQuick
import Vesk

/* One conversation of the project. */
ListRow {
    id: root

    required property var row
    required property string phase

    signal menuRequested()

    height: Theme.px(56)
    fill: chosen ? Theme.rowCurrent : hovered ? Theme.rowHovered : "transparent"
    Accessible.name: title.text.replace(/\s+/g, " ") + ", " + phase

    contentItem: Item {
        Column {
            anchors { left: parent.left; right: parent.right; verticalCenter: parent.verticalCenter }
            anchors.rightMargin: more.opacity > 0 ? more.width + 4 : 0
            spacing: 2
            NameText {
                id: title
                text: root.row.spec?.title || root.row.spec?.original_request || "Новая задача"
                width: parent.width
                maximumLineCount: 1
                font.pixelSize: Theme.note
            }
            Note {
                text: root.phase
                font.pixelSize: Theme.caption
                wrapMode: Text.NoWrap
                elide: Text.ElideRight
                width: parent.width
            }
        }
        /* Over the end of the title, which makes room for it when it shows. */
        IconAction {
            id: more
            anchors { right: parent.right; verticalCenter: parent.verticalCenter }
            objectName: "threadMenuButton"
            text: "⋯"
            tip: "Действия с диалогом"
            flat: true
            opacity: root.hovered || hovered || root.current ? 1 : 0
            focusPolicy: Qt.NoFocus // the menu key of the list does the same
            leftPadding: 7
            rightPadding: 7
            onClicked: root.menuRequested()
        }
    }
    leftPadding: 10
    rightPadding: 6
}
