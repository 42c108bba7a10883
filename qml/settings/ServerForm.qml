pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Layouts
import Vesk

/* A server of the user's own: found on this machine or typed, asked for its models, connected. */
ColumnLayout {
    id: form

    required property Backend service
    property string targetAgent: ""
    property bool connecting: false
    property bool requested: false
    /* The line about connections is about what was asked here. */
    property bool speaks: false
    /* Models of a server that was found, until another address is typed. */
    property var foundModels: []
    readonly property bool ownCatalog: requested && service.modelCatalogOwner === "Свой сервер/" + targetAgent
    readonly property var offered: ownCatalog && !service.modelsLoading ? service.models : foundModels
    readonly property bool busy: service.apiTesting || service.modelsLoading || service.measuring

    spacing: 10

    function forgetAddress() {
        foundModels = [];
        requested = false;
        speaks = false;
    }
    function take(found: FoundServer) {
        const server = found.server;
        forgetAddress();
        address.text = server.url;
        key.clear(); // it was for another address
        foundModels = server.models;
        model.text = server.models.length === 1 ? server.models[0].id : "";
        (model.text === "" ? model : connectButton).forceActiveFocus();
        if (found.cut)
            loadModels();
    }
    function loadModels() {
        requested = true;
        speaks = true;
        service.loadServerModels(address.text, key.text, targetAgent);
    }
    function connectServer() {
        connecting = true;
        speaks = true;
        service.connectServer(address.text, model.text, key.text, targetAgent);
    }

    function forgetKey() {
        key.clear();
        speaks = true;
        service.forgetServer(address.text);
    }

    Connections {
        target: form.service
        function onChanged() {
            if (!form.connecting || form.service.apiTesting)
                return;
            form.connecting = false;
            const status = form.service.apiStatus;
            if (status.startsWith("Подключено:") || status.startsWith("API агента подключён:"))
                key.clear();
        }
    }

    LabelText {
        text: "Свой сервер"
        color: Theme.textStrong
        font.pixelSize: Theme.title
        Layout.fillWidth: true
    }
    LabelText {
        text: "Модель на этом компьютере или по адресу вашей компании"
        color: Theme.textStatus
        font.pixelSize: Theme.note
        Layout.fillWidth: true
    }
    RowLayout {
        spacing: 8
        SoftButton {
            objectName: "findModelServers"
            text: form.service.serversSearching ? "Ищу…" : "Найти на этом компьютере"
            enabled: !form.service.serversSearching && !form.busy
            onClicked: form.service.findServers()
        }
        LabelText {
            objectName: "serverLine"
            text: form.service.serverStatus
            color: Theme.textStatus
            font.pixelSize: Theme.note
            Layout.fillWidth: true
        }
    }
    Repeater {
        model: Rows {
            source: form.service
            list: "foundServers"
        }
        FoundServer {
            id: found
            required property var row
            server: row
            chosen: address.text === row.url
            enabled: !form.busy
            Layout.fillWidth: true
            onClicked: form.take(found)
        }
    }
    RowLayout {
        spacing: 8
        Input {
            id: address
            objectName: "serverAddress"
            placeholderText: "Адрес, например http://localhost:11434/v1"
            enabled: !form.busy
            Layout.fillWidth: true
            Layout.preferredWidth: 2
            onTextEdited: form.forgetAddress()
            onAccepted: form.loadModels()
        }
        KeyInput {
            id: key
            objectName: "serverKey"
            placeholderText: "Ключ, если он нужен"
            enabled: !form.busy
            Layout.fillWidth: true
            Layout.preferredWidth: 1
            onAccepted: form.loadModels()
        }
    }
    RowLayout {
        spacing: 8
        Input {
            id: model
            objectName: "serverModel"
            placeholderText: "Модель"
            enabled: !form.busy
            Layout.fillWidth: true
            onAccepted: form.connectServer()
        }
        SoftButton {
            objectName: "loadServerModels"
            text: form.service.modelsLoading ? "Загрузка…" : "Список моделей"
            enabled: !form.busy && address.text.trim() !== ""
            Layout.preferredHeight: model.implicitHeight
            onClicked: form.loadModels()
        }
    }
    Choice {
        id: models
        // Who has asked for them by Enter goes on here.
        onCountChanged: if (count > 1 && form.ownCatalog && (address.focus || key.focus)) {
            Qt.callLater(() => models.forceActiveFocus(Qt.TabFocusReason));
        }
        objectName: "serverModels"
        name: "Модели сервера"
        visible: count > 1
        textRole: "id"
        valueRole: "id"
        model: form.offered
        startsEmpty: true
        currentIndex: -1
        displayText: "Выбрать из списка · " + count
        enabled: !form.busy
        Layout.fillWidth: true
        onActivated: place => {
            model.text = textAt(place);
            currentIndex = -1;
        }
    }
    RowLayout {
        spacing: 8
        SoftButton {
            id: connectButton
            objectName: "connectServer"
            text: form.service.apiTesting ? "Проверка…" : "Подключить"
            enabled: !form.busy && address.text.trim() !== "" && model.text.trim() !== ""
            onClicked: form.connectServer()
        }
        SoftButton {
            objectName: "stopCheck"
            text: "Остановить"
            visible: form.service.serversSearching || form.speaks && (form.service.apiTesting || form.service.modelsLoading)
            onClicked: form.service.stopCheck()
        }
        SoftButton {
            objectName: "forgetServer"
            text: "Удалить ключ"
            visible: form.targetAgent === "" && address.text.trim() !== ""
            enabled: !form.busy
            onClicked: form.forgetKey()
        }
    }
    LabelText {
        objectName: "serverFormStatus"
        visible: text !== "" && form.speaks
        text: form.service.message || form.service.apiStatus
        color: Theme.textStatus
        font.pixelSize: Theme.note
        Layout.fillWidth: true
    }
}
