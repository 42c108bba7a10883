pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Layouts
import Vesk

/* The agents and their skills: one of them, or the form for a new one. */
ColumnLayout {
    id: page

    /* The dialog; by its type the two would need each other. */
    required property var panel
    readonly property Backend service: panel.service
    readonly property var agent: panel.agent
    readonly property bool manual: service.preferences.automatic_routing === false

    /* Only once for each agent: what arrives later must not overwrite what is being typed. */
    function load() {
        if (!agent.id || panel.loadedAgent === panel.selectedAgent)
            return;
        panel.loadedAgent = panel.selectedAgent;
        section.load();
    }
    function scrollTo(place: real) {
        const view = scroll.contentItem as Flickable;
        view.contentY = Math.max(0, Math.min(place, view.contentHeight - view.height));
    }
    function showForm() {
        scrollTo(form.mapToItem(content, 0, 0).y);
    }

    spacing: 8
    onAgentChanged: load()
    Component.onCompleted: load()

    Connections {
        target: page.panel
        function onAddBegun() {
            form.begin();
            Qt.callLater(page.showForm);
        }
        function onAgentSelected() { section.loadSkill(); }
    }

    SettingsScroll {
        id: scroll
        objectName: "agentsScroll"
        alwaysBar: true
        Layout.fillWidth: true
        Layout.fillHeight: true

        ColumnLayout {
            id: content
            width: scroll.availableWidth
            spacing: 12

            RowLayout {
                visible: !page.panel.adding
                spacing: 12

                ValueChoice {
                    id: choice
                    objectName: "agentChoice"
                    name: "Агент"
                    model: page.panel.profiles
                    value: page.panel.selectedAgent
                    Layout.fillWidth: true
                    onPicked: value => page.panel.selectedAgent = value
                }
                SettingSwitch {
                    id: enabledSwitch
                    objectName: "agentEnabled"
                    text: "Включён"
                    checked: page.agent.enabled ?? true
                    Accessible.description: enabledTip.text
                    onToggled: {
                        page.service.setAgentEnabled(page.panel.selectedAgent, checked);
                        checked = Qt.binding(() => page.agent.enabled ?? true);
                    }
                    Tip {
                        id: enabledTip
                        parent: enabledSwitch
                        text: "Отключить роль со следующей задачи. Обязательные этапы выполняет главный."
                        visible: enabledSwitch.hovered || enabledSwitch.visualFocus
                    }
                }
            }
            SoftButton {
                objectName: "toggleAdding"
                text: page.panel.adding ? "К настройкам агента" : "+ Добавить агента"
                onClicked: {
                    if (page.panel.adding)
                        page.panel.adding = false;
                    else
                        page.panel.beginAdd();
                }
            }
            AgentSection {
                id: section
                visible: !page.panel.adding
                panel: page.panel
                manual: page.manual
                Layout.fillWidth: true
            }
            NewAgentForm {
                id: form
                visible: page.panel.adding
                panel: page.panel
                manual: page.manual
                Layout.fillWidth: true
                onAdded: {
                    Qt.callLater(page.scrollTo, 0);
                    choice.forceActiveFocus(Qt.TabFocusReason); // the button that was pressed is gone
                }
            }
            Item { Layout.preferredHeight: 16 }
        }
    }
    UndoLine {
        service: page.service
        Layout.fillWidth: true
    }
}
