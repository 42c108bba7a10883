pragma ComponentBehavior: Bound
import Qt.labs.folderlistmodel
import QtQuick
import QtQuick.Layouts
import Vesk
import "../Wording.js" as Wording

/* For files, a folder or a place to save at, where the desktop has no dialog of its own. */
FloatingDialog {
    id: root

    /* "files", "folder" or "save". */
    required property string mode
    /* Each as "Name (*.a *.b)". */
    property var nameFilters: ["Все файлы (*)"]
    property url currentFolder
    property var picked: []

    /* The addresses of what was chosen. */
    signal taken(var addresses)

    function pathOf(folder: url): string {
        return decodeURIComponent(folder.toString().replace(/^file:\/\//, ""));
    }
    function go(folder: url) {
        currentFolder = folder;
        picked = [];
    }
    function goToPath() {
        go(Wording.addressOf(path.text.trim()));
        list.forceActiveFocus(Qt.TabFocusReason);
    }
    function globs(filter: string): var {
        return filter.replace(/^.*\(|\)$/g, "").split(" ");
    }
    function pick(place: int) {
        const file = files.get(place, "fileUrl").toString();
        if (mode === "save")
            name.text = files.get(place, "fileName");
        else
            picked = picked.includes(file) ? picked.filter(other => other !== file) : picked.concat(file);
    }
    function openAt(place: int) {
        if (files.isFolder(place))
            go(files.get(place, "fileUrl"));
        else if (mode === "save")
            pick(place);
        else
            finish([files.get(place, "fileUrl").toString()]);
    }
    function saved(): string {
        const suffix = globs(nameFilters[filter.currentIndex])[0].slice(1);
        return currentFolder + "/" + encodeURIComponent(name.text.trim()) + (name.text.includes(".") ? "" : suffix);
    }
    function accept() {
        finish(mode === "folder" ? [currentFolder.toString()] : mode === "save" ? [saved()] : picked);
    }
    function finish(addresses: var) {
        close();
        taken(addresses);
    }

    width: Math.min(Theme.px(720), (parent?.width ?? 720) - edge)
    height: Math.min(Theme.px(560), (parent?.height ?? 560) - edge)
    first: mode === "save" ? name : list
    onAboutToShow: go(currentFolder)

    FolderListModel {
        id: files
        folder: root.currentFolder
        showFiles: root.mode !== "folder"
        nameFilters: root.globs(root.nameFilters[filter.currentIndex])
        showDirsFirst: true
        sortCaseSensitive: false
        onStatusChanged: if (status === FolderListModel.Ready) list.showFirst()
    }
    contentItem: ColumnLayout {
        spacing: 12

        RowLayout {
            spacing: 8
            IconAction {
                objectName: "folderAbove"
                text: "↑"
                tip: "На папку выше"
                Layout.preferredHeight: path.implicitHeight
                onClicked: root.go(files.parentFolder)
            }
            Entry {
                id: path
                objectName: "folderPath"
                text: root.pathOf(root.currentFolder)
                placeholderText: "Папка"
                Layout.fillWidth: true
                onAccepted: root.goToPath()
            }
        }
        PaneList {
            id: list
            objectName: "folderFiles"
            spacing: 2
            Layout.fillWidth: true
            Layout.fillHeight: true
            Accessible.name: "Содержимое папки"
            model: files
            marking: root.mode === "files"
            onActivated: place => root.openAt(place)
            onMarked: place => files.isFolder(place) ? root.openAt(place) : root.pick(place)

            function showFirst() {
                currentIndex = count > 0 ? 0 : -1;
                positionViewAtBeginning();
            }
            Keys.onPressed: event => {
                event.accepted = event.accepted || event.key === Qt.Key_Backspace;
                if (event.key === Qt.Key_Backspace)
                    root.go(files.parentFolder);
            }
            delegate: ListRow {
                id: row
                required property int index
                required property string fileName
                required property url fileUrl
                required property bool fileIsDir
                required property var fileSize
                required property date fileModified
                width: ListView.view.width
                height: Theme.px(34)
                leftPadding: 12
                rightPadding: 12
                text: fileName
                chosen: root.picked.includes(fileUrl.toString())
                fill: chosen ? Theme.rowSelected : hovered ? Theme.rowUnderPointer : "transparent"
                Accessible.name: text + ", " + about.text
                onClicked: fileIsDir ? root.openAt(index) : root.pick(index)
                onDoubleClicked: if (!fileIsDir) root.finish([fileUrl.toString()])
                contentItem: RowLayout {
                    spacing: 12
                    LabelText {
                        text: (row.chosen ? "✓ " : "") + row.text + (row.fileIsDir ? "/" : "")
                        font.weight: row.fileIsDir ? Font.DemiBold : Font.Normal
                        wrapMode: Text.NoWrap
                        elide: Text.ElideMiddle
                        Layout.fillWidth: true
                    }
                    Note {
                        id: about
                        text: (row.fileIsDir ? "папка" : Math.ceil(row.fileSize / 1024) + " КБ") + " · "
                            + row.fileModified.toLocaleString(Qt.locale("ru_RU"), "d MMM yyyy")
                        wrapMode: Text.NoWrap
                    }
                }
            }
            Note {
                anchors.centerIn: parent
                visible: list.count === 0 && files.status === FolderListModel.Ready
                text: "Здесь ничего подходящего нет."
            }
        }
        Entry {
            id: name
            objectName: "savedName"
            visible: root.mode === "save"
            placeholderText: "Имя файла"
            Layout.fillWidth: true
            onAccepted: if (acceptButton.enabled) root.accept()
        }
        RowLayout {
            spacing: 10
            Choice {
                id: filter
                name: "Какие файлы"
                visible: root.mode !== "folder"
                model: root.nameFilters.map(named => named.replace(/ \(.*/, ""))
                Layout.fillWidth: true
                Layout.minimumWidth: 0
            }
            Item { Layout.fillWidth: root.mode === "folder" }
            Action {
                text: "Отмена"
                onClicked: root.close()
            }
            Action {
                id: acceptButton
                objectName: "acceptFiles"
                text: root.mode === "folder" ? "Выбрать эту папку" : root.mode === "save" ? "Сохранить" : "Открыть"
                primary: true
                enabled: root.mode === "folder" || (root.mode === "save" ? name.text.trim() !== "" : root.picked.length > 0)
                onClicked: root.accept()
            }
        }
    }
}
