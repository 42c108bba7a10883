import Vesk

/* The small spaced heading of a section. */
Note {
    font.pixelSize: Theme.caption
    font.letterSpacing: 1.5
}
