pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Layouts
import Vesk

/* The files of the project and the text of one of them. */
SettingsScroll {
    id: root

    required property Backend service
    /* The text of the file is read only while somebody can see it. */
    required property bool shown
    required property var selected
    readonly property string path: selected.path ?? ""
    readonly property bool media: selected.type === "media"
    /* What is done with all files is in a menu when a narrow column has no room for it. */
    readonly property bool tight: width < Theme.px(300)
    /* What a list and a text of which something can be seen take, gaps, and lines of buttons. */
    readonly property int least: 284 + Theme.px(180 + (!media ? 0 : tight ? 70 : 40))

    signal fileSelected(var file)
    signal versionsRequested()
    signal differencesRequested()
    signal restoreRequested()
    signal exportRequested()
    signal commitRequested()

    function showTaskDifferences() {
        service.compareTask("");
        differencesRequested();
    }

    // Whoever places it has no use for the size of what scrolls.
    implicitWidth: Theme.inspectorLeast
    implicitHeight: least
    rightPadding: height < least ? 12 : 0 // the bar lies beside
    contentHeight: content.height

    /* The whole record tells of a new revision, which is read anew. */
    readonly property var wanted: shown ? selected : null
    onWantedChanged: if (shown) service.showFile(path)

    Binding {
        target: root.service.viewer
        property: "dark"
        value: Theme.code.hslLightness < 0.5
    }

    /* In a low window it scrolls. */
    ColumnLayout {
        id: content
        width: root.availableWidth
        height: Math.max(root.height, root.least)
        spacing: 12

        RowLayout {
            NameText {
                text: root.service.projectName || "Нет проекта"
                Layout.fillWidth: true
            }
            IconAction {
                objectName: "openRoot"
                text: "↗"
                tip: "Открыть папку"
                enabled: root.service.root !== ""
                onClicked: root.service.openWorkspace()
            }
        }
        NameText {
            text: root.service.root
            color: Theme.textNote
            font.pixelSize: Theme.small
            elide: Text.ElideMiddle
            Layout.fillWidth: true
            Layout.topMargin: -8
        }
        PaneList {
            id: list
            objectName: "fileList"
            spacing: 6
            Layout.fillWidth: true
            Layout.fillHeight: true
            Layout.minimumHeight: 90
            Layout.maximumHeight: Layout.preferredHeight
            Layout.preferredHeight: Math.max(90, Math.min(Theme.px(230), count * (Theme.px(56) + 6)))
            Accessible.name: "Файлы проекта"
            model: Rows {
                id: files
                source: root.service
                list: "files"
            }
            delegate: FileRow {
                width: ListView.view.width
                chosen: row.path === root.path
                onClicked: root.fileSelected(row)
                onDoubleClicked: root.service.openFile(row.path)
            }
            onActivated: place => root.fileSelected(files.at(place))

            Note {
                anchors.fill: parent
                anchors.margins: 8
                visible: files.count === 0
                text: "Файлы появятся здесь по мере создания."
            }
        }
        Action {
            objectName: "openFile"
            text: "Открыть файл ↗"
            primary: true
            enabled: root.path !== ""
            Layout.fillWidth: true
            onClicked: root.service.openFile(root.path)
        }
        GridLayout {
            visible: root.media
            columns: root.tight ? 2 : 3
            columnSpacing: 8
            rowSpacing: 8
            Action {
                text: "Баннер"
                Layout.fillWidth: true
                onClicked: root.service.pinAsset(root.path, "Баннер")
            }
            Action {
                text: "Иконка"
                Layout.fillWidth: true
                onClicked: root.service.pinAsset(root.path, "Иконка")
            }
            Action {
                text: "Открепить"
                Layout.columnSpan: root.tight ? 2 : 1
                Layout.fillWidth: true
                onClicked: root.service.pinAsset(root.path, "")
            }
        }
        Rectangle {
            color: Theme.code
            radius: 8
            border.color: Theme.rule
            opacity: files.count > 0 || root.path !== "" ? 1 : 0 // no empty ground where there is nothing to show
            Layout.fillWidth: true
            Layout.fillHeight: true
            Layout.minimumHeight: 110

            CodeLines {
                objectName: "fileViewer"
                anchors.fill: parent
                anchors.margins: 4
                visible: !picture.visible && !note.visible
                view: root.service.viewer
                Accessible.name: "Содержимое файла " + root.path
            }
            Note {
                id: note
                objectName: "fileNote"
                anchors { left: parent.left; right: parent.right; top: parent.top; margins: 12 }
                visible: text !== ""
                text: root.service.viewer.note || (root.path === "" ? "Выберите файл, чтобы посмотреть его." : "")
            }
            Image {
                id: picture
                objectName: "filePicture"
                anchors.fill: parent
                anchors.margins: 8
                source: root.service.viewerPicture
                visible: source.toString() !== ""
                asynchronous: true
                fillMode: Image.PreserveAspectFit
                sourceSize: Qt.size(1024, 1024)
                Accessible.role: Accessible.Graphic
                Accessible.name: root.path
            }
        }
        GridLayout {
            columns: root.tight ? 1 : 2
            columnSpacing: 8
            rowSpacing: 8
            Action {
                objectName: "fileHistory"
                text: "История версий"
                enabled: root.path !== ""
                Layout.fillWidth: true
                onClicked: root.versionsRequested()
            }
            Action {
                objectName: "fileDifferences"
                text: "Различия"
                tip: "Сравнить с предыдущей версией"
                enabled: root.path !== "" && !root.media
                Layout.fillWidth: true
                onClicked: {
                    root.service.compareRevisions(root.path);
                    root.differencesRequested();
                }
            }
        }
        Action {
            id: allFiles
            objectName: "allFiles"
            text: root.service.exporting || "Все файлы"
            trailing: "▾"
            tip: "Изменения, копия и возврат всех файлов"
            visible: root.tight
            enabled: files.count > 0
            Layout.fillWidth: true
            onClicked: fileMenu.show().popup(allFiles, 0, 0)

            LazyDialog {
                id: fileMenu
                sourceComponent: FilesMenu {
                    exporting: root.service.exporting !== ""
                    committing: root.service.commit.possible ?? false
                    onDifferencesRequested: root.showTaskDifferences()
                    onExportRequested: root.exportRequested()
                    onRestoreRequested: root.restoreRequested()
                    onCommitRequested: root.commitRequested()
                }
            }
        }
        Flow {
            spacing: 8
            visible: !root.tight
            Layout.fillWidth: true

            Action {
                objectName: "taskDifferences"
                text: "Изменения"
                tip: "Что изменилось с запроса"
                enabled: files.count > 0
                onClicked: root.showTaskDifferences()
            }
            Action {
                objectName: "exportFiles"
                text: root.service.exporting || "Сохранить как…"
                enabled: files.count > 0 && root.service.exporting === ""
                onClicked: root.exportRequested()
            }
            Action {
                objectName: "restoreFiles"
                text: "Вернуться…"
                tip: "Вернуть файлы к прежнему состоянию"
                enabled: files.count > 0
                onClicked: root.restoreRequested()
            }
        }

        Action {
            objectName: "commitFiles"
            text: "Зафиксировать…"
            tip: "Одна запись в git с файлами этой задачи"
            visible: !root.tight && (root.service.commit.possible ?? false)
            enabled: files.count > 0
            Layout.fillWidth: true
            onClicked: root.commitRequested()
        }
    }
}
