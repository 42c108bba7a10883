pragma ComponentBehavior: Bound
import QtQuick
import Vesk

/* The face of the team. */
Rectangle {
    width: 52
    height: 52
    radius: 17
    color: Theme.field
    border.color: Theme.face

    Row {
        anchors.centerIn: parent
        spacing: 8
        Repeater {
            model: 2
            Rectangle {
                width: 6
                height: 6
                radius: 3
                color: Theme.eyes
            }
        }
    }
}
