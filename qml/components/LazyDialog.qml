import QtQuick

/* A dialog that is made when it is first needed: starting the window doesn't wait for it. */
Loader {
    active: false

    readonly property var dialog: item

    /* With a file, even its type and what that imports are loaded only then. */
    property url file: ""
    property var settings: ({})

    function show(): var {
        if (file != "" && !active)
            setSource(file, settings);
        active = true;
        if (typeof dialog.raise === "function")
            dialog.raise();
        return dialog;
    }
    function hide() {
        if (dialog)
            dialog.close();
    }
}
