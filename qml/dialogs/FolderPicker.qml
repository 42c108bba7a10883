import QtQuick.Dialogs

/* The desktop's own dialog for a folder. */
FolderDialog {
    required property string mode

    /* The address of the folder, in a list. */
    signal taken(var addresses)

    onAccepted: taken([selectedFolder.toString()])
}
