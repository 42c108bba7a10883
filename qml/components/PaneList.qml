import QtQuick
import QtQuick.Controls.Basic
import Vesk

/* A list that is worked by mouse and keyboard alike: arrows choose, Enter and Space act on the row chosen. */
ListView {
    id: root

    signal activated(int place)

    clip: true
    spacing: 5
    boundsBehavior: Flickable.StopAtBounds
    // An item that has the focus can't be taken out of the order of Tab.
    activeFocusOnTab: count > 0 || activeFocus
    keyNavigationEnabled: true
    currentIndex: -1
    Accessible.role: Accessible.List
    ScrollBar.vertical: ScrollBar {}
    Keys.onReturnPressed: root.activated(currentIndex)
    Keys.onEnterPressed: root.activated(currentIndex)
    Keys.onSpacePressed: root.activated(currentIndex)
    onActiveFocusChanged: if (activeFocus && currentIndex < 0) currentIndex = 0
}
