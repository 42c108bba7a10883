import QtQuick
import Vesk

/* The line between two forms. */
Rectangle {
    implicitHeight: 1
    color: Theme.softButtonBorder
}
