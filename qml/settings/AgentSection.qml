pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Layouts
import Vesk

/* What one agent is given: model, skill, and, if it is the user's own, tasks, place in the chain and rules. */
ColumnLayout {
    id: root

    required property var panel
    required property bool manual
    readonly property Backend service: panel.service
    readonly property var agent: panel.agent
    readonly property string key: panel.selectedAgent
    readonly property bool custom: agent.custom ?? false

    function load() {
        loadSkill();
        rules.load();
    }
    function loadSkill() {
        skill.load();
    }
    function removeAgent() {
        service.removeAgent(key);
        panel.selectedAgent = "orchestrator";
    }

    spacing: 12

    SettingSwitch {
        id: routing
        objectName: "automaticRouting"
        text: "Главный сам выбирает помощников"
        checked: !root.manual
        Accessible.description: routingTip.text
        onToggled: {
            root.service.setPreference("automatic_routing", checked);
            checked = Qt.binding(() => !root.manual); // what is stored, also when that was refused
        }
        Tip {
            id: routingTip
            parent: routing
            text: "Включено: поручения по задаче. Выключено: настроенная цепочка перед этапами."
            visible: routing.hovered || routing.visualFocus
        }
    }
    LabelText {
        objectName: "agentOrigin"
        text: root.custom ? "Свой агент" : "Встроенная роль · шаблон сохраняется"
        color: Theme.textAside
        Layout.fillWidth: true
    }
    AgentTasks {
        visible: root.custom
        panel: root.panel
        Layout.fillWidth: true
    }
    LabelText {
        objectName: "mediaNote"
        visible: !!root.agent.media_analysis
        text: "Главный подключает анализатора, когда это нужно запросу"
        color: Theme.textDetail
        Layout.fillWidth: true
    }
    ApiSettings {
        objectName: "agentApi"
        service: root.service
        targetAgent: root.key
        Layout.fillWidth: true
    }
    SkillForm {
        id: skill
        service: root.service
        agent: root.agent
        key: root.key
        Layout.fillWidth: true
    }
    RowLayout {
        visible: root.custom
        spacing: 8

        LabelText {
            visible: root.manual
            text: "Передать результат"
            wrapMode: Text.NoWrap
        }
        ValueChoice {
            objectName: "agentParent"
            name: "Передать результат"
            visible: root.manual
            model: root.panel.parents
            value: root.agent.parent ?? ""
            Layout.fillWidth: true
            onPicked: value => root.service.linkAgent(root.key, value)
        }
        SoftButton {
            objectName: "deleteAgent"
            text: "Удалить агента"
            onClicked: root.removeAgent()
        }
    }
    AgentRules {
        id: rules
        visible: root.custom
        panel: root.panel
        manual: root.manual
        Layout.fillWidth: true
    }
}
