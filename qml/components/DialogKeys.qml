pragma ComponentBehavior: Bound
import QtQml.Models
import QtQuick

/* What a dialog does by keyboard: Alt with an arrow moves it, with Shift as well makes it larger or smaller. */
QtObject {
    id: root

    required property bool enabled
    readonly property int step: 30

    signal movedBy(x: real, y: real)
    signal resizedBy(x: real, y: real)
    signal closed()

    readonly property Shortcut end: Shortcut {
        sequence: "Ctrl+W"
        enabled: root.enabled
        onActivated: root.closed()
    }
    readonly property Instantiator arrows: Instantiator {
        model: [
            { key: "Left", x: -1, y: 0 }, { key: "Right", x: 1, y: 0 }, { key: "Up", x: 0, y: -1 }, { key: "Down", x: 0, y: 1 },
        ]
        delegate: QtObject {
            id: arrow
            required property var modelData
            readonly property list<Shortcut> keys: [
                Shortcut {
                    sequence: "Alt+" + arrow.modelData.key
                    enabled: root.enabled
                    onActivated: root.movedBy(arrow.modelData.x * root.step, arrow.modelData.y * root.step)
                },
                Shortcut {
                    sequence: "Alt+Shift+" + arrow.modelData.key
                    enabled: root.enabled
                    onActivated: root.resizedBy(arrow.modelData.x * root.step, arrow.modelData.y * root.step)
                }
            ]
        }
    }
}
