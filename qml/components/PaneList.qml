import QtQuick
import QtQuick.Controls.Basic

/* A list that is worked by mouse and keyboard alike: arrows choose, Enter and Space act on the row chosen. */
ListView {
    id: root

    /* Has the focus without showing it, until a key is pressed. */
    property bool quiet: false

    signal activated(int place)
    /* The menu key on the row chosen, and Delete. */
    signal menuRequested(int place)
    signal removed(int place)
    /* F2, and Space in a list of which several rows can be taken. */
    signal renamed(int place)
    signal marked(int place)

    property bool marking: false

    function act(what: var): bool {
        if (currentIndex < 0 || currentIndex >= count)
            return false;
        what(currentIndex);
        return true;
    }

    /* A page on or back, or to an end; says whether the key does that. */
    function go(key: int): bool {
        const page = Math.max(1, Math.floor(height / Math.max(1, contentHeight / count)) - 1);
        const places = { [Qt.Key_PageUp]: currentIndex - page, [Qt.Key_PageDown]: currentIndex + page, [Qt.Key_Home]: 0,
                         [Qt.Key_End]: count - 1 };
        if (!(key in places))
            return false;
        currentIndex = Math.max(0, Math.min(count - 1, places[key]));
        return true;
    }

    clip: true
    spacing: 5
    boundsBehavior: Flickable.StopAtBounds
    // An item that has the focus can't be taken out of the order of Tab.
    activeFocusOnTab: count > 0 || activeFocus
    keyNavigationEnabled: true
    highlightMoveDuration: 0
    currentIndex: -1
    Accessible.role: Accessible.List
    ScrollBar.vertical: ThinBar {}
    Keys.onReturnPressed: event => event.accepted = act(activated)
    Keys.onEnterPressed: event => event.accepted = act(activated)
    Keys.onSpacePressed: event => event.accepted = act(marking ? marked : activated)
    Keys.onMenuPressed: event => event.accepted = act(menuRequested)
    Keys.onPressed: event => {
        quiet = false;
        if (event.key === Qt.Key_F10 && event.modifiers & Qt.ShiftModifier)
            event.accepted = act(menuRequested);
        else if (event.key === Qt.Key_F2)
            event.accepted = act(renamed);
        else
            event.accepted = keyNavigationEnabled && go(event.key);
    }
    Keys.onDeletePressed: event => event.accepted = act(removed)
    onActiveFocusChanged: {
        if (!activeFocus)
            quiet = false;
        else if (activeFocusOnTab && currentIndex < 0)
            currentIndex = 0;
    }
}
