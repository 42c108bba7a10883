import QtQuick
import Vesk

/* Whose version of an edited file, or of all of them for an empty path, is to stand. */
Flow {
    id: root

    required property string path
    readonly property bool all: path === ""
    property int focusPolicy: Qt.TabFocus
    /* On one line; `implicitWidth` is that of the lines there are. */
    readonly property real lineWidth: take.implicitWidth + undo.implicitWidth + (all ? 6 : compare.implicitWidth + 12)

    signal taken()
    signal undone()
    signal compared()

    spacing: 6

    Action {
        id: take
        objectName: "takeEdit" + root.path
        focusPolicy: root.focusPolicy
        text: root.all ? "Взять все мои версии" : "Взять мою версию"
        primary: root.all
        Accessible.name: root.all ? text : text + ": " + root.path
        onClicked: root.taken()
    }
    Action {
        id: undo
        objectName: "undoEdit" + root.path
        focusPolicy: root.focusPolicy
        text: root.all ? "Вернуть все версии программы" : "Вернуть версию программы"
        Accessible.name: root.all ? text : text + ": " + root.path
        onClicked: root.undone()
    }
    Action {
        id: compare
        objectName: "compareEdit" + root.path
        focusPolicy: root.focusPolicy
        text: "Посмотреть различия"
        visible: !root.all
        Accessible.name: text + ": " + root.path
        onClicked: root.compared()
    }
}
