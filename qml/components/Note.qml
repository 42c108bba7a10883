import Vesk

/* A remark beside something. */
LabelText {
    color: Theme.textNote
    font.pixelSize: Theme.note
}
