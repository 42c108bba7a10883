import QtQuick

/* A dialog that is made when it is first needed: starting the window doesn't wait for it. */
Loader {
    active: false

    function show(): var {
        active = true;
        return item;
    }
    function hide() {
        if (item)
            item.close();
    }
}
