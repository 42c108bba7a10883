pragma ComponentBehavior: Bound
import QtQuick
import Vesk

/* What can lie over the window, each made when it is first needed. In a file of its own, loaded with the first of
   them: starting the window waits for none of their types. */
Item {
    id: root

    /* The window, whose state the dialogs show and change. */
    required property Main app
    required property Item backdrop
    readonly property Backend service: app.backend
    property alias attachmentPicker: attachmentPicker
    property alias connection: connection
    property alias projectDialog: projectDialog
    property alias renameBox: renameBox
    property alias threadMenu: threadMenu
    property alias agentDetails: agentDetails
    property alias details: details
    property alias queueDialog: queueDialog
    property alias permissions: permissions
    property alias workspaceSettings: workspaceSettings

    LazyDialog {
        id: attachmentPicker
        file: Qt.resolvedUrl("AttachmentPicker.qml") // what it imports is a file manager's worth of types
        settings: ({ service: root.service })
    }
    LazyDialog {
        id: connection
        sourceComponent: ConnectionPopup { service: root.service }
    }
    LazyDialog {
        id: projectDialog
        sourceComponent: ProjectDialog {
            service: root.service
            onCreated: root.app.dropFile()
        }
    }
    LazyDialog {
        id: renameBox
        sourceComponent: RenameBox {
            width: Math.max(180, root.app.sidebarWidth - 28)
            service: root.service
            task: root.app.menuTask
            draft: root.app.renameDraft
        }
    }
    LazyDialog {
        id: threadMenu
        sourceComponent: ThreadMenu {
            onRenameRequested: place => Qt.callLater(() => root.app.showRename(root.app.menuTask, root.app.renameDraft,
                                                                               place.x, place.y))
            onArchiveRequested: root.service.archiveTask(root.app.menuTask)
        }
    }
    LazyDialog {
        id: agentDetails
        sourceComponent: AgentDetails {
            service: root.service
            run: root.app.selectedRun
            onDetailsRequested: text => root.app.showDetails(text)
        }
    }
    LazyDialog {
        id: details
        sourceComponent: DetailsDialog {}
    }
    LazyDialog {
        id: queueDialog
        sourceComponent: QueueDialog { service: root.service }
    }
    LazyDialog {
        id: permissions
        sourceComponent: PermissionsDialog {
            service: root.service
            pending: root.app.current.pending ?? []
        }
    }
    LazyDialog {
        id: workspaceSettings
        sourceComponent: SettingsPanel {
            service: root.service
            backdropItem: root.backdrop
        }
    }
}
