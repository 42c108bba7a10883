import QtQuick
import Vesk

/* The upper edge of a list, where what is scrolled away fades. */
Rectangle {
    required property Flickable list

    anchors { left: parent.left; right: parent.right; top: parent.top }
    z: 1
    height: 28
    visible: !list.atYBeginning
    gradient: Gradient {
        GradientStop { position: .3; color: Theme.centre }
        GradientStop { position: 1; color: Theme.centreClear }
    }
}
