import QtQuick
import QtQuick.Layouts
import Vesk

/* A side column that slides in and out. Its content keeps its width meanwhile, so nothing in it is laid out anew. */
Item {
    id: root

    required property bool open
    required property real contentWidth
    /* The user is changing the width: it follows at once. */
    property bool dragged: false

    visible: Layout.preferredWidth > 0
    clip: Layout.preferredWidth < contentWidth
    Layout.preferredWidth: open ? contentWidth : 0
    Behavior on Layout.preferredWidth {
        enabled: !root.dragged
        NumberAnimation { duration: Theme.slide; easing.type: Easing.OutCubic }
    }
}
