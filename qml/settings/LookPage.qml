import QtQuick
import QtQuick.Layouts
import Vesk

/* How the window looks, and what programs may do. */
SettingsScroll {
    id: page

    required property Backend service
    readonly property var preferences: service.preferences
    readonly property real textScale: Number(preferences.text_scale) || 0
    /* One that was set elsewhere is among them. */
    readonly property var textScales: [...new Set([.9, 1, 1.1, 1.25, 1.5].concat(textScale || []))].sort()
    readonly property var layouts: Object.keys(preferences.network_layouts ?? {})

    signal keysRequested()

    function keepLayout() {
        service.saveNetwork(layoutName.text);
        if (service.message === "")
            layoutName.clear();
    }

    ColumnLayout {
        width: page.availableWidth
        spacing: 16

        SettingSwitch {
            id: access
            objectName: "computerAccess"
            text: "Полный доступ к локальным командам"
            checked: page.preferences.computer_access === true
            onToggled: {
                page.service.setPreference("computer_access", checked);
                checked = Qt.binding(() => page.preferences.computer_access === true); // what is stored, also when that was refused
            }
            Accessible.description: accessTip.text
            Tip {
                id: accessTip
                parent: access
                text: "Агенты запускают программы без отдельного подтверждения. Действует со следующей задачи; права Windows и внешних сервисов сохраняются."
                visible: access.hovered || access.visualFocus
            }
        }
        SettingSwitch {
            id: gitCommit
            objectName: "gitCommit"
            text: "Фиксация файлов задачи в git"
            checked: page.preferences.git_commit === true
            onToggled: {
                page.service.setPreference("git_commit", checked);
                checked = Qt.binding(() => page.preferences.git_commit === true); // what is stored, also when that was refused
            }
            Accessible.description: gitTip.text
            Tip {
                id: gitTip
                parent: gitCommit
                text: "В панели файлов появится «Зафиксировать…», если папка проекта лежит в репозитории git. Само по себе ничего не фиксируется."
                visible: gitCommit.hovered || gitCommit.visualFocus
            }
        }
        LabelText {
            text: "Рабочее пространство"
            color: Theme.textStrong
            font.pixelSize: Theme.px(21)
            Layout.fillWidth: true
        }
        GridLayout {
            columns: 2
            columnSpacing: 12
            rowSpacing: 8

            LabelText { text: "Вид" }
            ValueChoice {
                objectName: "themeChoice"
                name: "Вид"
                model: [
                    { id: "dark", name: "тёмная" }, { id: "light", name: "светлая" },
                    { id: "system", name: "как в системе" },
                ]
                value: page.preferences.theme ?? "dark"
                Layout.preferredWidth: Theme.px(200)
                onPicked: look => page.service.setPreference("theme", look)
            }
            LabelText { text: "Размер текста" }
            ValueChoice {
                objectName: "textScaleChoice"
                name: "Размер текста"
                model: [{ id: "0", name: "как в системе" }].concat(page.textScales.map(scale => ({
                    id: String(scale), name: Math.round(scale * 100) + " %"
                })))
                value: String(page.textScale)
                Layout.preferredWidth: Theme.px(200)
                onPicked: scale => page.service.setPreference("text_scale", Number(scale))
            }
        }
        SettingSwitch {
            text: "Прозрачные панели"
            checked: page.preferences.glass ?? true
            onToggled: {
                page.service.setPreference("glass", checked);
                checked = Qt.binding(() => page.preferences.glass ?? true); // what is stored, also when that was refused
            }
        }
        SettingSwitch {
            text: "Анимации"
            checked: page.preferences.animations ?? true
            onToggled: {
                page.service.setPreference("animations", checked);
                checked = Qt.binding(() => page.preferences.animations ?? true); // what is stored, also when that was refused
            }
        }
        SettingSwitch {
            text: "Команда слева"
            checked: page.preferences.team_left === true
            onToggled: {
                page.service.setPreference("team_left", checked);
                checked = Qt.binding(() => page.preferences.team_left === true); // what is stored, also when that was refused
            }
        }
        LabelText {
            text: "Потяните границу боковой панели, чтобы изменить ширину. Окна можно перемещать за заголовок."
            color: Theme.textStatus
            Layout.fillWidth: true
        }
        SoftButton {
            text: "Сбросить ширину панелей"
            onClicked: {
                page.service.setPreference("sidebar_width", Theme.sidebarWidth);
                page.service.setPreference("inspector_width", Theme.inspectorWidth);
            }
        }
        RowLayout {
            spacing: 8
            Input {
                id: layoutName
                objectName: "layoutName"
                placeholderText: "Название раскладки сети"
                Layout.fillWidth: true
                onAccepted: page.keepLayout()
            }
            SoftButton {
                objectName: "saveLayout"
                text: "Сохранить"
                Layout.preferredHeight: layoutName.implicitHeight
                onClicked: page.keepLayout()
            }
        }
        Choice {
            objectName: "layouts"
            name: "Раскладки сети"
            model: page.layouts
            enabled: page.layouts.length > 0
            startsEmpty: true
            currentIndex: -1
            displayText: currentIndex < 0 ? enabled ? "Выбрать раскладку" : "Сохранённых раскладок нет" : currentText
            Layout.fillWidth: true
            onActivated: page.service.loadNetwork(currentText)
        }
        SoftButton {
            objectName: "showKeys"
            text: "Сочетания клавиш (F1)"
            onClicked: page.keysRequested()
        }
    }
}
