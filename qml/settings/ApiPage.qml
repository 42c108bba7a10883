import QtQuick
import QtQuick.Layouts
import Vesk

/* Where the answers come from. */
SettingsScroll {
    id: page

    required property Backend service

    ColumnLayout {
        width: page.availableWidth
        spacing: 14

        MainApi {
            service: page.service
            Layout.fillWidth: true
        }
        LabelText {
            text: "Инструменты медиа"
            color: Theme.textStrong
            font.pixelSize: Theme.px(16)
            Layout.topMargin: 8
            Layout.fillWidth: true
        }
        Input {
            id: ffmpegPath
            objectName: "ffmpegPath"
            placeholderText: "Путь к FFmpeg — встроен в готовую сборку"
            // Not while somebody types: other preferences change, too.
            Binding on text {
                when: !ffmpegPath.activeFocus
                value: page.service.preferences.ffmpeg_path ?? ""
                restoreMode: Binding.RestoreNone
            }
            Layout.fillWidth: true
            onEditingFinished: page.service.setPreference("ffmpeg_path", text)
        }
        Input {
            id: blenderPath
            objectName: "blenderPath"
            placeholderText: "Путь к blender.exe — для сложных 3D-задач"
            // Not while somebody types: other preferences change, too.
            Binding on text {
                when: !blenderPath.activeFocus
                value: page.service.preferences.blender_path ?? ""
                restoreMode: Binding.RestoreNone
            }
            Layout.fillWidth: true
            onEditingFinished: page.service.setPreference("blender_path", text)
        }
        Separation { Layout.fillWidth: true }
        LabelText {
            text: "Другой провайдер"
            color: Theme.textStrong
            font.pixelSize: Theme.px(20)
            Layout.fillWidth: true
        }
        ApiSettings {
            objectName: "teamApi"
            service: page.service
            Layout.fillWidth: true
        }
        Separation { Layout.fillWidth: true }
        ServerForm {
            id: serverForm
            objectName: "serverForm"
            service: page.service
            Layout.fillWidth: true
            onSpeaksChanged: if (speaks) check.speaks = false
            onHeightChanged: if (speaks) Qt.callLater(page.show, serverForm)
        }
        Separation { Layout.fillWidth: true }
        ConnectionCheck {
            id: check
            objectName: "connectionCheck"
            service: page.service
            Layout.fillWidth: true
            onSpeaksChanged: if (speaks) serverForm.speaks = false
            onHeightChanged: if (speaks) Qt.callLater(page.show, check)
        }
        Item { Layout.preferredHeight: 16 }
    }
}
