import QtQuick

/* Takes hold of a dialog and says how far the pointer has moved. */
MouseArea {
    id: root

    property point start

    signal draggedBy(x: real, y: real)

    cursorShape: pressed ? Qt.ClosedHandCursor : Qt.OpenHandCursor
    onPressed: mouse => start = Qt.point(mouse.x, mouse.y)
    onPositionChanged: mouse => root.draggedBy(mouse.x - start.x, mouse.y - start.y)
}
