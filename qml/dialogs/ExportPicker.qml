import QtQuick.Dialogs
import Vesk

FileDialog {
    required property Backend service
    property string checkpoint: ""

    objectName: "exportPicker"
    title: "Сохранить как…"
    fileMode: FileDialog.SaveFile
    nameFilters: ["Архив (*.zip)", "Папка (*)"]
    defaultSuffix: selectedNameFilter.index === 0 ? "zip" : ""
    onAccepted: service.exportFiles(selectedFile.toString(), checkpoint)
}
