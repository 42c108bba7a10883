import QtQuick.Dialogs

/* The desktop's own dialog for a folder. */
FolderDialog {
    required property string mode
    /* Gets the address of the folder, in a list. */
    required property var take

    onAccepted: take([selectedFolder.toString()])
}
