import Vesk

/* A low button, mostly with a sign instead of a word. */
Action {
    padding: 7
    topPadding: 2
    bottomPadding: 2
    leftPadding: 11
    rightPadding: 11
    implicitHeight: 28
}
