import QtQuick
import QtQuick.Layouts
import Vesk

/* The form for an agent of the user's own. What is refused stays in it. */
ColumnLayout {
    id: root

    required property var panel
    required property bool manual
    readonly property Backend service: panel.service
    readonly property string stage: panel.parents[1]?.id ?? ""

    signal added()

    function add() {
        const key = service.addAgent(newName.text, manual ? parentChoice.value : stage, newSkill.text, priority.value,
                                     rules.text);
        if (!key)
            return;
        if (newTask.value !== "")
            service.setAgentTasks(key, [newTask.value]);
        panel.selectedAgent = key;
        panel.adding = false;
        newName.clear();
        newSkill.clear();
        rules.clear();
        added();
    }

    spacing: 12
    onVisibleChanged: if (visible) begin()

    function begin() {
        newName.forceActiveFocus();
    }

    Rectangle {
        color: Theme.formRule
        Layout.fillWidth: true
        Layout.preferredHeight: 1
    }
    LabelText {
        id: newAgentHeading
        objectName: "newAgentHeading"
        text: "Новый агент"
        color: Theme.textStrong
        font.pixelSize: Theme.px(17)
    }
    RowLayout {
        spacing: 8

        Input {
            id: newName
            objectName: "newName"
            placeholderText: "Имя, например: интерфейс"
            maximumLength: 60
            Layout.fillWidth: true
        }
        ValueChoice {
            id: parentChoice
            objectName: "newParent"
            name: "Этап агента"
            visible: root.manual
            model: root.panel.parents
            value: root.stage
            Layout.preferredWidth: Theme.px(210)
            onPicked: chosen => value = chosen
        }
    }
    ValueChoice {
        id: newTask
        objectName: "newTask"
        name: "Задача агента"
        model: [{ id: "", name: "Задача · по вашим правилам" }].concat(root.panel.taskOptions)
        Layout.fillWidth: true
        onPicked: chosen => value = chosen
    }
    LabelText {
        text: "Опишите работу помощника. Главный будет обращаться к нему по необходимости."
        color: Theme.textStatus
        Layout.fillWidth: true
    }
    Input {
        id: newSkill
        objectName: "newSkill"
        placeholderText: "Ссылка на SKILL.md — необязательно"
        Layout.fillWidth: true
    }
    LabelText { text: "Приоритет" }
    PriorityPicker { id: priority }
    RulesInput {
        id: rules
        objectName: "newRules"
        placeholderText: "Правила: что получить, что сделать, что передать дальше"
        Layout.fillWidth: true
        Layout.preferredHeight: Theme.px(85)
    }
    SoftButton {
        objectName: "addToNetwork"
        text: "Добавить в сеть"
        enabled: newName.text.trim() !== ""
        onClicked: root.add()
    }
    SoftButton {
        objectName: "addTemplate"
        visible: root.manual
        text: "Шаблон: дизайн → команда → проверка → код"
        onClicked: root.service.addWorkflowTemplate()
    }
}
