import QtQuick.Dialogs

/* The desktop's own dialog for files that are there, or for one that is to be. */
FileDialog {
    /* "files" or "save". */
    required property string mode
    /* Gets the addresses of what was chosen. */
    required property var take

    fileMode: mode === "save" ? FileDialog.SaveFile : FileDialog.OpenFiles
    defaultSuffix: mode === "save" && selectedNameFilter.index === 0 ? selectedNameFilter.extensions[0] : ""
    onAccepted: take((mode === "save" ? [selectedFile] : selectedFiles).map(file => file.toString()))
}
