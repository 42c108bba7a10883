import QtQuick
import Vesk

/* The shadow of what lies over the window: a picture, since software rendering has no effects. */
BorderImage {
    anchors { fill: parent; margins: -40; topMargin: -36; bottomMargin: -44 }
    z: -2
    source: "qrc:/assets/shadow.png"
    border { left: 63; top: 63; right: 63; bottom: 63 }
    opacity: Theme.shadow
}
