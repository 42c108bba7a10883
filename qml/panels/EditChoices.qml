import QtQuick
import Vesk

/* Whose version of an edited file, or of all of them for an empty path, is to stand. */
Flow {
    id: root

    required property string path
    readonly property bool all: path === ""
    property int focusPolicy: Qt.TabFocus

    signal taken()
    signal undone()
    signal compared()

    spacing: 6

    Action {
        objectName: "takeEdit" + root.path
        focusPolicy: root.focusPolicy
        text: root.all ? "Взять все мои версии" : "Взять мою версию"
        primary: root.all
        Accessible.name: root.all ? text : text + ": " + root.path
        onClicked: root.taken()
    }
    Action {
        objectName: "undoEdit" + root.path
        focusPolicy: root.focusPolicy
        text: root.all ? "Вернуть все версии программы" : "Вернуть версию программы"
        Accessible.name: root.all ? text : text + ": " + root.path
        onClicked: root.undone()
    }
    Action {
        objectName: "compareEdit" + root.path
        focusPolicy: root.focusPolicy
        text: "Посмотреть различия"
        visible: !root.all
        Accessible.name: text + ": " + root.path
        onClicked: root.compared()
    }
}
