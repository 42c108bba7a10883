import QtQuick
import Vesk

/* The corner by which a dialog is resized; says how far the pointer has moved. */
Item {
    id: root

    property int size: 12
    /* Of the dialog's corner, which the grip stays within. */
    property int rounding: 20

    signal draggedBy(x: real, y: real)

    implicitHeight: size + 4

    Rectangle {
        anchors { right: parent.right; bottom: parent.bottom; margins: Math.round(root.rounding * .36) }
        width: root.size
        height: root.size
        radius: 4
        color: Theme.grip

        MouseArea {
            property point start

            objectName: "dialogGrip"
            anchors.fill: parent
            anchors.margins: -4
            cursorShape: Qt.SizeFDiagCursor
            onPressed: mouse => start = Qt.point(mouse.x, mouse.y)
            onPositionChanged: mouse => root.draggedBy(mouse.x - start.x, mouse.y - start.y)
        }
    }
}
