import QtQuick
import QtQuick.Layouts
import Vesk

/* One thing that was measured: a mark, what it is, and what was found. */
RowLayout {
    id: root

    required property var measure
    readonly property var looks: ({
        ok: { sign: "✓", color: Theme.markOk, word: "хорошо" },
        warn: { sign: "!", color: Theme.markWarn, word: "внимание" },
        bad: { sign: "×", color: Theme.markBad, word: "плохо" },
        wait: { sign: "…", color: Theme.markWait, word: "проверяется" },
    })
    readonly property var look: looks[measure.mark] ?? looks.wait

    objectName: "measureRow"
    spacing: 10
    Accessible.role: Accessible.StaticText
    Accessible.name: measure.name + ", " + look.word + ": " + measure.text

    LabelText {
        text: root.look.sign
        color: root.look.color
        font.pixelSize: Theme.body
        font.weight: Font.DemiBold
        horizontalAlignment: Text.AlignHCenter
        Layout.preferredWidth: Theme.px(16)
        Layout.alignment: Qt.AlignTop
    }
    LabelText {
        text: root.measure.name
        font.pixelSize: Theme.body
        Layout.preferredWidth: Theme.px(130)
        Layout.alignment: Qt.AlignTop
    }
    LabelText {
        text: root.measure.text
        color: Theme.textStatus
        font.pixelSize: Theme.body
        Layout.alignment: Qt.AlignTop
        Layout.fillWidth: true
    }
}
