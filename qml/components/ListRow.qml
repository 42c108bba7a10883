import QtQuick
import QtQuick.Controls.Basic
import Vesk

/* The frame of a row in a list: fill, focus ring and click. */
AbstractButton {
    id: root

    property color fill: hovered ? Theme.rowUnderPointer : Theme.row
    property int corner: 8
    /* It is the one shown elsewhere. */
    property bool chosen: false
    property bool current: ListView.isCurrentItem && ListView.view.activeFocus && !(ListView.view as PaneList)?.quiet

    focusPolicy: Qt.NoFocus
    hoverEnabled: true
    Accessible.role: Accessible.ListItem
    Accessible.name: text
    Accessible.selectable: true
    Accessible.selected: chosen
    Accessible.onPressAction: click()
    onPressed: if (ListView.view) ListView.view.currentIndex = ListView.view.indexAt(x, y + 1)
    background: Rectangle {
        radius: root.corner
        color: root.fill
        border.width: root.current ? 2 : 0
        border.color: Theme.focus
        Behavior on color { ColorAnimation { duration: Theme.animated ? 120 : 0 } }
    }
}
