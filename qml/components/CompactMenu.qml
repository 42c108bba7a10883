pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Basic
import Vesk

Menu {
    id: root

    padding: 5
    margins: 6
    width: Theme.px(190)
    delegate: CompactMenuItem {}
    background: Rectangle {
        implicitWidth: Theme.px(190)
        color: Theme.menu
        radius: 10
        border.color: Theme.menuBorder
        Shadow {}
    }
    enter: Transition {
        NumberAnimation { property: "opacity"; from: 0; to: 1; duration: Theme.fade }
    }
    exit: null
    Component.onCompleted: contentItem.parent.Accessible.name = title

    TabKeys { ground: root.contentItem.parent }
}
