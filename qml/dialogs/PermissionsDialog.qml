pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Layouts
import Vesk

/* The commands that a run asks leave for. */
FloatingDialog {
    id: root

    required property Backend service
    required property list<var> pending
    readonly property bool single: pending.length === 1

    objectName: "permissions"
    title: "Разрешить команду?"
    width: Math.min(Theme.px(650), (parent?.width ?? 650) - edge)
    height: Math.min(Theme.px(430), (parent?.height ?? 430) - edge)

    function decide(item: string, allow: bool) {
        service.approve(item, allow);
        close();
    }

    contentItem: ColumnLayout {
        spacing: 12
        SettingsScroll {
            id: requests
            rightPadding: root.single ? 0 : 14
            Layout.fillWidth: true
            Layout.fillHeight: true

            Column {
                width: requests.availableWidth
                spacing: 20
                Repeater {
                    model: root.pending
                    PermissionRequest {
                        required property var modelData
                        width: parent.width
                        height: root.single ? Math.max(Theme.px(180), requests.availableHeight) : implicitHeight
                        input: modelData.node?.input ?? {}
                        closes: root.single
                        onDecided: allow => root.decide(modelData.id, allow)
                        onClosed: root.close()
                    }
                }
            }
        }
        Action {
            visible: !root.single
            text: "Закрыть"
            Layout.alignment: Qt.AlignRight
            onClicked: root.close()
        }
    }
}
