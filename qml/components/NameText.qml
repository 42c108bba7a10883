pragma ComponentBehavior: Bound
import QtQuick
import Vesk

/* A name on one line. What there is no room for is told by a tool tip. */
LabelText {
    id: root

    wrapMode: Text.NoWrap
    elide: Text.ElideRight

    HoverHandler {
        id: hover
        enabled: root.truncated
    }
    Loader {
        active: root.truncated && hover.hovered
        sourceComponent: Tip {
            parent: root
            text: root.text
            visible: true
        }
    }
}
