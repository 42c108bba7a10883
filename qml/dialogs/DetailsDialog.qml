import QtQuick
import QtQuick.Layouts
import Vesk

/* A long text of any kind. */
FloatingDialog {
    id: root

    property string detailsText: ""

    objectName: "details"
    title: "Подробности"
    width: Math.min(Theme.px(760), (parent?.width ?? 760) - 40)
    height: Math.min(Theme.px(640), (parent?.height ?? 640) - 40)

    contentItem: ColumnLayout {
        spacing: 12
        PlainArea {
            objectName: "detailsText"
            name: root.title
            text: root.detailsText
            textFont.pixelSize: Theme.body
            Layout.fillWidth: true
            Layout.fillHeight: true
        }
        Action {
            text: "Закрыть"
            Layout.alignment: Qt.AlignRight
            onClicked: root.close()
        }
    }
}
