import QtQuick
import QtQuick.Layouts
import Vesk

/* What stands in an empty conversation. */
ColumnLayout {
    id: root

    signal drafted(string text)
    signal demoRequested()

    spacing: 14

    Face { Layout.alignment: Qt.AlignHCenter }
    LabelText {
        text: "Что сделаем сегодня?"
        font.pixelSize: Theme.headline
        font.weight: Font.DemiBold
        horizontalAlignment: Text.AlignHCenter
        Layout.fillWidth: true
    }
    LabelText {
        text: "Опишите задачу. Я подготовлю план и соберу команду."
        color: Theme.textNote
        horizontalAlignment: Text.AlignHCenter
        Layout.fillWidth: true
    }
    RowLayout {
        spacing: 10
        Layout.alignment: Qt.AlignHCenter
        Layout.topMargin: 6
        Action {
            objectName: "welcomeSite"
            text: "Создать сайт"
            onClicked: root.drafted("Создай сайт ")
        }
        Action {
            objectName: "welcomeImprove"
            text: "Улучшить проект"
            onClicked: root.drafted("Улучши проект: ")
        }
        Action {
            objectName: "welcomeDemo"
            text: "Посмотреть демо"
            onClicked: root.demoRequested()
        }
    }
}
