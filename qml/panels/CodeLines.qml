pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Basic
import Vesk
import "../Wording.js" as Wording

/* The lines of a file with their numbers; whole lines are chosen and copied. */
PaneList {
    id: root

    required property CodeView view
    property real shift: 0
    property int anchor: -1
    readonly property int numberWidth: Math.ceil(metrics.advanceWidth("0") * Math.max(3, String(count).length)) + 8
    readonly property real reach: view.prose ? 0 : Math.max(0, view.longest * metrics.advanceWidth("0") - (width - numberWidth - 24))
    readonly property int from: Math.min(anchor < 0 ? currentIndex : anchor, currentIndex)
    readonly property int to: Math.max(anchor < 0 ? currentIndex : anchor, currentIndex)

    function slide(by: real) {
        shift = Math.max(0, Math.min(reach, shift + by));
    }
    function choose(row: int, extend: bool) {
        if (row < 0)
            return;
        const begin = anchor < 0 ? currentIndex : anchor;
        currentIndex = row;
        anchor = extend && begin >= 0 ? begin : row;
    }
    function copyChosen() {
        if (from >= 0)
            view.copy(from, to);
    }

    spacing: 0
    bottomMargin: reach > 0 ? 8 : 0 // the bar covers no line
    reuseItems: true
    model: view
    keyNavigationEnabled: false
    Keys.onUpPressed: event => choose(Math.max(0, currentIndex - 1), event.modifiers & Qt.ShiftModifier)
    Keys.onDownPressed: event => choose(Math.min(count - 1, currentIndex + 1), event.modifiers & Qt.ShiftModifier)
    Keys.onLeftPressed: slide(-80)
    Keys.onRightPressed: slide(80)
    Keys.onPressed: event => {
        const page = Math.max(1, Math.floor(height / Theme.px(20)) - 1);
        const extend = event.modifiers & Qt.ShiftModifier;
        event.accepted = true;
        if (event.matches(StandardKey.Copy)) {
            copyChosen();
        } else if (event.matches(StandardKey.SelectAll)) {
            anchor = 0;
            currentIndex = count - 1;
        } else if (event.key === Qt.Key_PageUp || event.key === Qt.Key_PageDown) {
            choose(Math.max(0, Math.min(count - 1, currentIndex + (event.key === Qt.Key_PageUp ? -page : page))), extend);
        } else if (event.key === Qt.Key_Home || event.key === Qt.Key_End) {
            choose(event.key === Qt.Key_Home ? 0 : count - 1, extend);
        } else {
            event.accepted = false;
        }
    }
    onReachChanged: slide(0)

    Connections {
        target: root.view
        function onModelReset() {
            root.currentIndex = -1;
            root.anchor = -1;
            root.shift = 0;
        }
    }
    FontMetrics {
        id: metrics
        font.family: Theme.codeFamily
        font.pixelSize: Theme.small
    }
    /* Not attached: the rows stay where they are, only their texts slide. */
    ThinBar {
        parent: root
        anchors { left: parent.left; right: parent.right; bottom: parent.bottom }
        orientation: Qt.Horizontal
        policy: root.reach > 0 ? ScrollBar.AlwaysOn : ScrollBar.AlwaysOff
        size: root.width / (root.width + root.reach)
        position: root.shift / (root.width + root.reach)
        onPositionChanged: if (pressed) root.shift = position * (root.width + root.reach)
    }
    WheelHandler {
        acceptedModifiers: Qt.ShiftModifier
        onWheel: event => root.slide(-(event.angleDelta.y || event.angleDelta.x))
    }
    WheelHandler {
        orientation: Qt.Horizontal
        onWheel: event => root.slide(-event.angleDelta.x)
    }
    delegate: Rectangle {
        id: row
        required property int index
        required property int number
        required property string line

        width: ListView.view.width
        height: Math.max(Theme.px(20), words.wrapMode === Text.NoWrap ? 0 : words.implicitHeight + 4)
        clip: true
        color: index >= root.from && index <= root.to ? Theme.rowSelected : "transparent"
        border.width: root.activeFocus && ListView.isCurrentItem ? 1 : 0
        border.color: Theme.focus
        Accessible.role: Accessible.ListItem
        Accessible.name: "Строка " + number + ": " + Wording.plain(line)
        Accessible.selectable: true
        Accessible.selected: index >= root.from && index <= root.to

        TapHandler {
            id: tap
            onTapped: {
                root.forceActiveFocus(Qt.MouseFocusReason);
                root.choose(row.index, tap.point.modifiers & Qt.ShiftModifier);
            }
        }
        Text {
            width: root.numberWidth
            height: Theme.px(20)
            text: row.number
            textFormat: Text.PlainText
            horizontalAlignment: Text.AlignRight
            verticalAlignment: Text.AlignVCenter
            font: metrics.font
            color: Theme.textNote
        }
        Item {
            x: root.numberWidth + 12
            width: parent.width - x
            height: parent.height
            clip: true

            Text {
                id: words
                x: -root.shift
                width: root.view.prose ? parent.width : implicitWidth
                height: parent.height
                wrapMode: root.view.prose ? Text.Wrap : Text.NoWrap
                text: row.line
                textFormat: Text.StyledText // escaped by the model
                verticalAlignment: Text.AlignVCenter
                font.family: Theme.codeFamily
                font.pixelSize: Theme.small
                font.features: ({ calt: 0, liga: 0 }) // code is shown sign by sign
                color: Theme.textCode
            }
        }
    }
}
