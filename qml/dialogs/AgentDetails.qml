import QtQuick
import QtQuick.Layouts
import Vesk
import "../Wording.js" as Wording

/* The report of one agent's run. */
FloatingDialog {
    id: root

    required property Backend service
    required property var run
    property list<var> fields: []
    readonly property string role: run.logical_role || run.role || ""

    signal runRequested(string id)

    objectName: "agentDetails"
    title: Wording.agentName(run.name || role, service.agentProfiles, service)
    width: Math.min(Theme.px(620), (parent?.width ?? 620) - 40)
    height: Math.min(Theme.px(600), (parent?.height ?? 600) - 40)

    contentItem: ColumnLayout {
        spacing: 12
        LabelText {
            text: root.service.statusLabel(root.run.status || "IDLE")
            font.pixelSize: Theme.title
            Layout.fillWidth: true
        }
        FieldList {
            objectName: "agentReport"
            name: "Отчёт агента"
            fields: root.fields
            Layout.fillWidth: true
            Layout.fillHeight: true
        }
        RowLayout {
            spacing: 10
            Layout.alignment: Qt.AlignRight
            Action {
                text: "Технические данные"
                enabled: !!root.run.id
                onClicked: root.runRequested(root.run.id)
            }
            Action {
                text: "Закрыть"
                primary: true
                onClicked: root.close()
            }
        }
    }
}
