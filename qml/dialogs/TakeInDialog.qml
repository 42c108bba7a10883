pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Vesk
import "../Wording.js" as Wording

/* What of a folder would become a project, and how far it is. */
FloatingDialog {
    id: root

    required property Backend service
    readonly property var about: service.takeIn
    readonly property string phase: about.phase ?? ""
    readonly property real share: (about.count ?? 0) > 0 ? (about.done ?? 0) / about.count : 0

    objectName: "takeIn"
    title: "Папка станет проектом"
    width: Math.min(Theme.px(480), (parent?.width ?? 480) - edge)
    onClosed: if (phase !== "taking") service.cancelFolder()
    onPhaseChanged: if (phase === "" && visible) close()

    contentItem: ColumnLayout {
        spacing: 12
        LabelText {
            text: root.about.folder ?? ""
            elide: Text.ElideMiddle
            wrapMode: Text.NoWrap
            Layout.fillWidth: true
        }
        LabelText {
            objectName: "takeInCount"
            text: (root.phase === "looking" ? "Смотрю… " : root.phase === "taking" ? "Принимаю: " + root.about.done + " из " : "Файлов: ")
                + (root.about.count ?? 0) + ", " + Wording.size(root.about.bytes ?? 0)
            font.weight: Font.DemiBold
            Layout.fillWidth: true
        }
        ProgressBar {
            visible: root.phase === "taking"
            value: root.share
            Accessible.name: "Принято " + Math.round(root.share * 100) + " %"
            Layout.fillWidth: true
        }
        SettingsScroll {
            id: notes
            rightPadding: 0
            Layout.fillWidth: true
            Layout.fillHeight: true
            Layout.preferredHeight: Math.min(lines.implicitHeight, (root.parent?.height ?? 999) - Theme.px(250))

            ColumnLayout {
                id: lines
                width: notes.availableWidth
                spacing: 12
                Note {
                    visible: root.about.large ?? false
                    text: "Папка большая: файл попадёт в историю, когда задача впервые его коснётся."
                    Layout.fillWidth: true
                }
                Repeater {
                    model: root.about.left ?? []
                    Note {
                        required property var modelData
                        text: "Не войдёт: " + modelData.reason + " — " + modelData.count
                        Layout.fillWidth: true
                    }
                }
                Note {
                    text: "Сами файлы не изменятся."
                    Layout.fillWidth: true
                }
            }
        }
        RowLayout {
            spacing: 10
            Layout.alignment: Qt.AlignRight
            Action {
                text: root.phase === "taking" ? "Скрыть" : "Отмена"
                onClicked: root.close()
            }
            Action {
                objectName: "acceptFolder"
                text: "Принять"
                primary: true
                visible: root.phase !== "taking"
                enabled: root.phase === "offer"
                onClicked: root.service.acceptFolder()
            }
        }
    }
}
