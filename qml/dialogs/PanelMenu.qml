import Vesk

/* What the right column shows. */
CompactMenu {
    id: root

    signal panelChosen(string panel)
    signal hidden()

    objectName: "panelMenu"
    title: "Что показать"

    CompactMenuItem {
        text: "Сеть агентов"
        onTriggered: root.panelChosen("agents")
    }
    CompactMenuItem {
        text: "Файлы"
        onTriggered: root.panelChosen("files")
    }
    CompactMenuItem {
        text: "События"
        onTriggered: root.panelChosen("history")
    }
    CompactMenuItem {
        text: "Закрыть панель"
        onTriggered: root.hidden()
    }
}
