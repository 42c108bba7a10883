pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Vesk

/* The servers of the project that wait for a word, each in full. */
FloatingDialog {
    id: root

    required property Backend service

    objectName: "mcpRequests"
    title: "Подключить сервер проекта?"
    width: Math.min(Theme.px(650), (parent?.width ?? 650) - edge)
    height: Math.min(Theme.px(430), (parent?.height ?? 430) - edge)

    contentItem: ColumnLayout {
        spacing: 12
        ListView {
            clip: true
            spacing: 14
            boundsBehavior: Flickable.StopAtBounds
            Layout.fillWidth: true
            Layout.fillHeight: true
            ScrollBar.vertical: ThinBar {}
            model: Rows {
                source: root.service
                list: "mcpRequests"
                onCountChanged: if (count === 0) root.close()
            }
            delegate: McpRequestCard {
                required property var row
                width: ListView.view.width
                request: row
                onDecided: allow => root.service.allowMcp(row.id, allow)
            }
        }
    }
}
