import QtQuick
import QtQuick.Layouts
import Vesk
import "../Wording.js" as Wording

/* One command that a run asks leave for: what would be run, then the request in full, and the answers. */
ColumnLayout {
    id: root

    required property var input
    /* The dialog around it has nothing else, and is closed here. */
    property bool closes: false

    signal decided(allow: bool)
    signal closed()

    spacing: 10

    Rectangle {
        color: Theme.code
        radius: 8
        Layout.fillWidth: true
        Layout.fillHeight: true // gives way in a low window
        Layout.minimumHeight: Theme.px(40)
        Layout.preferredHeight: Math.min(Theme.px(180), command.implicitHeight)
        Layout.maximumHeight: Layout.preferredHeight

        PlainArea {
            id: command
            objectName: "commandLine"
            anchors.fill: parent
            name: "Команда"
            text: Wording.visible(Wording.commandText(root.input))
            textFont.family: Theme.codeFamily
            textFont.pixelSize: Theme.body
        }
    }
    Heading { text: "ЗАПРОС ЦЕЛИКОМ" }
    PlainArea {
        objectName: "commandRequest"
        name: "Запрос целиком"
        text: Wording.visible(Wording.pretty(root.input))
        textColor: Theme.textDetail
        textFont.family: Theme.codeFamily
        textFont.pixelSize: Theme.note
        Layout.fillWidth: true
        Layout.fillHeight: true
        Layout.minimumHeight: Theme.px(30)
        Layout.preferredHeight: Math.min(Theme.px(60), implicitHeight) // the answers stay in sight
    }
    RowLayout {
        spacing: 10
        Action {
            visible: root.closes
            text: "Закрыть"
            onClicked: root.closed()
        }
        Item { Layout.fillWidth: true }
        Action {
            objectName: "denyCommand"
            text: "Запретить"
            onClicked: root.decided(false)
        }
        Action {
            objectName: "allowCommand"
            text: "Разрешить"
            primary: true
            onClicked: root.decided(true)
        }
    }
}
