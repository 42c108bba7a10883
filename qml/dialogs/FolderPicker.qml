import QtQuick.Dialogs
import Vesk

FolderDialog {
    required property Backend service

    objectName: "folderPicker"
    title: "Открыть папку как проект"
    onAccepted: service.lookAtFolder(selectedFolder.toString())
}
