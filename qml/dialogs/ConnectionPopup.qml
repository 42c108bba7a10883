import QtQuick
import QtQuick.Controls.Basic
import Vesk

/* The compact connection form in the middle of the window. */
Popup {
    id: root

    required property Backend service

    objectName: "connection"
    parent: Overlay.overlay
    anchors.centerIn: parent
    width: Math.min(Theme.px(420), (parent?.width ?? 420) - 40)
    padding: 24
    focus: true
    dim: true
    Overlay.modeless: Dim {}
    closePolicy: Popup.CloseOnEscape | Popup.CloseOnPressOutside
    background: Rectangle {
        color: Theme.popup
        radius: 20
        border.color: Theme.cardBorder
        Shadow {}
    }
    contentItem: MainApi { service: root.service }
    Component.onCompleted: contentItem.parent.Accessible.name = "Подключение модели"

    TabKeys { ground: root.contentItem.parent }
}
