import QtQuick
import Vesk

/* A line about what is going on, which a screen reader is told as it changes. */
LabelText {
    id: root

    function tell() {
        if (root.text !== "" && visible)
            Accessible.announce(root.text);
    }

    onTextChanged: Qt.callLater(tell) // what is around it may come into view by the same change
}
