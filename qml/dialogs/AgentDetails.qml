import QtQuick
import QtQuick.Layouts
import Vesk

/* The report of one agent's run. */
FloatingDialog {
    id: root

    required property Backend service
    required property var run
    property string report: ""
    readonly property string role: run.logical_role || run.role || ""

    signal detailsRequested(string text)

    objectName: "agentDetails"
    title: run.name && run.name !== role ? run.name : service.roleLabel(role)
    width: Math.min(Theme.px(620), (parent?.width ?? 620) - 40)
    height: Math.min(Theme.px(600), (parent?.height ?? 600) - 40)

    contentItem: ColumnLayout {
        spacing: 12
        LabelText {
            text: root.service.statusLabel(root.run.status || "IDLE")
            font.pixelSize: Theme.title
            Layout.fillWidth: true
        }
        PlainArea {
            objectName: "agentReport"
            name: "Отчёт агента"
            text: root.report
            Layout.fillWidth: true
            Layout.fillHeight: true
        }
        RowLayout {
            spacing: 10
            Layout.alignment: Qt.AlignRight
            Action {
                text: "Технические данные"
                enabled: !!root.run.id
                onClicked: root.detailsRequested(JSON.stringify(root.service.runDetails(root.run.id), null, 2))
            }
            Action {
                text: "Закрыть"
                primary: true
                onClicked: root.close()
            }
        }
    }
}
