import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts

/* A plain window with a few controls: what any application of this kind costs. */
ApplicationWindow {
    width: 1440
    height: 900
    visible: true
    title: "Floor"

    header: ToolBar {
        RowLayout {
            anchors.fill: parent
            ToolButton { text: "Меню" }
            Label {
                text: "Заголовок"
                Layout.fillWidth: true
            }
        }
    }
    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 16
        Label { text: "Привет, мир" }
        TextField {
            placeholderText: "Введите текст"
            Layout.fillWidth: true
        }
        ComboBox { model: ["один", "два", "три"] }
        CheckBox { text: "Флажок" }
        Button { text: "Нажать" }
        ListView {
            model: 100
            clip: true
            Layout.fillWidth: true
            Layout.fillHeight: true
            delegate: ItemDelegate {
                required property int index
                text: "Строка " + index
                width: ListView.view.width
            }
        }
    }
}
