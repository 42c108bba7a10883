import QtQuick
import Vesk

/* What lies over the window while a dialog is open. */
Rectangle {
    color: Theme.dim
    Behavior on opacity { NumberAnimation { duration: Theme.fade } }
}
