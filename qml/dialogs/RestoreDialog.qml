pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Layouts
import Vesk

/* The states that the project's files can go back to, and what that would change. */
FloatingDialog {
    id: root

    required property Backend service
    property var points: []
    property string chosen: ""
    readonly property int count: service.differences.files.length

    signal exportRequested(string checkpoint)

    objectName: "restore"
    title: "Вернуться к прежнему состоянию"
    width: Math.min(Math.max(Theme.px(1240), (parent?.width ?? 0) * .7), (parent?.width ?? 1240) - 40)
    height: Math.min(Math.max(Theme.px(760), (parent?.height ?? 0) * .7), (parent?.height ?? 760) - 40)

    function begin() {
        points = service.restorePoints();
        choose(points.length > 0 ? points[0].id : "");
        open();
    }
    function choose(id: string) {
        chosen = id;
        if (id !== "")
            service.compareRestore(id);
    }

    Connections {
        target: root.service
        enabled: root.visible
        property bool wasRestoring: false
        function onChanged() {
            if (wasRestoring && !root.service.restoring)
                root.begin();
            wasRestoring = root.service.restoring;
        }
    }

    contentItem: ColumnLayout {
        spacing: 12

        RowLayout {
            spacing: 12
            Layout.fillWidth: true
            Layout.fillHeight: true

            PaneList {
                objectName: "restorePoints"
                Layout.preferredWidth: Math.min(Theme.px(230), root.width * .24)
                Layout.fillHeight: true
                Accessible.name: "Сохранённые состояния"
                model: root.points
                delegate: ListRow {
                    id: point
                    required property var modelData
                    width: ListView.view.width
                    height: Theme.px(52)
                    topPadding: Theme.px(9)
                    leftPadding: 10
                    rightPadding: 10
                    chosen: modelData.id === root.chosen
                    fill: chosen ? Theme.rowSelected : hovered ? Theme.rowUnderPointer : Theme.row
                    Accessible.name: modelData.title + ", " + time.text
                    onClicked: root.choose(modelData.id)

                    contentItem: Column {
                        spacing: 2
                        LabelText {
                            width: parent.width
                            text: point.modelData.title
                            font.pixelSize: Theme.note
                            wrapMode: Text.NoWrap
                            elide: Text.ElideRight
                        }
                        Note {
                            id: time
                            color: Theme.textDetail
                            text: Qt.locale("ru_RU").toString(new Date(point.modelData.time), "d MMMM hh:mm:ss")
                            font.pixelSize: Theme.caption
                        }
                    }
                }
                onActivated: place => root.choose(root.points[place].id)
            }
            DifferenceView {
                differences: root.service.differences
                Layout.fillWidth: true
                Layout.fillHeight: true
            }
        }
        /* What it means stands above the buttons when there is no room beside them. */
        GridLayout {
            columns: width < Theme.px(760) ? 3 : 4
            columnSpacing: 8
            rowSpacing: 8
            Note {
                Layout.columnSpan: parent.columns === 3 ? 3 : 1
                text: root.service.restoring ? "Восстанавливаю файлы…"
                    : root.points.length === 0 ? "Состояния появятся с первой задачей."
                    : "Изменится файлов: " + root.count + ". Нынешнее состояние сохранится, его можно вернуть."
                Layout.fillWidth: true
            }
            Action {
                objectName: "exportPoint"
                Layout.fillWidth: parent.columns === 3
                text: "Сохранить как…"
                tip: "Скопировать файлы этого состояния в папку или архив"
                enabled: root.chosen !== "" && root.service.exporting === ""
                onClicked: root.exportRequested(root.chosen)
            }
            Action {
                objectName: "undoRestore"
                Layout.fillWidth: parent.columns === 3
                text: "Вернуть как было"
                tip: "Отменить последнее восстановление"
                enabled: root.service.restoreCanUndo && !root.service.restoring
                onClicked: root.service.undoRestore()
            }
            Action {
                objectName: "doRestore"
                Layout.fillWidth: parent.columns === 3
                text: "Вернуться к этому состоянию"
                primary: true
                enabled: root.chosen !== "" && root.count > 0 && !root.service.restoring
                onClicked: root.service.restore(root.chosen)
            }
        }
    }
}
