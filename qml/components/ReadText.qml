import QtQuick
import Vesk

/* A text of a list's row that is read, selected and copied by keyboard, too: its row gives it the focus, and is told when
   an arrow leads out of it. */
TextEdit {
    id: root

    /* The cursor is between these heights now, and has left for the row that many places on, or, with 0, for the list. */
    signal cursorMoved(real top, real bottom)
    signal cursorLeft(int step)
    /* A text takes the key before any shortcut does. */
    signal tabPressed(bool forward)

    function read(atEnd: bool) {
        cursorPosition = atEnd ? length : 0;
        forceActiveFocus();
    }
    function tellCursor() {
        if (activeFocus)
            cursorMoved(cursorRectangle.y, cursorRectangle.y + cursorRectangle.height);
    }
    function leave(atEdge: bool, step: int, event: KeyEvent): bool {
        const leaving = atEdge && event.modifiers === Qt.NoModifier;
        if (leaving)
            root.cursorLeft(step);
        return leaving;
    }

    textFormat: TextEdit.PlainText
    readOnly: true
    cursorVisible: activeFocus
    selectByMouse: true
    selectByKeyboard: true
    wrapMode: TextEdit.Wrap
    color: Theme.textMessage
    selectionColor: Theme.dotOn
    selectedTextColor: Theme.window
    font.family: Theme.family
    onCursorRectangleChanged: tellCursor()
    onActiveFocusChanged: tellCursor()
    Keys.onUpPressed: event => event.accepted = leave(cursorRectangle.y < font.pixelSize / 2, -1, event)
    Keys.onDownPressed: event => {
        event.accepted = leave(cursorRectangle.y + 1.5 * cursorRectangle.height > height, 1, event);
    }
    Keys.onEscapePressed: root.cursorLeft(0)
    Keys.onTabPressed: if (activeFocus) root.tabPressed(true)
    Keys.onBacktabPressed: if (activeFocus) root.tabPressed(false)
}
