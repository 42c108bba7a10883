pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Basic
import Vesk

/* A record to be read: names with their values beside them, {label, text, raw}. What a program wrote (`raw`) stands
   below its name in signs of one width, as it is. By keyboard, Enter goes into the first value in view, arrows on from
   there into its neighbours, Escape back to scrolling. */
ListView {
    id: root

    required property list<var> fields
    property string name: ""
    /* Has the focus without showing it. */
    property bool quiet: false
    readonly property int nameWidth: Theme.px(150)

    function scrollTo(y: real) {
        contentY = Math.max(originY, Math.min(originY + Math.max(0, contentHeight - height), y));
    }
    function keepInView(top: real, bottom: real) {
        if (top < contentY)
            scrollTo(top);
        else if (bottom > contentY + height)
            scrollTo(bottom - height);
    }
    function read(place: int, atEnd: bool) {
        positionViewAtIndex(place, ListView.Contain);
        (itemAtIndex(place) as FieldRow)?.read(atEnd);
    }
    function readFirst() {
        // Between two rows, and above the first, there is none.
        const places = [1, spacing + 1].map(below => indexAt(0, contentY + below));
        read(places.find(place => place >= 0) ?? 0, false);
    }
    function leaveText(from: int, step: int) {
        if (step === 0) {
            (itemAtIndex(from) as FieldRow).leave(); // or it would have the focus in the list again
            forceActiveFocus(Qt.TabFocusReason);
        } else if (from + step >= 0 && from + step < count) {
            read(from + step, step < 0);
        }
    }
    function copyAll() {
        copier.text = fields.map(field => (field.label && field.label + ": ") + field.text).join("\n");
        copier.selectAll();
        copier.copy();
    }

    model: fields
    clip: true
    spacing: 12
    header: Item { implicitHeight: 8 }
    footer: Item { implicitHeight: 8 }
    boundsBehavior: Flickable.StopAtBounds
    activeFocusOnTab: true
    onActiveFocusChanged: if (!activeFocus) quiet = false
    Accessible.role: Accessible.List
    Accessible.name: name
    Accessible.description: "Enter — читать и выделять, Escape — обратно к списку"
    ScrollBar.vertical: ThinBar {}
    Keys.onUpPressed: scrollTo(contentY - 60)
    Keys.onDownPressed: scrollTo(contentY + 60)
    Keys.onReturnPressed: if (count > 0) readFirst()
    Keys.onEnterPressed: if (count > 0) readFirst()
    Keys.onPressed: event => {
        if (event.matches(StandardKey.Copy))
            copyAll();
        const places = {
            [Qt.Key_PageUp]: contentY - height + 60,
            [Qt.Key_PageDown]: contentY + height - 60,
            [Qt.Key_Home]: originY,
            [Qt.Key_End]: originY + contentHeight
        };
        event.accepted = event.key in places;
        if (event.accepted)
            scrollTo(places[event.key]);
    }

    TabOrder { id: order }
    TextEdit {
        id: copier
        visible: false
        Accessible.ignored: true
    }
    Rectangle {
        parent: root
        anchors.fill: parent
        visible: root.activeFocus && !root.quiet
        color: "transparent"
        radius: 8
        border.color: Theme.focus
    }
    delegate: FieldRow {
        required property int index
        width: ListView.view.width - 12
        nameWidth: root.nameWidth
        onCursorMoved: (top, bottom) => root.keepInView(y + top, y + bottom)
        onCursorLeft: step => root.leaveText(index, step)
        onTabPressed: forward => order.leave(root, forward)
    }
}
