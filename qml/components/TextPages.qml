import QtQuick

/* PageUp and PageDown in a text, which Qt Quick leaves to others: `Keys.forwardTo` leads here. A text that is in view as
   a whole leaves them to what lies around it. */
Item {
    id: root

    required property TextEdit area
    /* The height of what is in view. */
    required property real page

    Keys.onPressed: event => {
        const step = event.key === Qt.Key_PageDown ? 1 : event.key === Qt.Key_PageUp ? -1 : 0;
        event.accepted = step !== 0 && area.height > page + 1;
        if (!event.accepted)
            return;
        const here = area.cursorRectangle;
        const to = area.positionAt(here.x, Math.max(0, here.y + here.height / 2 + step * (page - here.height)));
        if (event.modifiers & Qt.ShiftModifier)
            area.moveCursorSelection(to);
        else
            area.cursorPosition = to;
    }
}
