import QtQuick
import QtQuick.Controls.Basic

/* Where Tab leads within a part of the window, and what that brings into view. */
QtObject {
    function holds(outer: Item, inner: Item): bool {
        for (let it = inner; it; it = it.parent) {
            if (it === outer)
                return true;
        }
        return false;
    }
    /* The list in whose row the item is. */
    function listAround(item: Item): ListView {
        for (let it = item.parent; it; it = it.parent) {
            const list = it as ListView;
            if (list?.activeFocusOnTab)
                return item === list.currentItem ? null : list;
        }
        return null;
    }
    function step(ground: Item, forward: bool) {
        const here = ground.Window.activeFocusItem;
        let stop = holds(ground, here) ? here : ground;
        while (stop !== ground && !stop.activeFocusOnTab)
            stop = stop.parent; // from a row to its list
        let next = stop === ground && holds(ground, here) ? here : stop;
        for (let i = 0; i < 1000; ++i) {
            next = next.nextItemInFocusChain(forward);
            if (next !== ground && holds(ground, next))
                break;
        }
        const list = forward || !here ? null : listAround(here);
        if (list && !holds(list, next))
            next = list; // the way back would leave it out
        // Of a list the row, not what had the focus in it last.
        next = (next as PaneList)?.currentItem ?? next;
        next.forceActiveFocus(forward ? Qt.TabFocusReason : Qt.BacktabFocusReason);
        reveal(next);
    }
    /* From what the item holds on, within what lies topmost. */
    function leave(item: Item, forward: bool) {
        step(topmost(item.Overlay.overlay) ?? item.Window.contentItem, forward);
    }
    /* Into a part of the window: on its list, or else its first control. */
    function enter(ground: Item) {
        let first = null;
        for (let next = ground.nextItemInFocusChain(true); holds(ground, next); next = next.nextItemInFocusChain(true)) {
            if (next === first)
                break;
            first = first ?? next;
            if (next as PaneList) {
                first = next;
                break;
            }
        }
        first?.forceActiveFocus(Qt.TabFocusReason);
    }
    function reveal(item: Item) {
        for (let it = item.parent; it; it = it.parent) {
            const view = it as Flickable;
            if (!view || item.height > view.height || item.parent === view)
                continue;
            const top = item.mapToItem(view, 0, 0).y;
            const beyond = top < 0 ? top : Math.max(0, top + item.height - view.height);
            if (beyond === 0)
                continue;
            view.contentY += beyond;
            view.movementEnded(); // as if the user had scrolled: who follows an end must not go back there
        }
    }
    /* Of what lies over the window the topmost that has a control: a tool tip has none. */
    function topmost(overlay: Item): Item {
        return Array.from(overlay?.children ?? []).reverse().find(over => over.visible
            && holds(over, over.nextItemInFocusChain(true))) ?? null;
    }
}
