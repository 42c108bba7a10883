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
    dim: true
    Overlay.modal: Dim {}
    Overlay.modeless: Dim {}
    onAboutToShow: {
        if (!raising)
            centre();
        byKeyboard = room?.Window.activeFocusItem?.visualFocus ?? false; // qmllint disable missing-property
    }
    onVisibleChanged: if (visible && !raising) focusFirst()

    /* What the grip leaves of it, and how far it keeps from the edges. */
    property int leastWidth: 380
    property int leastHeight: 200
    property int edge: 20
    property bool moved: false
    property bool raising: false
    /* Has the focus at first; null: the first control of the content. */
    property Item first: null
    property bool byKeyboard: false

    function focusFirst() {
        const item = first ?? contentItem.nextItemInFocusChain(true);
        item.forceActiveFocus(byKeyboard ? Qt.TabFocusReason : Qt.PopupFocusReason);
        // Who works by mouse has no use for a frame round the first list.
        if (item instanceof PaneList || item instanceof FieldList)
            item.quiet = !byKeyboard; // qmllint disable missing-property
    }

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
    /* As far as it can be caught again. */
    function moveBy(dx: real, dy: real) {
        moved = true;
        x = Math.max(40 - width, Math.min(room.width - 40, x + dx));
        y = Math.max(0, Math.min(room.height - 40, y + dy));
    }
    function resizeBy(dx: real, dy: real) {
        width = Math.max(leastWidth, Math.min(room.width - edge, width + dx));
        height = Math.max(leastHeight, Math.min(room.height - edge, height + dy));
    }
    function fit() {
        if (width > room.width - edge)
            width = room.width - edge;
        if (height > room.height - edge)
            height = room.height - edge;
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
    TabKeys { ground: root.contentItem.parent }
    DialogKeys {
        enabled: root.visible
        onMovedBy: (x, y) => root.moveBy(x, y)
        onResizedBy: (x, y) => root.resizeBy(x, y)
        onClosed: root.close()
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

        Shadow {}
        /* Words of the window that shine through glass can be mistaken for the dialog's. */
        Rectangle {
            anchors.fill: parent
            z: -1
            radius: parent.radius
            color: Theme.dialogGround
        }
    }
    header: Item {
        implicitHeight: 58

        DialogMover {
            objectName: "dialogHeader"
            anchors.fill: parent
            onDraggedBy: (x, y) => root.moveBy(x, y)
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
    footer: DialogGrip {
        onDraggedBy: (x, y) => root.resizeBy(x, y)
    }
}
