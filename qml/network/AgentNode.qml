pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Basic
import Vesk

/* One agent in the picture of the team: a face that is lit while it works, with its name below. */
Control {
    id: root

    /* The picture; by its type the two would need each other. */
    required property var network
    property string role: ""
    property string label: ""
    property bool custom: false
    property real labelWidth: 0
    readonly property bool active: network.active(role)
    readonly property bool waiting: network.waiting(role)
    readonly property bool selected: network.selectedRole === role
    readonly property string condition: network.stateText(role)
    readonly property string goesTo: network.destinations(role)

    signal arrowPressed(int dx, int dy)
    signal menuRequested()

    objectName: role
    width: 80
    height: 66
    padding: 0
    focusPolicy: Qt.TabFocus
    opacity: network.profile(role).enabled ?? true ? 1 : .35
    Accessible.role: Accessible.Button
    Accessible.name: label + ", " + condition + (goesTo === "" ? "" : ", передаёт: " + goesTo)
    Accessible.description: network.noteText(role)
    Accessible.selected: selected
    Accessible.onPressAction: network.pick(role)

    onVisualFocusChanged: if (visualFocus) network.revealed(y, y + height)
    Keys.onLeftPressed: arrowPressed(-1, 0)
    Keys.onRightPressed: arrowPressed(1, 0)
    Keys.onUpPressed: arrowPressed(0, -1)
    Keys.onDownPressed: arrowPressed(0, 1)
    Keys.onReturnPressed: network.pick(role)
    Keys.onEnterPressed: network.pick(role)
    Keys.onSpacePressed: network.pick(role)
    Keys.onMenuPressed: menuRequested()
    Keys.onDeletePressed: event => {
        event.accepted = custom;
        if (custom)
            network.remove(role);
    }
    Keys.onEscapePressed: event => {
        event.accepted = network.connecting !== "";
        network.connecting = "";
    }
    Keys.onPressed: event => {
        event.accepted = event.key === Qt.Key_F2 || event.key === Qt.Key_F10 && event.modifiers & Qt.ShiftModifier;
        if (event.key === Qt.Key_F2)
            network.configure(role);
        else if (event.accepted)
            menuRequested();
    }

    Rectangle {
        id: face
        anchors.horizontalCenter: parent.horizontalCenter
        width: 34
        height: 34
        radius: 11
        color: root.active ? Theme.nodeLive : Theme.nodeIdle
        border.color: root.selected ? Theme.textStrong : Theme.face
        scale: root.network.hoveredRole === root.role ? 1.12 : 1
        Behavior on color { ColorAnimation { duration: root.network.animated ? 220 : 0 } }
        Behavior on scale { NumberAnimation { duration: root.network.animated ? 160 : 0 } }

        Row {
            anchors.centerIn: parent
            spacing: 5
            Repeater {
                model: 2
                Rectangle {
                    width: 4
                    height: 4
                    radius: 2
                    color: root.active ? Theme.nodeEyesLive : Theme.nodeEyes
                }
            }
        }
        /* One that is to begin next is lit by half. */
        Rectangle {
            objectName: "waitingRing"
            anchors.fill: parent
            anchors.margins: 3
            radius: 8
            color: "transparent"
            border.color: Theme.nodeHalo
            visible: root.waiting
        }
        /* The halo of one at work. */
        Rectangle {
            anchors.fill: parent
            anchors.margins: -4
            radius: 15
            color: "transparent"
            border.color: Theme.nodeHalo
            opacity: root.active ? 1 - root.network.pulse : 0
        }
        Rectangle {
            anchors.fill: parent
            anchors.margins: -3
            radius: 14
            color: "transparent"
            border.width: 2
            border.color: Theme.focus
            visible: root.visualFocus
        }
    }
    /* No wire goes through the words. */
    Rectangle {
        anchors.centerIn: name
        visible: name.visible
        width: name.contentWidth + 6
        height: name.contentHeight
        radius: 4
        color: Theme.nodeGround
        opacity: .9
    }
    Text {
        id: name
        objectName: "nodeLabel"
        anchors { top: face.bottom; topMargin: 5; horizontalCenter: parent.horizontalCenter }
        visible: root.labelWidth > 0
        width: root.labelWidth
        text: root.label
        textFormat: Text.PlainText
        horizontalAlignment: Text.AlignHCenter
        elide: Text.ElideRight
        color: Theme.nodeLabel
        font.family: Theme.family
        font.pixelSize: Theme.small
    }
    TapHandler {
        acceptedButtons: Qt.RightButton
        onTapped: root.menuRequested()
    }
    MouseArea {
        id: mouse

        property point start
        property bool moved: false

        anchors.fill: parent
        hoverEnabled: true
        preventStealing: true
        cursorShape: Qt.PointingHandCursor
        onEntered: root.network.hoveredRole = root.role
        onExited: {
            if (root.network.hoveredRole === root.role)
                root.network.hoveredRole = "";
        }
        onPressed: event => {
            root.forceActiveFocus(Qt.MouseFocusReason);
            start = mapToItem(root.network, event.x, event.y);
            moved = false;
        }
        onPositionChanged: event => {
            if (!pressed)
                return;
            const at = mapToItem(root.network, event.x, event.y);
            moved = moved || Math.abs(at.x - start.x) + Math.abs(at.y - start.y) >= 5;
            if (moved)
                root.network.drag(root.role, at);
        }
        onReleased: if (moved) root.network.drop(true)
        onCanceled: root.network.drop(false)
        onClicked: if (!moved) root.network.pick(root.role)
        onDoubleClicked: root.network.configure(root.role)
    }
    Loader {
        active: mouse.containsMouse || root.visualFocus
        sourceComponent: Tip {
            parent: root
            delay: 700
            width: Math.min(implicitWidth, Theme.px(280))
            text: root.condition + " · " + root.network.noteText(root.role).slice(0, 130)
            visible: (mouse.containsMouse || root.visualFocus) && !mouse.pressed
        }
    }
}
