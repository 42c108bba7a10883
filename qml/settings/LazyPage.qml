import QtQuick

/* A page that is made when it is first shown, and keeps what was typed from then on. */
Loader {
    required property bool current

    active: false
    onCurrentChanged: if (current) active = true
    Component.onCompleted: if (current) active = true
}
