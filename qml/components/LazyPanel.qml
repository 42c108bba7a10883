import QtQuick

/* A panel that is made when it is first shown, and kept. */
Loader {
    required property bool shown

    active: false
    onShownChanged: if (shown) active = true
    Component.onCompleted: if (shown) active = true
}
