import QtQuick
import QtQuick.Layouts
import Vesk

/* What is different between two states of the project's files. */
FloatingDialog {
    id: root

    required property Backend service

    objectName: "differences"
    title: service.differences.title
    width: Math.min(1180, (parent?.width ?? 1180) - 40)
    height: Math.min(760, (parent?.height ?? 760) - 40)

    contentItem: ColumnLayout {
        spacing: 12
        DifferenceView {
            differences: root.service.differences
            Layout.fillWidth: true
            Layout.fillHeight: true
        }
        Action {
            text: "Закрыть"
            Layout.alignment: Qt.AlignRight
            onClicked: root.close()
        }
    }
}
