import QtQuick
import QtQuick.Controls.Basic
import Vesk

/* The bar that says that a list goes on, and how far: thin and always there while it does. */
ScrollBar {
    id: root

    minimumSize: .06
    padding: 1
    Accessible.ignored: true
    contentItem: Rectangle {
        implicitWidth: root.hovered || root.pressed ? 6 : 4
        implicitHeight: root.hovered || root.pressed ? 6 : 4
        radius: 3
        color: root.hovered || root.pressed ? Theme.barActive : Theme.bar
        visible: root.size < 1 || root.policy === ScrollBar.AlwaysOn
    }
}
