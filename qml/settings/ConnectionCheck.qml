pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Layouts
import Vesk

/* What the connected model can do, measured. */
ColumnLayout {
    id: root

    required property Backend service
    readonly property bool demo: service.settings.mock ?? true
    readonly property bool busy: service.measuring || speaks && service.apiTesting
    readonly property bool free: !busy && !service.apiTesting && !service.modelsLoading
    /* The line about connections is about what was asked here. */
    property bool speaks: false

    spacing: 10

    LabelText {
        text: "Проверка подключения"
        color: Theme.textStrong
        font.pixelSize: Theme.title
        Layout.fillWidth: true
    }
    LabelText {
        objectName: "currentModel"
        text: root.demo ? "Сейчас работает демонстрация: ответы агентов составлены заранее"
            : "Сейчас отвечает " + (root.service.settings.model ?? "") + " · " + (root.service.settings.base_url ?? "")
        color: Theme.textStatus
        font.pixelSize: Theme.note
        Layout.fillWidth: true
    }
    RowLayout {
        spacing: 8
        SoftButton {
            objectName: "measureConnection"
            text: root.busy ? "Проверка…" : "Проверить подключение"
            enabled: !root.demo && root.free
            onClicked: {
                root.speaks = true;
                root.service.measureConnection();
            }
        }
        SoftButton {
            objectName: "stopMeasuring"
            text: "Остановить"
            visible: root.busy
            onClicked: root.service.stopCheck()
        }
        SoftButton {
            objectName: "useDemonstration"
            text: "Вернуть демонстрацию"
            visible: !root.demo
            enabled: root.free
            onClicked: {
                root.speaks = true;
                root.service.useDemonstration();
            }
        }
    }
    LabelText {
        objectName: "checkStatus"
        visible: text !== "" && root.speaks
        text: root.service.message || root.service.apiStatus
        color: Theme.textStatus
        font.pixelSize: Theme.note
        Layout.fillWidth: true
    }
    Repeater {
        model: Rows {
            source: root.service
            list: "connectionMeasures"
        }
        MeasureRow {
            required property var row
            measure: row
            Layout.fillWidth: true
        }
    }
}
