pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Basic
import Vesk

/* The conversation. It stays at its end until the user scrolls away from there. By keyboard, Enter goes into the last
   message in view, arrows on from there into its neighbours, Escape back to scrolling. */
ListView {
    id: root

    property bool follow: true
    /* How many messages there were when the user went up. */
    property int known: 0

    signal fileRequested(string path)
    signal resultRequested()
    signal detailsRequested(string text)
    signal proofsRequested(string mark)
    signal copyRequested()

    property bool hasFiles: false
    /* Kept free beside the messages, so that the bar covers none of them. */
    readonly property int barSpace: 10

    clip: true
    spacing: 24
    cacheBuffer: 1800
    reuseItems: true
    boundsBehavior: Flickable.StopAtBounds
    Accessible.role: Accessible.List
    Accessible.name: "Сообщения"
    ScrollBar.vertical: ThinBar { onPressedChanged: if (!pressed) root.noteScroll() }

    function noteScroll() {
        follow = atYEnd || contentHeight <= height;
    }
    function scrollBy(distance: real) {
        contentY = Math.max(originY, Math.min(originY + Math.max(0, contentHeight - height), contentY + distance));
        noteScroll();
    }
    /* A page on or back, or to an end; says whether the key does that. */
    function turn(key: int): bool {
        const page = height - 60;
        if (key === Qt.Key_PageUp || key === Qt.Key_PageDown)
            scrollBy(key === Qt.Key_PageUp ? -page : page);
        else if (key === Qt.Key_End)
            positionViewAtEnd();
        else if (key === Qt.Key_Home)
            positionViewAtBeginning();
        else
            return false;
        noteScroll();
        return true;
    }
    function keepEnd() {
        if (follow)
            positionViewAtEnd();
    }

    function read(place: int, atEnd: bool) {
        positionViewAtIndex(place, ListView.Contain);
        const row = itemAtIndex(place) as MessageRow;
        row?.read(atEnd);
        noteScroll();
    }
    function readLast() {
        // Between two messages there is none.
        const bottom = contentY + height - 1;
        const places = [indexAt(0, bottom), indexAt(0, bottom - spacing), count - 1];
        read(places.find(place => place >= 0), true);
    }
    function takeFocus() {
        keys.forceActiveFocus(Qt.TabFocusReason);
    }
    function leaveText(from: int, step: int) {
        const to = from + step;
        if (step === 0)
            takeFocus();
        else if (to >= 0 && to < count)
            read(to, step < 0);
    }
    function keepInView(top: real, bottom: real) {
        if (top < contentY)
            scrollBy(top - contentY);
        else if (bottom > contentY + height)
            scrollBy(bottom - contentY - height);
    }

    onFollowChanged: known = count
    onMovementEnded: noteScroll()
    onContentHeightChanged: Qt.callLater(keepEnd)
    onHeightChanged: Qt.callLater(keepEnd)
    onCountChanged: Qt.callLater(keepEnd)
    Keys.onUpPressed: scrollBy(-60)
    Keys.onDownPressed: scrollBy(60)
    Keys.onReturnPressed: if (count > 0) readLast()
    Keys.onEnterPressed: if (count > 0) readLast()
    Keys.onPressed: event => event.accepted = turn(event.key)

    TabOrder { id: order }
    FadeEdge {
        parent: root
        list: root
    }
    // The keyboard is here, and not in one of the texts.
    Rectangle {
        id: keys
        parent: root
        anchors.fill: parent
        focus: true
        activeFocusOnTab: true
        Accessible.role: Accessible.Pane
        Accessible.name: "Сообщения"
        Accessible.description: "Enter — читать сообщение, Escape — обратно к списку"
        border.width: activeFocus ? 1 : 0
        color: "transparent"
        radius: 8
        border.color: Theme.focus
    }
    Action {
        objectName: "toEnd"
        parent: root
        anchors { bottom: parent.bottom; bottomMargin: 8; horizontalCenter: parent.horizontalCenter }
        z: 1
        visible: !root.follow && root.originY + root.contentHeight - root.height - root.contentY > 80
        text: root.count > root.known ? "Новое · к концу" : "К концу"
        tip: "Перейти к последнему сообщению"
        onClicked: {
            root.follow = true;
            root.keepEnd();
            root.takeFocus();
        }
    }
    WheelHandler {
        acceptedDevices: PointerDevice.Mouse | PointerDevice.TouchPad
        onWheel: event => root.scrollBy(event.pixelDelta.y !== 0 ? -event.pixelDelta.y : -event.angleDelta.y * .8)
    }

    delegate: MessageRow {
        required property int index
        width: ListView.view.width - root.barSpace
        reachable: y + height > root.contentY && y + height < root.contentY + root.height + 40
        hasFiles: root.hasFiles
        onCursorMoved: (top, bottom) => root.keepInView(y + top, y + bottom)
        onCursorLeft: step => root.leaveText(index, step)
        onTabPressed: forward => order.leave(root, forward)
        onFileRequested: path => root.fileRequested(path)
        onResultRequested: root.resultRequested()
        onDetailsRequested: text => root.detailsRequested(text)
        onProofsRequested: mark => root.proofsRequested(mark)
        onCopyRequested: root.copyRequested()
    }
}
