import QtQuick
import QtQuick.Layouts
import Vesk

/* The skill of an agent: where it is loaded from, and what was loaded, to be read before it steers anything. */
ColumnLayout {
    id: root

    required property Backend service
    required property var agent
    required property string key
    property bool reading: false
    readonly property bool loaded: !!agent.skill_url
    readonly property bool loading: (service.loadingSkills ?? []).includes(key)
    /* What was loaded, asked for only while it is read; anew when another load has come. */
    readonly property var skill: reading && loaded && agent.status && !loading ? service.agentSkill(key) : ({})

    function load() {
        address.text = agent.skill_url ?? "";
    }
    function origin(): string {
        const parts = [skill.address || skill.skill_url, "байт: " + skill.bytes, "получит агент: " + skill.given + " зн."];
        if (skill.loaded_at)
            parts.push("загружен " + new Date(skill.loaded_at).toLocaleString(Qt.locale("ru_RU"), "d.MM.yyyy HH:mm"));
        return parts.join(" · ");
    }

    spacing: 8
    onKeyChanged: reading = false

    LabelText {
        text: "Skill из GitHub"
        color: Theme.textStrong
        font.pixelSize: Theme.px(17)
    }
    Input {
        id: address
        objectName: "skillAddress"
        placeholderText: "https://github.com/автор/проект/blob/main/SKILL.md"
        Accessible.name: "Ссылка на skill"
        Layout.fillWidth: true
        onAccepted: root.service.setAgentSkill(root.key, text)
    }
    RowLayout {
        spacing: 8

        SoftButton {
            objectName: "loadSkill"
            text: "Загрузить / обновить"
            onClicked: root.service.setAgentSkill(root.key, address.text)
        }
        SoftButton {
            objectName: "removeSkill"
            text: "Удалить skill"
            enabled: root.loaded
            onClicked: root.service.setAgentSkill(root.key, "")
        }
        SoftButton {
            objectName: "readSkill"
            visible: root.loaded
            text: root.reading ? "Свернуть текст" : "Прочитать текст"
            onClicked: root.reading = !root.reading
        }
    }
    LabelText {
        objectName: "skillStatus"
        text: root.agent.status || "Ссылка на публичный Markdown-файл. Изменения действуют со следующей задачи."
        color: Theme.textStatus
        Layout.fillWidth: true
    }
    LabelText {
        objectName: "skillLoading"
        visible: root.loading
        text: "Загружаю skill…"
        color: Theme.textStatus
        Layout.fillWidth: true
    }
    ColumnLayout {
        visible: root.reading && root.loaded
        spacing: 8
        Layout.fillWidth: true

        LabelText {
            objectName: "skillOrigin"
            visible: !!root.skill.text
            text: visible ? root.origin() : ""
            color: Theme.textStatus
            font.pixelSize: Theme.note
            wrapMode: Text.Wrap
            Layout.fillWidth: true
        }
        PlainArea {
            objectName: "skillText"
            name: "Текст skill"
            text: root.skill.text ?? ""
            Layout.fillWidth: true
            Layout.preferredHeight: Theme.px(220)
        }
        LabelText {
            visible: !!root.skill.changes
            text: "Изменилось с прошлой загрузки"
            color: Theme.textStatus
        }
        PlainArea {
            objectName: "skillChanges"
            visible: !!root.skill.changes
            name: "Изменилось с прошлой загрузки"
            text: root.skill.changes ?? ""
            textFont.family: Theme.codeFamily
            Layout.fillWidth: true
            Layout.preferredHeight: Theme.px(120)
        }
    }
}
