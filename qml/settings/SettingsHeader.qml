import QtQuick
import Vesk

/* Title of the settings: the dialog is moved by it. */
Item {
    id: root

    required property FloatingDialog dialog

    implicitHeight: 62

    DialogMover {
        objectName: "dialogHeader"
        anchors.fill: parent
        onDraggedBy: (x, y) => root.dialog.moveBy(x, y)
    }
    LabelText {
        anchors { left: parent.left; verticalCenter: parent.verticalCenter; leftMargin: 24 }
        text: root.dialog.title
        color: Theme.textTitle
        font.pixelSize: Theme.px(20)
    }
    SoftButton {
        objectName: "dialogClose"
        anchors { right: parent.right; verticalCenter: parent.verticalCenter; rightMargin: 16 }
        text: "×"
        Accessible.name: "Закрыть"
        onClicked: root.dialog.close()
    }
}
