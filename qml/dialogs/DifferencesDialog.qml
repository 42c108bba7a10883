import QtQuick
import QtQuick.Layouts
import Vesk

/* What is different between two states of the project's files. */
FloatingDialog {
    id: root

    required property Backend service
    readonly property Differences differences: service.differences

    objectName: "differences"
    title: service.differences.title
    width: Math.min(Math.max(Theme.px(1180), (parent?.width ?? 0) * .7), (parent?.width ?? 1180) - 40)
    height: Math.min(Math.max(Theme.px(760), (parent?.height ?? 0) * .7), (parent?.height ?? 760) - 40)

    function newest(): int {
        return service.files.find(file => file.path === differences.path)?.revision ?? 0;
    }

    contentItem: ColumnLayout {
        spacing: 12
        DifferenceView {
            differences: root.service.differences
            Layout.fillWidth: true
            Layout.fillHeight: true
        }
        RowLayout {
            spacing: 8
            Layout.alignment: Qt.AlignRight

            Action {
                objectName: "olderRevisions"
                text: "Раньше"
                visible: root.differences.newer > 0
                enabled: root.differences.older > 0
                onClicked: root.service.compareRevisions(root.differences.path, root.differences.older - 1,
                                                         root.differences.older)
            }
            Action {
                objectName: "newerRevisions"
                text: "Позже"
                visible: root.differences.newer > 0
                enabled: root.differences.newer < root.newest()
                onClicked: root.service.compareRevisions(root.differences.path, root.differences.newer,
                                                         root.differences.newer + 1)
            }
            Action {
                objectName: "restoreRevision"
                text: "Вернуть версию " + root.differences.older
                tip: "Она станет новой версией; нынешняя останется в истории"
                visible: root.differences.newer > 0
                enabled: root.differences.older > 0
                onClicked: {
                    root.service.restoreRevision(root.differences.path, root.differences.older);
                    root.service.compareRevisions(root.differences.path);
                }
            }
        }
    }
}
