pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Basic
import Vesk

/* A record to be read: names with their values beside them, {label, text, raw}. What a program wrote (`raw`) stands
   below its name in signs of one width, as it is. */
ListView {
    id: root

    required property list<var> fields
    property string name: ""
    /* Has the focus without showing it. */
    property bool quiet: false
    readonly property int nameWidth: Theme.px(150)
    /* A value beyond this is shown in its beginning: laying out a megabyte would stop the window. */
    readonly property int longest: 20000

    function scrollTo(y: real) {
        contentY = Math.max(originY, Math.min(originY + Math.max(0, contentHeight - height), y));
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
    ScrollBar.vertical: ThinBar {}
    Keys.onUpPressed: scrollTo(contentY - 60)
    Keys.onDownPressed: scrollTo(contentY + 60)
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
    delegate: Item {
        id: field
        required property var modelData
        readonly property bool raw: modelData.raw ?? false
        readonly property bool beside: !raw && modelData.label !== ""
        readonly property int inset: raw ? 10 : 0
        readonly property string whole: modelData.text
        width: ListView.view.width - 12
        height: Math.max(label.visible ? label.y + label.height : 0, ground.y + ground.height)
        Accessible.role: Accessible.ListItem
        Accessible.name: (modelData.label === "" ? "" : modelData.label + ": ") + whole.slice(0, 1000)

        Note {
            id: label
            x: 8
            y: 2
            visible: text !== ""
            width: field.beside ? root.nameWidth : parent.width - 8
            text: field.modelData.label
        }
        Rectangle {
            id: ground
            x: field.beside ? root.nameWidth + 20 : 8
            y: field.raw && label.visible ? label.height + 6 : 0
            width: parent.width - x
            height: value.height + 2 * field.inset
            radius: 8
            color: field.raw ? Theme.code : "transparent"

            TextEdit {
                id: value
                objectName: "fieldValue"
                x: field.inset
                y: field.inset
                width: parent.width - 2 * field.inset
                text: field.whole.length > root.longest ? field.whole.slice(0, root.longest) + "…" : field.whole
                textFormat: TextEdit.PlainText
                readOnly: true
                selectByMouse: true
                wrapMode: field.raw ? TextEdit.WrapAnywhere : TextEdit.Wrap
                color: field.raw ? Theme.textCode : Theme.textMessage
                selectionColor: Theme.dotOn
                selectedTextColor: Theme.window
                font.family: field.raw ? Theme.codeFamily : Theme.family
                font.pixelSize: field.raw ? Theme.small : Theme.body
                Accessible.ignored: true
            }
        }
    }
}
