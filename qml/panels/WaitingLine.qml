import QtQuick
import Vesk

/* Says that an answer is on its way. */
Item {
    id: root

    required property string streamNote

    implicitHeight: 32

    LabelText {
        id: line
        anchors.verticalCenter: parent.verticalCenter
        width: parent.width
        text: root.streamNote || "Ожидаю ответ сервера…"
        color: Theme.textNote
        wrapMode: Text.NoWrap
        elide: Text.ElideRight
    }
    SequentialAnimation {
        running: root.visible && Theme.animated
        loops: Animation.Infinite
        onRunningChanged: if (!running) line.opacity = 1
        NumberAnimation { target: line; property: "opacity"; to: .4; duration: 600 }
        NumberAnimation { target: line; property: "opacity"; to: 1; duration: 600 }
    }
}
