pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Vesk

/* The one settings dialog: the look, the agents, programs of others, the background, the model. */
FloatingDialog {
    id: settings

    required property Backend service
    property Item backdropItem: null
    property string selectedAgent: "orchestrator"
    readonly property var profiles: service?.agentProfiles ?? []
    readonly property var agent: profiles.find(profile => profile.id === selectedAgent) ?? {}
    readonly property var parents: [{ id: "", name: "Без связи" }].concat(profiles.filter(profile => !profile.custom))
    property bool adding: false
    property bool tasksExpanded: false
    property string loadedAgent: ""
    property alias section: tabs.currentIndex
    readonly property var taskOptions: [
        { id: "photo", name: "Анализ фото" }, { id: "video", name: "Кадры видео" },
        { id: "ocr", name: "Текст на фото" }, { id: "ui", name: "Дизайн интерфейса" },
        { id: "frontend", name: "Фронтенд" }, { id: "backend", name: "Бэкенд" },
        { id: "architecture", name: "Архитектура" }, { id: "planning", name: "Планирование" },
        { id: "code", name: "Код" }, { id: "review", name: "Ревью" },
        { id: "testing", name: "Тестирование" }, { id: "bugs", name: "Исправление ошибок" },
        { id: "performance", name: "Оптимизация" }, { id: "security", name: "Безопасность" },
        { id: "docs", name: "Документация" }, { id: "research", name: "Исследование" },
        { id: "data", name: "Данные" }, { id: "3d", name: "3D" },
        { id: "2d", name: "2D" }, { id: "integration", name: "Интеграции" },
    ]

    signal addBegun()
    signal agentSelected()
    signal keysRequested()

    function beginAdd() {
        section = 1;
        adding = true;
        open();
        addBegun();
    }
    function selectAgent(key: string) {
        adding = false;
        selectedAgent = key;
        section = 1;
        open();
        agentSelected();
    }
    function agentTasks(): var {
        if (agent.tasks)
            return agent.tasks;
        const media = agent.media_analysis ?? "";
        return media === "both" ? ["photo", "video"] : media === "" ? [] : [media];
    }

    function stepSection(step: int) {
        section = (section + step + tabs.count) % tabs.count;
        tabs.currentItem.forceActiveFocus(Qt.TabFocusReason);
    }

    Shortcut {
        sequence: "Ctrl+Tab"
        enabled: settings.visible
        onActivated: settings.stepSection(1)
    }
    Shortcut {
        sequence: "Ctrl+Shift+Tab"
        enabled: settings.visible
        onActivated: settings.stepSection(-1)
    }

    objectName: "workspaceSettings"
    title: "Настройки"
    padding: 22
    edge: 0
    leastWidth: 640
    leastHeight: 560
    width: Math.min(Theme.px(800), (parent?.width ?? 800) - 48)
    height: Math.min(Theme.px(690), (parent?.height ?? 690) - 48)
    onOpened: ground.refresh()
    first: tabs.currentItem

    background: GlassGround {
        id: ground
        backdropItem: settings.backdropItem
        place: Qt.point(settings.x, settings.y)
    }
    header: SettingsHeader {
        dialog: settings
    }
    footer: DialogGrip {
        size: 14
        rounding: 22
        opacity: .5
        onDraggedBy: (x, y) => settings.resizeBy(x, y)
    }
    contentItem: ColumnLayout {
        spacing: 16

        TabBar {
            id: tabs
            objectName: "sections"
            Accessible.name: "Разделы настроек"
            Keys.onLeftPressed: settings.stepSection(-1)
            Keys.onRightPressed: settings.stepSection(1)
            spacing: 4
            background: null
            // Its usual list view deletes the tabs after the scope that they have the focus in.
            contentItem: Row {
                spacing: tabs.spacing
                Repeater { model: tabs.contentModel }
            }
            Layout.fillWidth: true
            SectionTab { text: "Вид" }
            SectionTab { text: "Агенты и skills" }
            SectionTab { text: "MCP" }
            SectionTab { text: "Фон" }
            SectionTab { text: "API" }
        }
        StackLayout {
            currentIndex: tabs.currentIndex
            Layout.fillWidth: true
            Layout.fillHeight: true

            LookPage {
                service: settings.service
                onKeysRequested: settings.keysRequested()
            }
            LazyPage {
                current: tabs.currentIndex === 1
                sourceComponent: AgentsPage { panel: settings }
            }
            LazyPage {
                current: tabs.currentIndex === 2
                sourceComponent: McpPage { backend: settings.service }
            }
            LazyPage {
                current: tabs.currentIndex === 3
                sourceComponent: BackgroundPage { service: settings.service }
            }
            LazyPage {
                current: tabs.currentIndex === 4
                sourceComponent: ApiPage { service: settings.service }
            }
        }
        LabelText {
            objectName: "settingsMessage"
            visible: text !== ""
            text: settings.service.message
            color: Theme.textError
            font.pixelSize: Theme.note
            Accessible.role: Accessible.AlertMessage
            Layout.fillWidth: true
        }
    }
}
