import QtQuick
import QtQuick.Layouts
import Vesk

/* The agents and their skills. */
ColumnLayout {
    /* The dialog; by its type the two would need each other. */
    required property var panel

    LabelText {
        text: "Настройка агентов появится в следующей версии."
        color: Theme.textStatus
        Layout.fillWidth: true
    }
    Item { Layout.fillHeight: true }
}
