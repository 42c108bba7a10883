import QtQuick
import QtQuick.Layouts
import Vesk

FloatingDialog {
    id: root

    required property Backend service

    signal created()

    objectName: "projectDialog"
    title: "Новый проект"
    width: Math.min(Theme.px(420), (parent?.width ?? 420) - edge)

    function begin() {
        name.clear();
        open();
        name.forceActiveFocus();
    }
    function create() {
        service.createProject(name.text, service.defaultFolder());
        if (service.message !== "")
            return;
        close();
        created();
    }

    contentItem: ColumnLayout {
        spacing: 12
        Entry {
            id: name
            objectName: "projectName"
            placeholderText: "Название"
            focus: true
            Layout.fillWidth: true
            onAccepted: root.create()
        }
        Note {
            text: "Создам отдельную папку в Документах / VESK Projects."
            Layout.fillWidth: true
        }
        RowLayout {
            spacing: 10
            Layout.alignment: Qt.AlignRight
            Action {
                text: "Отмена"
                onClicked: root.close()
            }
            Action {
                objectName: "createProject"
                text: "Создать"
                primary: true
                onClicked: root.create()
            }
        }
    }
}
