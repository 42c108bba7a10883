pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Layouts
import Vesk

/* The servers of other programs, found on this machine and in the project. */
ColumnLayout {
    id: root

    required property Backend backend

    objectName: "mcpPage"
    spacing: 12

    RowLayout {
        spacing: 12
        LabelText {
            text: "Подключения к программам"
            font.pixelSize: Theme.title
            color: Theme.textStrong
            Layout.fillWidth: true
        }
        SoftButton {
            objectName: "findServers"
            text: "Найти серверы"
            onClicked: root.backend.discoverMcp()
        }
    }
    LabelText {
        text: "Roblox Studio: Assistant → Manage MCP Servers → Enable Studio as MCP server."
        color: Theme.textStatus
        Layout.fillWidth: true
    }
    Note {
        objectName: "noServers"
        visible: servers.count === 0
        text: "Серверов не найдено. VESK читает настройки других программ и файл .mcp.json проекта."
        Layout.fillWidth: true
    }
    PaneList {
        id: servers
        objectName: "mcpServers"
        readonly property int barSpace: 12
        activeFocusOnTab: false // the buttons are
        spacing: 10
        Layout.fillWidth: true
        Layout.fillHeight: true
        Layout.rightMargin: -barSpace // into the margin of the dialog
        Accessible.name: "Серверы"
        // What asks for a word is in sight when it comes.
        onHeaderItemChanged: if (headerItem) headerItem.heightChanged.connect(() => Qt.callLater(positionViewAtBeginning))
        header: Column {
            width: servers.width - servers.barSpace
            spacing: 10
            bottomPadding: requests.count > 0 ? 10 : 0
            Repeater {
                model: Rows {
                    id: requests
                    source: root.backend
                    list: "mcpRequests"
                }
                delegate: McpRequestCard {
                    required property var row
                    width: parent.width
                    request: row
                    onDecided: allow => root.backend.allowMcp(row.id, allow)
                }
            }
        }
        model: Rows {
            source: root.backend
            list: "mcpServers"
        }
        delegate: McpEntry {
            required property var row
            server: row
            width: ListView.view.width - servers.barSpace
            onConnectRequested: root.backend.connectMcp(row.id)
            onDisconnectRequested: root.backend.disconnectMcp(row.id)
        }
    }
}
