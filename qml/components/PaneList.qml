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
    activeFocusOnTab: count > 0
    keyNavigationEnabled: true
    currentIndex: -1
    Accessible.role: Accessible.List
    ScrollBar.vertical: ScrollBar {}
    Keys.onReturnPressed: root.activated(currentIndex)
    Keys.onEnterPressed: root.activated(currentIndex)
    Keys.onSpacePressed: root.activated(currentIndex)
    onActiveFocusChanged: if (activeFocus && currentIndex < 0) currentIndex = 0
}
