import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Vesk

/* The compact connection form, for the one provider that most users have. */
ColumnLayout {
    id: root

    required property Backend service
    property bool connecting: false
    property bool attempted: false

    spacing: 14

    function connectModel() {
        if (service.apiTesting)
            return;
        connecting = true;
        attempted = true;
        service.connectProvider("Alem Plus", "qwen3-8", key.text);
    }

    LabelText {
        text: "Alem Plus · Qwen 3.8"
        color: Theme.textStrong
        font.pixelSize: Theme.px(20)
        Layout.fillWidth: true
    }
    TextField {
        id: key
        objectName: "apiKey"
        placeholderText: "API-ключ Alem Plus"
        placeholderTextColor: Theme.inputPlaceholder
        color: Theme.textInput
        echoMode: TextInput.Password
        inputMethodHints: Qt.ImhSensitiveData | Qt.ImhNoPredictiveText
        padding: 12
        focus: true
        enabled: !root.service.apiTesting
        Accessible.name: placeholderText
        Layout.fillWidth: true
        background: Rectangle {
            radius: 10
            color: Theme.popupField
            border.color: key.activeFocus ? Theme.popupFieldBorderFocus : Theme.popupFieldBorder
        }
        onAccepted: root.connectModel()
    }
    Action {
        objectName: "connectButton"
        text: root.service.apiTesting ? "Подключаю…" : "Подключить"
        primary: true
        Layout.fillWidth: true
        onClicked: root.connectModel()
    }
    LabelText {
        objectName: "connectionStatus"
        text: root.attempted ? root.service.message || root.service.apiStatus
            : !(root.service.settings.mock ?? true) && root.service.settings.provider === "Alem Plus" ? "Подключено" : ""
        visible: text !== ""
        color: Theme.textStatus
        font.pixelSize: Theme.note
        Layout.fillWidth: true
    }

    Connections {
        target: root.service
        function onChanged() {
            if (!root.connecting || root.service.apiTesting)
                return;
            root.connecting = false;
            if (root.service.apiStatus.startsWith("Подключено:"))
                key.clear();
            else
                key.forceActiveFocus();
        }
    }
}
