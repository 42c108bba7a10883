pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Basic
import Vesk

/* The conversation. It stays at its end until the user scrolls away from there. */
ListView {
    id: root

    property bool follow: true

    signal fileRequested(string path)
    signal resultRequested()
    signal detailsRequested(string text)

    property bool hasFiles: false

    clip: true
    spacing: 24
    cacheBuffer: 1800
    reuseItems: true
    boundsBehavior: Flickable.StopAtBounds
    activeFocusOnTab: true
    Accessible.role: Accessible.List
    Accessible.name: "Сообщения"
    ScrollBar.vertical: ScrollBar { onPressedChanged: if (!pressed) root.noteScroll() }

    function noteScroll() {
        follow = atYEnd || contentHeight <= height;
    }
    function scrollBy(distance: real) {
        contentY = Math.max(originY, Math.min(originY + Math.max(0, contentHeight - height), contentY + distance));
        noteScroll();
    }
    function keepEnd() {
        if (follow)
            positionViewAtEnd();
    }

    onMovementEnded: noteScroll()
    onContentHeightChanged: Qt.callLater(keepEnd)
    onHeightChanged: Qt.callLater(keepEnd)
    onCountChanged: Qt.callLater(keepEnd)
    Keys.onUpPressed: scrollBy(-60)
    Keys.onDownPressed: scrollBy(60)
    Keys.onPressed: event => {
        const page = height - 60;
        if (event.key === Qt.Key_PageUp)
            scrollBy(-page);
        else if (event.key === Qt.Key_PageDown)
            scrollBy(page);
        else if (event.key === Qt.Key_End)
            scrollBy(contentHeight);
        else if (event.key === Qt.Key_Home)
            scrollBy(-contentHeight);
        else
            return;
        event.accepted = true;
    }

    // The keyboard is here, and not in one of the texts.
    Rectangle {
        parent: root
        anchors.fill: parent
        visible: root.currentItem?.activeFocus ?? false
        color: "transparent"
        radius: 8
        border.color: Theme.focus
    }
    WheelHandler {
        acceptedDevices: PointerDevice.Mouse | PointerDevice.TouchPad
        onWheel: event => root.scrollBy(event.pixelDelta.y !== 0 ? -event.pixelDelta.y : -event.angleDelta.y * .8)
    }

    delegate: MessageRow {
        width: ListView.view.width
        hasFiles: root.hasFiles
        onFileRequested: path => root.fileRequested(path)
        onResultRequested: root.resultRequested()
        onDetailsRequested: text => root.detailsRequested(text)
    }
}
