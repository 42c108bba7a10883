pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Layouts
import Vesk

/* One commit of the task's files: what it would hold, and its message. */
FloatingDialog {
    id: root

    required property Backend service
    readonly property var about: service.commit
    readonly property string phase: about.phase ?? ""
    readonly property var files: (about.files ?? []).map(file => ({ path: file.path, note: file.change })).concat(
        (about.left ?? []).map(file => ({ path: file.path, note: "не войдёт: " + file.reason })))

    objectName: "commit"
    title: "Зафиксировать в git"
    width: Math.min(Theme.px(720), (parent?.width ?? 720) - 40)
    height: Math.min(Theme.px(640), (parent?.height ?? 640) - 40)
    onClosed: service.cancelCommit()

    function begin() {
        service.lookAtCommit();
        open();
    }

    contentItem: ColumnLayout {
        spacing: 12

        LiveText {
            objectName: "commitState"
            text: root.phase === "done" ? root.about.result : root.about.fault || root.service.message
                || (root.phase === "looking" ? "Смотрю…" : root.phase === "committing" ? "Фиксирую…"
                    : "Ветка " + root.about.branch + ", файлов: " + (root.about.files?.length ?? 0))
            font.weight: Font.DemiBold
            maximumLineCount: 8
            elide: Text.ElideRight
            Layout.fillWidth: true
        }
        PaneList {
            objectName: "commitFiles"
            visible: count > 0
            spacing: 2
            Layout.fillWidth: true
            Layout.fillHeight: true // gives way in a low window
            Layout.minimumHeight: 30
            Layout.preferredHeight: Math.min(Theme.px(180), contentHeight)
            Layout.maximumHeight: Layout.preferredHeight
            Accessible.name: "Файлы, которые будут зафиксированы"
            model: root.files
            delegate: ListRow {
                id: file
                required property var modelData
                width: ListView.view.width
                height: Theme.px(30)
                leftPadding: 10
                rightPadding: 10
                fill: Theme.row
                Accessible.name: modelData.path + ", " + modelData.note
                contentItem: RowLayout {
                    LabelText {
                        text: file.modelData.path
                        font.pixelSize: Theme.note
                        wrapMode: Text.NoWrap
                        elide: Text.ElideMiddle
                        Layout.fillWidth: true
                    }
                    Note {
                        text: file.modelData.note
                        font.pixelSize: Theme.caption
                    }
                }
            }
        }
        RulesInput {
            id: message
            objectName: "commitMessage"
            placeholderText: "Сообщение"
            enabled: root.phase === "offer"
            Layout.fillWidth: true
            Layout.fillHeight: true
            Layout.minimumHeight: Theme.px(44)

            Binding on text {
                when: root.phase === "looking"
                value: root.about.message ?? ""
                restoreMode: Binding.RestoreNone
            }
        }
        Note {
            visible: root.height > Theme.px(340)
            text: "Только эти файлы и только новая запись на этой ветке. Что ещё подготовлено в git, остаётся подготовленным; сценарии и подпись репозитория действуют как обычно."
            Layout.fillWidth: true
        }
        RowLayout {
            spacing: 10
            Layout.alignment: Qt.AlignRight
            Action {
                text: root.phase === "done" ? "Закрыть" : "Отмена"
                onClicked: root.close()
            }
            Action {
                objectName: "doCommit"
                text: "Зафиксировать"
                primary: true
                visible: root.phase !== "done"
                enabled: root.phase === "offer" && (root.about.files?.length ?? 0) > 0 && message.text.trim() !== ""
                onClicked: root.service.commitFiles(message.text)
            }
        }
    }
}
