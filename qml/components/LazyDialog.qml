import QtQuick
import Vesk

/* A dialog that is made when it is first needed: starting the window doesn't wait for it. */
Loader {
    active: false

    readonly property var dialog: item

    function show(): var {
        active = true;
        return dialog;
    }
    function hide() {
        if (dialog)
            dialog.close();
    }
}
