import QtQuick
import QtQuick.Layouts
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

    contentItem: RowLayout {
        spacing: 4
        ColumnLayout {
            spacing: 2
            NameText {
                id: title
                text: root.row.spec?.title || root.row.spec?.original_request || "Новая задача"
                maximumLineCount: 1
                font.pixelSize: Theme.note
                Layout.fillWidth: true
            }
            Note {
                text: root.phase
                font.pixelSize: Theme.caption
                wrapMode: Text.NoWrap
                elide: Text.ElideRight
                Layout.fillWidth: true
            }
        }
        IconAction {
            id: more
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
