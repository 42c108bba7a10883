import QtQuick
import QtQuick.Controls.Basic
import Vesk

/* Text of the interface. Never markup: what it shows may come from a model, a file or a user. */
Label {
    color: Theme.text
    wrapMode: Text.Wrap
    textFormat: Text.PlainText
}
