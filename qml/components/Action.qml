pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Basic
import Vesk

/* A button. With a `tip` it explains itself, which also names it for those who can't see its sign. */
Button {
    id: root

    property bool primary: false
    property string tip: ""
    /* A sign at the right edge. */
    property string trailing: ""
    /* Whether a long text takes several lines. */
    property bool wraps: false
    /* What is explained: what the button does, or else a name that there is no room for. */
    readonly property string told: tip || ((contentItem as ButtonText)?.truncated ? text : "")
    /* Who has pressed the button needs no explanation any more. */
    property bool explained: false
    /* While it can't be pressed Qt takes the focus away, and gives it back without the ring that shows it. */
    property bool ringed: false

    padding: 7
    leftPadding: 11
    rightPadding: 11
    font.pixelSize: Theme.body
    hoverEnabled: true
    focusPolicy: Qt.TabFocus // by mouse, one presses it and types on
    scale: down ? .97 : 1
    Accessible.name: tip || text.replace(/^\+ +| +↗$/g, "")
    onPressed: explained = true
    onHoveredChanged: explained = explained && hovered
    onVisualFocusChanged: {
        explained = false;
        ringed = visualFocus || (ringed && !enabled);
    }
    onEnabledChanged: if (enabled && ringed && activeFocus) focusReason = Qt.TabFocusReason
    Keys.onReturnPressed: click()
    Keys.onEnterPressed: click()

    Loader {
        active: root.told !== "" && (root.hovered || root.visualFocus)
        sourceComponent: Tip {
            parent: root
            text: root.told
            visible: (root.hovered || root.visualFocus) && !root.explained
        }
    }

    Behavior on scale { NumberAnimation { duration: Theme.press } }

    background: Rectangle {
        radius: 8
        color: !root.enabled ? Theme.buttonDisabled
            : root.primary ? Theme.buttonPrimary : root.hovered || root.checked ? Theme.buttonHovered
            : root.flat ? "transparent" : Theme.button
        border.width: root.visualFocus ? 2 : root.primary || root.flat && !root.hovered ? 0 : 1
        border.color: root.visualFocus ? (root.primary && root.enabled ? Theme.dotIdle : Theme.focus)
            : Theme.buttonBorder
        Behavior on color { ColorAnimation { duration: Theme.tint } }
    }
    contentItem: ButtonText {
        label: root.text
        trailing: root.trailing
        wraps: root.wraps
        font: root.font
        color: !root.enabled ? Theme.buttonTextDisabled : root.primary ? Theme.buttonTextPrimary : Theme.buttonText
    }
}
