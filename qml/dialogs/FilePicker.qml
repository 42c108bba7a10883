import QtQuick.Dialogs

/* The desktop's own dialog for files that are there, or for one that is to be. */
FileDialog {
    /* "files" or "save". */
    required property string mode

    /* The addresses of what was chosen. */
    signal taken(var addresses)

    fileMode: mode === "save" ? FileDialog.SaveFile : FileDialog.OpenFiles
    defaultSuffix: mode === "save" && selectedNameFilter.index === 0 ? selectedNameFilter.extensions[0] : ""
    onAccepted: taken((mode === "save" ? [selectedFile] : selectedFiles).map(file => file.toString()))
}
