import QtQuick

/* The keys of a text that Qt Quick leaves to others, or keeps to itself: `Keys.forwardTo` leads here. PageUp and PageDown
   turn pages, if there is more than is in view. Tab leads on; a text takes it before any shortcut does. */
Item {
    id: root

    required property TextEdit area
    /* The height of what is in view. */
    required property real page

    function turn(step: int, select: bool) {
        const here = area.cursorRectangle;
        const to = area.positionAt(here.x, Math.max(0, here.y + here.height / 2 + step * (page - here.height)));
        if (select)
            area.moveCursorSelection(to);
        else
            area.cursorPosition = to;
    }

    Keys.onPressed: event => {
        const turning = event.key === Qt.Key_PageDown || event.key === Qt.Key_PageUp;
        const leaving = event.key === Qt.Key_Tab || event.key === Qt.Key_Backtab;
        event.accepted = leaving || (turning && area.height > page + 1);
        // Beside a screen reader, which looks at each key first, a shortcut may have led on already.
        if (leaving && area.activeFocus)
            order.leave(area, event.key === Qt.Key_Tab && !(event.modifiers & Qt.ShiftModifier));
        else if (turning && event.accepted)
            turn(event.key === Qt.Key_PageDown ? 1 : -1, event.modifiers & Qt.ShiftModifier);
    }

    TabOrder { id: order }
}
