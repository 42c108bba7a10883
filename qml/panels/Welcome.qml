import QtQuick
import QtQuick.Layouts
import Vesk

/* What stands in an empty conversation. */
ColumnLayout {
    id: root

    /* There is room for the words, and for little else. */
    property bool low: false

    signal drafted(string text)
    signal demoRequested()

    spacing: low ? 8 : 14

    Face {
        visible: !root.low
        Layout.alignment: Qt.AlignHCenter
    }
    LabelText {
        text: "Что сделаем сегодня?"
        font.pixelSize: Theme.headline
        font.weight: Font.DemiBold
        horizontalAlignment: Text.AlignHCenter
        Layout.fillWidth: true
    }
    LabelText {
        text: "Опишите задачу. Я подготовлю план и соберу команду."
        visible: !root.low || root.width > Theme.px(420)
        color: Theme.textNote
        horizontalAlignment: Text.AlignHCenter
        Layout.fillWidth: true
    }
    GridLayout {
        columns: site.implicitWidth + improve.implicitWidth + demo.implicitWidth + 20 <= root.width ? 3 : root.low ? 2 : 1
        columnSpacing: 10
        rowSpacing: 8
        Layout.alignment: Qt.AlignHCenter
        Layout.topMargin: 6
        Action {
            id: site
            objectName: "welcomeSite"
            Layout.fillWidth: true
            text: "Создать сайт"
            onClicked: root.drafted("Создай сайт ")
        }
        Action {
            id: improve
            objectName: "welcomeImprove"
            Layout.fillWidth: true
            text: "Улучшить проект"
            onClicked: root.drafted("Улучши проект: ")
        }
        Action {
            id: demo
            objectName: "welcomeDemo"
            Layout.fillWidth: true
            text: "Посмотреть демо"
            onClicked: root.demoRequested()
        }
    }
}
