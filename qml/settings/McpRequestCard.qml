import QtQuick
import QtQuick.Layouts
import Vesk
import "../Wording.js" as Wording

/* A server that a file of the project describes, in full, and the two answers to it. */
Rectangle {
    id: root

    required property var request
    signal decided(allow: bool)

    /* What is run comes first. */
    readonly property var entry: ({
        program: request.program, arguments: request.arguments, cwd: request.cwd, environment: request.environment,
        url: request.url, headers: request.headers, source: request.source
    })

    implicitHeight: content.implicitHeight + 24
    radius: 12
    color: Theme.rowSelected
    border.color: Theme.cardBorder

    ColumnLayout {
        id: content
        anchors { left: parent.left; right: parent.right; top: parent.top; margins: 12 }
        spacing: 8
        LabelText {
            text: "«" + Wording.visible(root.request.name ?? "") + "» описан в файле проекта. Подключить?"
            maximumLineCount: 2
            elide: Text.ElideRight
            Layout.fillWidth: true
        }
        PlainArea {
            objectName: "serverEntry"
            name: "Запуск сервера"
            text: Wording.visible(Wording.pretty(root.entry))
            textFont.family: Theme.codeFamily
            textFont.pixelSize: Theme.note
            Layout.fillWidth: true
            Layout.preferredHeight: Math.min(Theme.px(220), implicitHeight)
        }
        RowLayout {
            spacing: 10
            Layout.alignment: Qt.AlignRight
            Action {
                objectName: "denyServer"
                text: "Запретить"
                onClicked: root.decided(false)
            }
            Action {
                objectName: "allowServer"
                text: "Разрешить"
                primary: true
                onClicked: root.decided(true)
            }
        }
    }
}
