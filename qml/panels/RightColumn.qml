pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Layouts
import Vesk

/* Team, files or events of the task. */
Rectangle {
    id: root

    /* The window, whose selection is shown and changed here. */
    required property Main app
    readonly property Backend service: app.backend
    readonly property var current: app.current
    readonly property string panel: app.panel

    color: Theme.inspector
    Accessible.role: Accessible.Pane
    Accessible.name: title.text

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 16
        spacing: 12

        RowLayout {
            spacing: 8
            LabelText {
                id: title
                objectName: "panelTitle"
                text: root.panel === "agents" ? "Команда" : root.panel === "files" ? "Файлы проекта" : "События"
                font.weight: Font.DemiBold
                wrapMode: Text.NoWrap
                elide: Text.ElideRight
                Layout.fillWidth: true
            }
            IconAction {
                id: menuButton
                objectName: "panelMenuButton"
                text: "⋯"
                tip: "Что показать"
                onClicked: panelMenu.show().popup(menuButton, 0, menuButton.height + 4)

                LazyDialog {
                    id: panelMenu
                    sourceComponent: PanelMenu {
                        onPanelChosen: panel => root.app.showPanel(panel)
                        onHidden: root.app.inspectorOpen = false
                    }
                }
            }
            IconAction {
                objectName: "hideInspector"
                text: "×"
                tip: "Закрыть панель"
                onClicked: root.app.inspectorOpen = false
            }
        }
        StackLayout {
            currentIndex: ["agents", "files", "history"].indexOf(root.panel)
            Layout.fillWidth: true
            Layout.fillHeight: true

            LazyPanel {
                asynchronous: true // the window opens with it, and doesn't wait for it
                shown: root.panel === "agents" && root.visible
                sourceComponent: AgentsPanel {
                    service: root.service
                    current: root.current
                    note: root.app.note
                    onAddAgent: root.app.dialogs().workspaceSettings.show().beginAdd()
                    onConfigureAgent: role => {
                        root.app.dialogs().agentDetails.hide();
                        root.app.dialogs().workspaceSettings.show().selectAgent(role);
                    }
                    onInspectRun: run => {
                        root.app.selectedRun = run;
                        root.app.dialogs().showAgent();
                    }
                }
            }
            LazyPanel {
                shown: root.panel === "files" && root.visible
                sourceComponent: FilesPanel {
                    service: root.service
                    shown: root.panel === "files" && root.visible
                    selected: root.app.selectedFile
                    onFileSelected: file => root.app.selectedFile = file
                    onDifferencesRequested: root.app.dialogs().showDifferences()
                    onRestoreRequested: root.app.dialogs().showRestore()
                    onVersionsRequested: root.app.dialogs().showVersions(root.app.selectedFile.path)
                    onExportRequested: root.app.dialogs().showExport("")
                    onCommitRequested: root.app.dialogs().showCommit()
                }
            }
            LazyPanel {
                shown: root.panel === "history" && root.visible
                sourceComponent: HistoryPanel {
                    service: root.service
                    onEventRequested: event => root.app.dialogs().showEvent(event)
                }
            }
        }
    }
}
