import QtQuick
import Vesk

/* A name with its value beside it, or, if a program wrote that, below. */
Item {
    id: root

    required property var modelData
    required property int nameWidth
    /* A value beyond this is shown in its beginning: laying out a megabyte would stop the window. */
    readonly property int longest: 20000
    readonly property bool raw: modelData.raw ?? false
    readonly property bool beside: !raw && modelData.label !== ""
    readonly property int inset: raw ? 10 : 0
    readonly property string whole: modelData.text

    /* Of the value while it is read by keyboard. */
    signal cursorMoved(real top, real bottom)
    signal cursorLeft(int step)
    signal tabPressed(bool forward)

    function read(atEnd: bool) {
        value.read(atEnd);
    }

    function leave() {
        value.focus = false;
    }

    height: Math.max(label.visible ? label.y + label.height : 0, ground.y + ground.height)
    Accessible.role: Accessible.ListItem
    Accessible.name: (modelData.label === "" ? "" : modelData.label + ": ") + whole.slice(0, 1000)
    Accessible.onPressAction: read(false)

    Note {
        id: label
        x: 8
        y: 2
        visible: text !== ""
        width: root.beside ? root.nameWidth : parent.width - 8
        text: root.modelData.label
    }
    Rectangle {
        id: ground
        x: root.beside ? root.nameWidth + 20 : 8
        y: root.raw && label.visible ? label.height + 6 : 0
        width: parent.width - x
        height: value.height + 2 * root.inset
        radius: 8
        color: root.raw ? Theme.code : "transparent"

        ReadText {
            id: value
            objectName: "fieldValue"
            x: root.inset
            y: root.inset
            width: parent.width - 2 * root.inset
            text: root.whole.length > root.longest ? root.whole.slice(0, root.longest) + "…" : root.whole
            wrapMode: root.raw ? TextEdit.WrapAnywhere : TextEdit.Wrap
            color: root.raw ? Theme.textCode : Theme.textMessage
            font.family: root.raw ? Theme.codeFamily : Theme.family
            font.pixelSize: root.raw ? Theme.small : Theme.body
            Accessible.ignored: !activeFocus
            Accessible.name: label.text
            onCursorMoved: (top, bottom) => root.cursorMoved(ground.y + y + top, ground.y + y + bottom)
            onCursorLeft: step => root.cursorLeft(step)
            onTabPressed: forward => root.tabPressed(forward)
        }
    }
}
