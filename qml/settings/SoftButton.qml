pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Basic
import Vesk

/* The button of the settings. */
Button {
    id: root

    property string tip: ""
    /* While it can't be pressed Qt takes the focus away, and gives it back without the ring that shows it. */
    property bool ringed: false

    padding: 10
    leftPadding: 14
    rightPadding: 14
    hoverEnabled: true
    focusPolicy: Qt.TabFocus // by mouse, one presses it and types on
    font.pixelSize: Theme.body
    Accessible.name: text
    Accessible.description: tip
    onVisualFocusChanged: ringed = visualFocus || (ringed && !enabled)
    onEnabledChanged: if (enabled && ringed && activeFocus) focusReason = Qt.TabFocusReason
    Keys.onReturnPressed: click()
    Keys.onEnterPressed: click()

    Loader {
        active: root.tip !== "" && (root.hovered || root.visualFocus)
        sourceComponent: Tip {
            parent: root
            text: root.tip
            visible: root.hovered || root.visualFocus
        }
    }

    background: Rectangle {
        radius: 10
        color: root.down ? Theme.softButtonDown : root.hovered ? Theme.softButtonHovered : Theme.softButton
        border.width: root.visualFocus ? 2 : 1
        border.color: root.visualFocus ? Theme.focus
            : root.hovered ? Theme.softButtonBorderHovered : Theme.softButtonBorder
        Behavior on color { ColorAnimation { duration: Theme.softTint } }
    }
    contentItem: ButtonText {
        label: root.text
        font: root.font
        color: root.enabled ? Theme.softButtonText : Theme.softButtonTextDisabled
    }
}
