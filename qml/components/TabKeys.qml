import QtQuick

/* Tab and Shift+Tab within a part of the window: round and round, whatever it lies over. What gets the focus comes into
   view. Qt lets the shortcuts of the topmost popup through alone, so that each popup has its own. */
QtObject {
    id: root

    required property Item ground
    readonly property TabOrder order: TabOrder {
        id: order
    }
    readonly property list<Shortcut> keys: [
        Shortcut {
            sequence: "Tab"
            enabled: root.ground.visible
            onActivated: order.step(root.ground, true)
        },
        Shortcut {
            sequence: "Shift+Tab" // beside "Backtab", which a real keyboard sends, it would be ambiguous
            enabled: root.ground.visible
            onActivated: order.step(root.ground, false)
        }
    ]
}
