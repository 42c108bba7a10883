import QtQuick
import QtQuick.Controls.Basic
import Vesk

Switch {
    id: root

    spacing: 10
    contentItem: LabelText {
        leftPadding: root.indicator.width + root.spacing
        text: root.text
        verticalAlignment: Text.AlignVCenter
    }
}
