import QtQuick
import QtQuick.Layouts
import Vesk

/* The settings of the workspace. */
FloatingDialog {
    id: settings

    required property Backend service
    property Item backdropItem: null
    property string selectedAgent: "orchestrator"
    property bool adding: false
    property int section: 0

    objectName: "workspaceSettings"
    title: "Настройки"
    width: Math.min(800, (parent?.width ?? 800) - 48)
    height: Math.min(690, (parent?.height ?? 690) - 48)

    function beginAdd() {
        section = 1;
        adding = true;
        open();
    }
    function selectAgent(key: string) {
        adding = false;
        selectedAgent = key;
        section = 1;
        open();
    }

    contentItem: ColumnLayout {
        spacing: 16
        LabelText {
            text: "Рабочее пространство"
            font.pixelSize: 21
            Layout.fillWidth: true
        }
        SettingSwitch {
            text: "Прозрачные панели"
            checked: settings.service.preferences.glass ?? true
            onToggled: settings.service.setPreference("glass", checked)
        }
        SettingSwitch {
            text: "Анимации"
            checked: settings.service.preferences.animations ?? true
            onToggled: settings.service.setPreference("animations", checked)
        }
        SettingSwitch {
            text: "Команда слева"
            checked: settings.service.preferences.team_left === true
            onToggled: settings.service.setPreference("team_left", checked)
        }
        Note {
            text: "Потяните границу боковой панели, чтобы изменить ширину. Окна можно перемещать за заголовок."
            Layout.fillWidth: true
        }
        Action {
            text: "Сбросить ширину панелей"
            onClicked: {
                settings.service.setPreference("sidebar_width", Theme.sidebarWidth);
                settings.service.setPreference("inspector_width", Theme.inspectorWidth);
            }
        }
        Note {
            text: "Настройки агентов, подключений и фона появятся в следующих версиях."
            Layout.fillWidth: true
        }
        Item { Layout.fillHeight: true }
    }
}
