import Vesk

/* What can be done with all files of the project, where a column has no room for the buttons. */
CompactMenu {
    id: root

    required property bool exporting
    required property bool committing

    signal differencesRequested()
    signal exportRequested()
    signal restoreRequested()
    signal commitRequested()

    objectName: "filesMenu"
    title: "Все файлы"

    CompactMenuItem {
        text: "Изменения"
        onTriggered: root.differencesRequested()
    }
    CompactMenuItem {
        text: "Сохранить как…"
        enabled: !root.exporting
        onTriggered: root.exportRequested()
    }
    CompactMenuItem {
        text: "Вернуться…"
        onTriggered: root.restoreRequested()
    }
    CompactMenuItem {
        text: "Зафиксировать…"
        visible: root.committing
        height: visible ? implicitHeight : 0
        onTriggered: root.commitRequested()
    }
}
