pragma ComponentBehavior: Bound
import QtQuick
import Vesk

/* What stands on a button: words, with a drawn sign before or behind them, or a sign alone. */
Text {
    id: root

    required property string label
    /* A sign at the right edge, whatever the words are. */
    property string trailing: ""
    /* Whether a long text takes several lines. */
    property bool wraps: false

    readonly property string signs: "×+‹▾⋯☰Ⅱ▶■↑↓↗▤"
    readonly property string before: signAt(0, 1)
    readonly property string behind: trailing || before === label ? trailing : signAt(label.length - 1, label.length - 2)
    readonly property int side: Theme.px(15)
    readonly property int gap: text === "" ? 0 : 6

    /* The sign at a place, when the place beside it is empty. */
    function signAt(place: int, beside: int): string {
        const sign = label.charAt(place);
        return sign !== "" && signs.includes(sign) && label.charAt(beside).trim() === "" ? sign : "";
    }

    text: label.slice(before.length, trailing || !behind ? undefined : -1).trim()
    textFormat: Text.PlainText
    elide: wraps ? Text.ElideNone : Text.ElideRight
    wrapMode: wraps ? Text.Wrap : Text.NoWrap
    horizontalAlignment: Text.AlignHCenter
    verticalAlignment: Text.AlignVCenter
    leftPadding: before ? side + gap : 0
    rightPadding: behind ? side + gap : 0

    readonly property real wordsAt: leftPadding + Math.max(0, (width - leftPadding - rightPadding - contentWidth) / 2)

    Loader {
        active: root.before !== ""
        x: Math.round(root.wordsAt - root.leftPadding)
        y: Math.round((root.height - root.side) / 2)
        sourceComponent: Sign {
            width: root.side
            height: root.side
            sign: root.before
            color: root.color
        }
    }
    Loader {
        active: root.behind !== ""
        x: Math.round(root.trailing ? root.width - root.side : root.wordsAt + root.contentWidth + root.gap)
        y: Math.round((root.height - root.side) / 2)
        sourceComponent: Sign {
            width: root.side
            height: root.side
            sign: root.behind
            color: root.color
        }
    }
}
