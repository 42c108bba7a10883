import QtQuick
import QtQuick.Controls.Basic
import Vesk

/* Renames a conversation in its place. */
Popup {
    id: root

    required property Backend service
    required property string task
    required property string draft

    objectName: "renameBox"
    parent: Overlay.overlay
    padding: 6
    focus: true
    onAboutToShow: {
        editor.text = draft;
        editor.select(editor.length, 0); // from the end, so that the beginning is in sight
        editor.forceActiveFocus();
    }
    background: Rectangle {
        color: Theme.menu
        radius: 8
        border.color: Theme.grip
    }
    Component.onCompleted: contentItem.parent.Accessible.name = editor.placeholderText

    TabKeys { ground: root.contentItem.parent }

    contentItem: Entry {
        id: editor
        objectName: "renameEditor"
        maximumLength: 120
        placeholderText: "Название диалога"
        onAccepted: {
            if (text.trim() === "")
                return;
            root.service.renameTask(root.task, text);
            if (root.service.message === "")
                root.close();
        }
    }
}
