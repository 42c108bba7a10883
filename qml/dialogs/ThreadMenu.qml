import QtQuick
import Vesk

/* What can be done with a conversation. */
CompactMenu {
    id: root

    property point place

    signal renameRequested(point place)
    signal archiveRequested()

    objectName: "threadMenu"
    title: "Действия с диалогом"

    function openBy(row: Item, where: point) {
        place = where;
        popup(row, row.width - width, row.height - 8);
    }

    CompactMenuItem {
        text: "Переименовать"
        onTriggered: root.renameRequested(root.place)
    }
    CompactMenuItem {
        text: "Скрыть из списка"
        onTriggered: root.archiveRequested()
    }
}
