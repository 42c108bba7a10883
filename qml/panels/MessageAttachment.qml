import QtQuick
import QtQuick.Controls.Basic
import Vesk

/* A file that a message names; opens in the desktop's own program. */
AbstractButton {
    id: root

    objectName: "messageAttachment"

    required property var file

    width: 156
    height: 88 + Theme.px(16)
    hoverEnabled: true
    Accessible.name: "Открыть " + (file.name ?? "файл")
    Keys.onReturnPressed: click()
    Keys.onEnterPressed: click()
    background: Rectangle {
        radius: 9
        color: Theme.tile
        border.width: root.visualFocus ? 2 : 0
        border.color: Theme.focus
    }
    contentItem: Item {
        Image {
            id: picture
            x: 6
            y: 6
            width: 144
            height: 68
            source: root.file.url?.startsWith("file:") ? root.file.url : ""
            visible: source.toString() !== ""
            asynchronous: true
            fillMode: Image.PreserveAspectFit
            sourceSize: Qt.size(288, 136)
        }
        Note {
            anchors.centerIn: picture
            visible: !picture.visible
            text: "Файл"
            color: Theme.textDetail
        }
        NameText {
            anchors { left: parent.left; right: parent.right; bottom: parent.bottom; margins: 8 }
            text: root.file.name ?? ""
            color: Theme.textDetail
            font.pixelSize: Theme.note
            elide: Text.ElideMiddle
        }
    }
}
