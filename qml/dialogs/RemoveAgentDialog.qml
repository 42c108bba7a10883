import QtQuick
import QtQuick.Layouts
import Vesk

/* Asks before an agent of the user's goes, with all that was set for it. */
FloatingDialog {
    id: root

    required property Backend service
    property string agent: ""
    readonly property string name: service.agentProfiles.find(profile => profile.id === agent)?.name ?? ""

    function ask(role: string) {
        agent = role;
        open();
        keep.forceActiveFocus();
    }

    objectName: "removeAgent"
    title: "Удалить агента?"
    modal: true
    width: Math.min(Theme.px(420), (parent?.width ?? 420) - 40)
    height: Theme.px(210)

    contentItem: ColumnLayout {
        spacing: 12
        LabelText {
            text: "«" + root.name + "» уйдёт из сети вместе с правилами, skill, связями и своей моделью. Последнее изменение сети можно вернуть."
            Layout.fillWidth: true
            Layout.fillHeight: true
        }
        RowLayout {
            spacing: 10
            Layout.alignment: Qt.AlignRight
            Action {
                objectName: "confirmRemoval"
                text: "Удалить"
                onClicked: {
                    root.close();
                    root.service.removeAgent(root.agent);
                }
            }
            Action {
                id: keep
                objectName: "keepAgent"
                text: "Оставить"
                primary: true
                onClicked: root.close()
            }
        }
    }
}
