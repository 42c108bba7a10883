import QtQuick
import QtQuick.Layouts
import Vesk

/* A provider by name, a key and a model: of one agent, or of the whole team. */
ColumnLayout {
    id: panel

    required property Backend service
    property string targetAgent: ""
    property bool connecting: false
    property bool requested: false
    property bool initialized: false
    property string selectedModel: ""
    readonly property bool ownCatalog: requested
        && service.modelCatalogOwner === provider.currentText + "/" + targetAgent
    readonly property var config: configOf(targetAgent)
    readonly property bool busy: service.apiTesting || service.modelsLoading

    spacing: 10

    function configOf(agent: string): var {
        return agent === "" ? service.settings : service.agentProfiles.find(profile => profile.id === agent)?.api ?? {};
    }
    function forget() {
        requested = false;
        selectedModel = "";
    }
    function reset() {
        forget();
        key.clear();
        provider.currentIndex = Math.max(0, provider.find(configOf(targetAgent).provider ?? ""));
    }
    function refresh() {
        selectedModel = "";
        requested = true;
        service.loadModels(provider.currentText, key.text, targetAgent);
    }
    function connectModel() {
        connecting = true;
        if (targetAgent === "")
            service.connectProvider(provider.currentText, selectedModel, key.text);
        else
            service.setAgentApi(targetAgent, provider.currentText, selectedModel, key.text);
    }
    function takeBack() {
        if (targetAgent === "")
            service.forgetProvider(provider.currentText);
        else
            service.setAgentApi(targetAgent, "", "", "");
        reset();
    }

    onTargetAgentChanged: if (initialized) reset()
    Component.onCompleted: {
        initialized = true;
        reset();
    }

    Connections {
        target: panel.service
        function onChanged() {
            if (!panel.connecting || panel.service.apiTesting)
                return;
            panel.connecting = false;
            const status = panel.service.apiStatus;
            if (status.startsWith("Подключено:") || status.startsWith("API агента подключён:"))
                key.clear();
        }
    }

    LabelText {
        text: panel.targetAgent === "" ? "Основная модель команды" : "API этого агента"
        color: Theme.textStrong
        font.pixelSize: Theme.title
        Layout.fillWidth: true
    }
    LabelText {
        text: "Провайдер → ключ → доступная модель → подключить"
        color: Theme.textStatus
        font.pixelSize: Theme.note
        Layout.fillWidth: true
    }
    Choice {
        id: provider
        objectName: "provider"
        name: "Провайдер"
        model: ["OpenAI", "Gemini", "Alem Plus"]
        enabled: !panel.busy
        Layout.fillWidth: true
        onActivated: {
            key.clear();
            panel.forget();
        }
    }
    RowLayout {
        spacing: 8
        KeyInput {
            id: key
            objectName: "providerKey"
            placeholderText: "API-ключ"
            enabled: !panel.busy
            Layout.fillWidth: true
            onTextEdited: panel.forget()
            onAccepted: panel.refresh()
        }
        SoftButton {
            objectName: "loadModels"
            text: panel.service.modelsLoading ? "Загрузка…" : "Получить модели"
            enabled: !panel.busy
            Layout.preferredHeight: key.implicitHeight
            onClicked: panel.refresh()
        }
    }
    Choice {
        id: models
        objectName: "models"
        name: "Модель"
        textRole: "id"
        valueRole: "id"
        model: panel.ownCatalog && !panel.service.modelsLoading ? panel.service.models : []
        startsEmpty: true
        currentIndex: -1
        displayText: panel.selectedModel || "Выберите доступную модель"
        enabled: panel.ownCatalog && !panel.service.modelsLoading && count > 0
        Layout.fillWidth: true
        onActivated: place => {
            panel.selectedModel = textAt(place);
            currentIndex = -1;
        }
    }
    RowLayout {
        spacing: 8
        SoftButton {
            objectName: "connectProvider"
            text: panel.service.apiTesting ? "Проверка…" : "Подключить"
            enabled: panel.ownCatalog && !panel.service.apiTesting && panel.selectedModel !== ""
            onClicked: panel.connectModel()
        }
        SoftButton {
            objectName: "forgetProvider"
            text: panel.targetAgent === "" ? "Удалить ключ" : "Использовать основную модель"
            enabled: !panel.service.apiTesting
            onClicked: panel.takeBack()
        }
    }
    LabelText {
        objectName: "connectedTo"
        text: panel.config.provider && panel.config.model
            ? "Подключено: " + panel.config.provider + " · " + panel.config.model
            : panel.targetAgent === "" ? "Модель не подключена" : "Сейчас используется основная модель команды"
        color: Theme.textStatus
        Layout.fillWidth: true
    }
    LabelText {
        objectName: "providerStatus"
        visible: panel.requested || panel.connecting
        text: panel.service.message || panel.service.apiStatus
        color: Theme.textStatus
        font.pixelSize: Theme.note
        Layout.fillWidth: true
    }
}
