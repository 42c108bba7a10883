import QtQuick
import Vesk

/* A file that waits to go with the next line. */
Rectangle {
    id: root

    required property var row

    signal removed()
    /* By keyboard. */
    signal reached()

    width: Theme.px(210)
    height: 64
    radius: 8
    color: Theme.chip

    Image {
        id: picture
        x: 6
        y: 6
        width: 52
        height: 52
        source: root.row.url?.startsWith("file:") ? root.row.url : ""
        asynchronous: true
        fillMode: Image.PreserveAspectFit
        sourceSize: Qt.size(104, 104)
    }
    Sign {
        anchors.centerIn: picture
        width: 22
        height: 22
        visible: picture.status !== Image.Ready
        sign: "▤"
        color: Theme.textNote
    }
    NameText {
        anchors { left: picture.right; right: remove.left; verticalCenter: parent.verticalCenter; margins: 6 }
        objectName: "attachmentName"
        text: root.row.name ?? ""
        color: Theme.textDetail
        font.pixelSize: Theme.note
        elide: Text.ElideMiddle
    }
    IconAction {
        id: remove
        objectName: "removeAttachment"
        anchors { right: parent.right; verticalCenter: parent.verticalCenter; rightMargin: 6 }
        text: "×"
        Accessible.name: "Убрать " + (root.row.name ?? "файл")
        onVisualFocusChanged: if (visualFocus) root.reached()
        onClicked: root.removed()
    }
}
