import QtQuick
import Vesk

/* The border between two columns, which changes the width of one of them: a thin line that can be caught beside it. */
Item {
    id: root

    required property real value
    required property real from
    required property real to
    /* 1 when a move to the right widens the column, -1 when it narrows it. */
    required property int direction
    /* It has been moved since it was caught. */
    property bool dragging: false

    signal moved(real value)
    signal released(real value)

    implicitWidth: Theme.handleWidth
    z: 1
    activeFocusOnTab: true
    Accessible.role: Accessible.Splitter
    Accessible.name: "Ширина панели"
    Keys.onLeftPressed: nudge(-10)
    Keys.onRightPressed: nudge(10)

    function bounded(value: real): real {
        return Math.max(from, Math.min(to, value));
    }
    function nudge(step: int) {
        const next = bounded(value + step * direction);
        moved(next);
        released(next);
    }

    Rectangle {
        readonly property bool caught: area.containsMouse || area.pressed || root.activeFocus

        x: root.direction > 0 ? 0 : root.width - width
        width: caught ? 3 : 1
        height: root.height
        color: caught ? Theme.handleHovered : Theme.handle
    }
    MouseArea {
        id: area
        property real startX
        property real startValue

        anchors { fill: parent; leftMargin: -3; rightMargin: -3 }
        hoverEnabled: true
        cursorShape: Qt.SizeHorCursor
        onPressed: mouse => {
            startX = mapToItem(null, mouse.x, 0).x;
            startValue = root.value;
        }
        onPositionChanged: mouse => {
            if (!pressed)
                return;
            root.moved(root.bounded(startValue + (mapToItem(null, mouse.x, 0).x - startX) * root.direction));
            root.dragging = true;
        }
        onReleased: {
            if (root.dragging)
                root.released(root.value);
            root.dragging = false;
        }
    }
}
