pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Layouts
import Vesk

/* What an agent of the user's is told, when it begins, and whose results it waits for. */
ColumnLayout {
    id: root

    required property var panel
    required property bool manual
    readonly property Backend service: panel.service
    readonly property var agent: panel.agent
    readonly property var others: panel.profiles.filter(profile => profile.custom && profile.id !== panel.selectedAgent)

    function load() {
        rules.text = agent.rules ?? "";
        priority.value = agent.priority ?? 50;
        kind.currentIndex = agent.mode !== "workflow" ? 2 : agent.kind === "review" ? 1 : 0;
    }
    function save() {
        service.configureAgent(panel.selectedAgent, rules.text, priority.value,
                               ["specialist", "review", "delegate"][kind.currentIndex]);
    }
    function waitFor(other: string, wait: bool) {
        if (wait)
            service.connectAgents(other, panel.selectedAgent);
        else
            service.unlinkAgents(other, panel.selectedAgent);
    }

    spacing: 8

    LabelText { text: "Приоритет" }
    PriorityPicker {
        id: priority
        objectName: "agentPriority"
    }
    Choice {
        id: kind
        objectName: "agentKind"
        name: "Функция агента"
        visible: root.manual
        model: ["Подготовить результат", "Проверить результаты", "Исполнять основную роль"]
        Layout.fillWidth: true
    }
    LabelText {
        text: "Правила и задание агента"
        color: Theme.textRules
    }
    RulesInput {
        id: rules
        objectName: "agentRules"
        placeholderText: "Что получить от предыдущих агентов, что сделать и что передать дальше…"
        Layout.fillWidth: true
        Layout.preferredHeight: Theme.px(105)
    }
    SoftButton {
        objectName: "saveRules"
        text: "Сохранить правила и приоритет"
        onClicked: root.save()
    }
    LabelText {
        visible: root.manual
        text: "Ждать результаты от"
        color: Theme.textStatus
    }
    Repeater {
        model: root.manual ? root.others.length : 0
        SettingCheck {
            required property int index
            readonly property var other: root.others[index] ?? {}
            readonly property bool waiting: (root.agent.after ?? []).includes(other.id)
            text: other.name ?? ""
            checked: waiting
            Layout.fillWidth: true
            onClicked: {
                root.waitFor(other.id, checked);
                checked = Qt.binding(() => waiting); // a loop is refused
            }
        }
    }
    LabelText {
        visible: root.manual
        text: "Проверяющий возвращает замечания предыдущим агентам. Разработчик ждёт принятого результата."
        color: Theme.textRemark
        font.pixelSize: Theme.note
        Layout.fillWidth: true
    }
}
