import QtQuick
import QtQuick.Controls.Basic
import Vesk

/* A dialog that can be moved by its header and resized by its corner; the window beneath stays usable. */
Dialog {
    id: root

    readonly property Item room: Overlay.overlay

    parent: Overlay.overlay
    padding: 16
    focus: true
    closePolicy: Popup.CloseOnEscape
    onAboutToShow: if (!raising) centre()

    property bool moved: false
    property bool raising: false

    function centre() {
        if (!room)
            return;
        moved = false;
        x = Math.round((room.width - width) / 2);
        y = Math.round((room.height - height) / 2);
    }
    /* Before the other dialogs: the one opened last stands in front. */
    function raise() {
        if (!visible)
            return;
        raising = true;
        close();
        open();
        raising = false;
    }
    function fit() {
        if (width > room.width - 20)
            width = room.width - 20;
        if (height > room.height - 20)
            height = room.height - 20;
        if (!moved)
            return centre();
        x = Math.max(0, Math.min(x, room.width - width));
        y = Math.max(0, Math.min(y, room.height - height));
    }

    Connections {
        target: root.room
        enabled: root.visible
        function onWidthChanged() { root.fit(); }
        function onHeightChanged() { root.fit(); }
    }
    /* Also when the focus has gone to the window beneath. */
    Shortcut {
        sequence: "Escape"
        enabled: root.visible && !root.activeFocus
        onActivated: root.close()
        onActivatedAmbiguously: root.close()
    }

    background: Rectangle {
        color: Theme.dialog
        radius: 20
        border.color: Theme.dialogBorder
    }
    header: Item {
        implicitHeight: 58

        MouseArea {
            property point start

            objectName: "dialogHeader"
            anchors.fill: parent
            cursorShape: Qt.OpenHandCursor
            onPressed: mouse => start = Qt.point(mouse.x, mouse.y)
            onPositionChanged: mouse => {
                root.moved = true;
                root.x = Math.max(40 - root.width, Math.min(root.room.width - 40, root.x + mouse.x - start.x));
                root.y = Math.max(0, Math.min(root.room.height - 40, root.y + mouse.y - start.y));
            }
        }
        LabelText {
            anchors { left: parent.left; right: closeButton.left; verticalCenter: parent.verticalCenter; margins: 16 }
            text: root.title
            wrapMode: Text.NoWrap
            elide: Text.ElideRight
            font.weight: Font.DemiBold
        }
        IconAction {
            id: closeButton
            objectName: "dialogClose"
            anchors { right: parent.right; verticalCenter: parent.verticalCenter; rightMargin: 16 }
            text: "×"
            Accessible.name: "Закрыть"
            onClicked: root.close()
        }
    }
    footer: Item {
        implicitHeight: 16

        Rectangle {
            anchors { right: parent.right; bottom: parent.bottom; margins: 4 }
            width: 12
            height: 12
            radius: 4
            color: Theme.grip

            MouseArea {
                property point start

                objectName: "dialogGrip"
                anchors.fill: parent
                anchors.margins: -4
                cursorShape: Qt.SizeFDiagCursor
                onPressed: mouse => start = Qt.point(mouse.x, mouse.y)
                onPositionChanged: mouse => {
                    root.width = Math.max(380, Math.min(root.room.width - 20, root.width + mouse.x - start.x));
                    root.height = Math.max(200, Math.min(root.room.height - 20, root.height + mouse.y - start.y));
                }
            }
        }
    }
}
