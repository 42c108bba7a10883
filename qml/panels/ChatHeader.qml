import QtQuick
import QtQuick.Layouts
import Vesk

/* State of the work and what to do about it. */
Rectangle {
    id: root

    required property Backend service
    required property string note
    required property bool live
    required property bool paused
    required property bool sidebarOpen
    required property string openPanel
    required property int fileCount

    signal sidebarRequested()
    signal connectionRequested()
    signal panelToggled(string panel)

    implicitHeight: 60
    color: Theme.centre

    RowLayout {
        anchors.fill: parent
        anchors.leftMargin: 22
        anchors.rightMargin: 22
        spacing: 10

        IconAction {
            objectName: "showSidebar"
            text: "☰"
            tip: "Показать панель"
            visible: !root.sidebarOpen
            onClicked: root.sidebarRequested()
        }
        IconAction {
            objectName: "apiButton"
            text: "API"
            tip: "Подключение модели"
            onClicked: root.connectionRequested()
        }
        NameText {
            objectName: "note"
            text: root.note
            Layout.fillWidth: true
        }
        IconAction {
            objectName: "pauseButton"
            text: root.paused ? "▶" : "Ⅱ"
            tip: root.paused ? "Продолжить" : "Пауза"
            visible: root.live
            onClicked: root.paused ? root.service.resume() : root.service.pause()
        }
        IconAction {
            objectName: "stopButton"
            text: "■"
            tip: "Остановить"
            visible: root.live || root.service.chatBusy
            onClicked: root.service.stop()
        }
        IconAction {
            objectName: "agentsToggle"
            text: "Агенты"
            checked: root.openPanel === "agents"
            Accessible.checkable: true
            Accessible.checked: checked
            onClicked: root.panelToggled("agents")
        }
        IconAction {
            objectName: "filesToggle"
            text: root.fileCount > 0 ? "Файлы · " + root.fileCount : "Файлы"
            checked: root.openPanel === "files"
            Accessible.checkable: true
            Accessible.checked: checked
            onClicked: root.panelToggled("files")
        }
    }
}
