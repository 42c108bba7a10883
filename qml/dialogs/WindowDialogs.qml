pragma ComponentBehavior: Bound
import QtCore
import QtQuick
import Vesk
import "../Records.js" as Records
import "../Wording.js" as Wording

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
    property alias folderPicker: folderPicker
    property alias exportPicker: exportPicker
    property alias permissions: permissions
    property alias serverRequests: serverRequests
    property alias workspaceSettings: workspaceSettings

    /* The checkpoint whose files are saved; empty: those of now. */
    property string exported: ""
    /* What either imports is a file manager's worth of types. */
    readonly property url filePicker: Qt.resolvedUrl(app.desktopFileDialogs ? "FilePicker.qml" : "FileChooser.qml")

    /* Begins where the project is, or at home. */
    function pick(picker: LazyDialog) {
        const dialog = picker.show();
        dialog.currentFolder = service.root === "" ? StandardPaths.writableLocation(StandardPaths.HomeLocation)
                                                   : Wording.addressOf(service.root);
        dialog.open();
    }
    function beginProject() {
        (projectDialog.show() as ProjectDialog).begin();
    }
    function showDetails(text: string) {
        (details.show() as DetailsDialog).showText(text);
    }
    function showRecord(fields: list<var>, source: var) {
        (details.show() as DetailsDialog).showRecord(fields, source);
    }
    function showRun(id: string) {
        const run = service.runDetails(id);
        showRecord(Records.ofRun(run, service.agentProfiles, service), () => Wording.pretty(run));
    }
    function showEvent(event: var) {
        showRecord(Records.ofEvent(event, service), () => Wording.pretty(event));
    }
    function showVersions(path: string) {
        showRecord(Records.ofVersions(service.fileVersions(path)), () => service.fileHistory(path));
    }
    function showProofs(mark: string) {
        (proofs.show() as ProofsDialog).begin(mark);
    }
    function showRestore() {
        (restore.show() as RestoreDialog).begin();
    }
    function showCommit() {
        (commit.show() as CommitDialog).begin();
    }
    function showExport(checkpoint: string) {
        exported = checkpoint;
        pick(exportPicker);
    }
    function showDifferences() {
        (differences.show() as DifferencesDialog).open();
    }
    function showProgress() {
        const told = service.chat.filter(row => row.kind === "progress" || row.kind === "file").map(row => row.content);
        const happened = service.events.map(event => Wording.eventText(event, service)).join("\n");
        showDetails(told.concat(happened).join("\n\n"));
    }
    function showAgent() {
        const dialog = agentDetails.show() as AgentDetails;
        dialog.fields = app.agentFields(app.selectedRun);
        dialog.open();
    }
    function refreshAgent() {
        const dialog = agentDetails.dialog as AgentDetails;
        if (dialog?.visible)
            dialog.fields = app.agentFields(app.selectedRun);
    }
    function choose(task: string, row: Item): point {
        app.menuTask = task;
        app.renameDraft = titleOf(app.tasks.find("id", task));
        const place = row.mapToItem(null, 0, 0);
        return Qt.point(place.x, Math.min(place.y, app.height - 70));
    }
    function showThreadMenu(task: string, row: Item) {
        (threadMenu.show() as ThreadMenu).openBy(row, choose(task, row));
    }
    function renameThread(task: string, row: Item) {
        showRename(choose(task, row));
    }
    function showKeys() {
        (keys.show() as KeysDialog).open();
    }
    function showRename(place: point) {
        const box = renameBox.show() as RenameBox;
        box.x = place.x;
        box.y = place.y;
        box.open();
    }
    function titleOf(task: var): string {
        return task.spec?.title || "Диалог";
    }
    function showSettingsOf(agent: string) {
        if (agent === "__api__") {
            (connection.show() as ConnectionPopup).open();
            return;
        }
        const settings = workspaceSettings.show() as SettingsPanel;
        if (agent === "__new__")
            settings.beginAdd();
        else
            settings.selectAgent(agent);
    }
    function showPage(page: string) {
        switch (page) {
        case "Выбор проекта":
            agentDetails.hide();
            app.projectMenu.show().open();
            break;
        case "Переименование":
            app.projectMenu.hide();
            if (app.tasks.count > 0) {
                app.menuTask = app.tasks.at(0).id;
                app.renameDraft = titleOf(app.tasks.at(0));
                showRename(Qt.point(14, 280));
            }
            break;
        case "Отчёт агента":
            workspaceSettings.hide();
            connection.hide();
            showAgent();
            break;
        case "Настройки агентов": {
            connection.hide();
            const settings = workspaceSettings.show() as SettingsPanel;
            settings.section = 1;
            settings.open();
            break;
        }
        case "Модель и API":
            (connection.show() as ConnectionPopup).open();
            break;
        }
    }

    LazyDialog {
        id: attachmentPicker
        file: root.filePicker
        settings: ({
            objectName: "attachmentPicker",
            mode: "files",
            title: "Добавить фото, видео, 2D или 3D ресурс",
            nameFilters: [
                "Медиа (*.png *.jpg *.jpeg *.webp *.bmp *.mp4 *.mov *.webm *.mkv *.avi *.obj *.stl *.gltf *.glb *.fbx *.blend *.svg *.mtl)",
                "Документы и код (*.txt *.md *.json *.csv *.pdf *.docx *.js *.ts *.py)",
                "Все файлы (*)"
            ]
        })
        onLoaded: dialog.taken.connect(files => root.service.attachFiles(files))
    }
    LazyDialog {
        id: connection
        sourceComponent: ConnectionPopup { service: root.service }
    }
    LazyDialog {
        id: projectDialog
        sourceComponent: ProjectDialog {
            service: root.service
            onCreated: root.app.selectedFile = {}
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
            onRenameRequested: place => Qt.callLater(root.showRename, place)
            onArchiveRequested: root.service.archiveTask(root.app.menuTask)
        }
    }
    LazyDialog {
        id: agentDetails
        sourceComponent: AgentDetails {
            service: root.service
            run: root.app.selectedRun
            onRunRequested: id => root.showRun(id)
        }
    }
    LazyDialog {
        id: details
        sourceComponent: DetailsDialog {}
    }
    LazyDialog {
        id: keys
        sourceComponent: KeysDialog {}
    }
    LazyDialog {
        id: proofs
        sourceComponent: ProofsDialog {
            service: root.service
            onDetailsRequested: (text, pictures) => (details.show() as DetailsDialog).showPictures(text, pictures)
        }
    }
    LazyDialog {
        id: differences
        sourceComponent: DifferencesDialog { service: root.service }
    }
    LazyDialog {
        id: folderPicker
        file: root.app.desktopFileDialogs ? Qt.resolvedUrl("FolderPicker.qml") : root.filePicker
        settings: ({
            objectName: "folderPicker",
            mode: "folder",
            title: "Открыть папку как проект"
        })
        onLoaded: dialog.taken.connect(folders => root.service.lookAtFolder(folders[0]))
    }
    LazyDialog {
        id: exportPicker
        file: root.filePicker
        settings: ({
            objectName: "exportPicker",
            mode: "save",
            title: "Сохранить как…",
            nameFilters: ["Архив (*.zip)", "Папка (*)"]
        })
        onLoaded: dialog.taken.connect(files => root.service.exportFiles(files[0], root.exported))
    }
    LazyDialog {
        id: takeIn
        sourceComponent: TakeInDialog { service: root.service }
    }
    Connections {
        target: root.service
        property string phase: ""
        function onChanged() {
            const now = root.service.takeIn.phase ?? "";
            if (now === "looking" && phase === "")
                takeIn.show().open();
            phase = now;
        }
    }
    LazyDialog {
        id: commit
        sourceComponent: CommitDialog { service: root.service }
    }
    LazyDialog {
        id: restore
        sourceComponent: RestoreDialog {
            service: root.service
            onExportRequested: checkpoint => root.showExport(checkpoint)
        }
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
        id: serverRequests
        sourceComponent: McpRequestsDialog { service: root.service }
    }
    LazyDialog {
        id: workspaceSettings
        sourceComponent: SettingsPanel {
            service: root.service
            backdropItem: root.backdrop
            onKeysRequested: root.showKeys()
        }
    }
}
