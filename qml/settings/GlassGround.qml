pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Effects
import Vesk

/* The ground of a dialog: what lay behind it when it opened, blurred. Where nothing can be blurred it is opaque: what
   shines through unblurred only disturbs. */
Rectangle {
    id: root

    property Item backdropItem: null
    property point place: Qt.point(0, 0)
    /* Not known before the dialog is first shown. */
    readonly property bool canBlur: GraphicsInfo.api !== GraphicsInfo.Unknown && GraphicsInfo.api !== GraphicsInfo.Software
    readonly property bool blurs: Theme.glass && backdropItem !== null && canBlur

    function refresh() {
        if (blurs)
            (snapshots.item as ShaderEffectSource)?.scheduleUpdate();
    }

    radius: 22
    color: Theme.settings
    border.color: Theme.dialogBorder

    Shadow {}
    Loader {
        id: snapshots
        active: root.blurs
        anchors.fill: parent
        sourceComponent: ShaderEffectSource {
            id: snapshot
            sourceItem: root.backdropItem
            sourceRect: Qt.rect(root.place.x, root.place.y, root.width, root.height)
            live: false
            visible: false
        }
    }
    Rectangle {
        id: rounding
        anchors.fill: parent
        radius: root.radius
        visible: false
        layer.enabled: root.blurs
    }
    MultiEffect {
        anchors.fill: parent
        visible: root.blurs
        source: snapshots.item as Item
        blurEnabled: true
        blur: 1
        blurMax: 48
        autoPaddingEnabled: false // nothing of it beside the dialog
        maskEnabled: true
        maskSource: rounding
    }
    Rectangle {
        anchors.fill: parent
        radius: root.radius
        color: Theme.settingsVeil
        border.color: root.border.color
    }
}
