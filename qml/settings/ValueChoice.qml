import QtQuick
import Vesk

/* One of a list of records, by its id. The list may be replaced at any time: what is shown stays `value`. */
Choice {
    id: root

    property string value: ""

    signal picked(string value)

    function follow() {
        currentIndex = indexOfValue(value);
    }

    textRole: "name"
    valueRole: "id"
    onValueChanged: follow()
    onModelChanged: follow()
    Component.onCompleted: follow()
    onActivated: {
        picked(currentValue);
        follow();
    }
}
