pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Layouts
import Vesk

/* Team, files or events of the task. */
Rectangle {
    id: root

    required property var service
    required property var current
    required property string note
    required property string panel
    required property var selectedFile

    signal panelChosen(string panel)
    signal hidden()
    signal addAgent()
    signal configureAgent(string role)
    signal inspectRun(var run)
    signal fileSelected(var file)
    signal detailsRequested(string text)

    color: Theme.inspector

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 16
        spacing: 12

        RowLayout {
            spacing: 8
            LabelText {
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
                        onPanelChosen: panel => root.panelChosen(panel)
                        onHidden: root.hidden()
                    }
                }
            }
            IconAction {
                objectName: "hideInspector"
                text: "×"
                tip: "Закрыть панель"
                onClicked: root.hidden()
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
                    note: root.note
                    onAddAgent: root.addAgent()
                    onConfigureAgent: role => root.configureAgent(role)
                    onInspectRun: run => root.inspectRun(run)
                }
            }
            LazyPanel {
                shown: root.panel === "files" && root.visible
                sourceComponent: FilesPanel {
                    service: root.service
                    shown: root.panel === "files" && root.visible
                    selected: root.selectedFile
                    onFileSelected: file => root.fileSelected(file)
                    onDetailsRequested: text => root.detailsRequested(text)
                }
            }
            LazyPanel {
                shown: root.panel === "history" && root.visible
                sourceComponent: HistoryPanel {
                    service: root.service
                    onDetailsRequested: text => root.detailsRequested(text)
                }
            }
        }
    }
}
