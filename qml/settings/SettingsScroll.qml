import QtQuick
import QtQuick.Controls.Basic
import Vesk

/* A page that is longer than the dialog. What gets the focus by keyboard comes into view. */
ScrollView {
    id: root

    property bool alwaysBar: false
    readonly property Item focused: Window.activeFocusItem

    function show(item: Item) {
        const flickable = contentItem as Flickable;
        const top = item.mapToItem(flickable.contentItem, 0, 0).y;
        const bottom = top + item.height;
        if (top < flickable.contentY)
            flickable.contentY = Math.max(0, top - 12);
        else if (bottom > flickable.contentY + flickable.height)
            flickable.contentY = Math.min(flickable.contentHeight - flickable.height, bottom + 12 - flickable.height);
    }
    function holds(item: Item): bool {
        for (let it = item; it; it = it.parent) {
            if (it === contentItem)
                return true;
        }
        return false;
    }

    clip: true
    contentWidth: availableWidth
    rightPadding: 14
    ScrollBar.vertical: ThinBar {
        parent: root
        x: parent.width - width
        y: root.topPadding
        height: root.availableHeight
        policy: root.alwaysBar ? ScrollBar.AlwaysOn : ScrollBar.AsNeeded
    }
    onFocusedChanged: if (focused && holds(focused)) show(focused)
}
