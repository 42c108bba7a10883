import Vesk

/* A low button, mostly with a sign instead of a word. */
Action {
    padding: 7
    leftPadding: 11
    rightPadding: 11
    implicitHeight: Theme.px(28)
}
