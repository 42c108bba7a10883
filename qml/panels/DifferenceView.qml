pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Vesk

/* Files that differ and, of one of them, the lines. */
RowLayout {
    id: root

    required property Differences differences
    property real shift: 0
    /* Whether there is room for two texts beside each other, and whether they are wanted so. */
    readonly property bool wide: ground.width >= Theme.px(560)
    property bool besideWanted: true

    spacing: 12

    Binding {
        target: root.differences
        property: "dark"
        value: Theme.code.hslLightness < 0.5
    }

    Binding {
        when: root.visible && ground.width > 0
        target: root.differences
        property: "beside"
        value: root.besideWanted && root.wide
        restoreMode: Binding.RestoreNone
    }

    function go(forward: bool) {
        const row = differences.lines.change(lines.currentIndex, forward);
        if (row < 0)
            return;
        lines.currentIndex = row;
        lines.positionViewAtIndex(row, ListView.Center);
    }

    PaneList {
        id: fileList
        objectName: "differenceFiles"
        visible: root.differences.files.length > 1
        Layout.preferredWidth: Math.min(Theme.px(240), root.Window.width * .24)
        Layout.fillHeight: true
        Accessible.name: "Изменённые файлы"
        model: root.differences.files
        delegate: ListRow {
            id: file
            required property var modelData
            width: ListView.view.width
            height: Theme.px(46)
            topPadding: Theme.px(6)
            leftPadding: 10
            rightPadding: 10
            chosen: modelData.path === root.differences.path
            fill: chosen ? Theme.rowSelected : hovered ? Theme.rowUnderPointer : Theme.row
            Accessible.name: modelData.path + ", " + counts.text
            onClicked: root.differences.select(modelData.path)

            contentItem: Column {
                spacing: 2
                NameText {
                    width: parent.width
                    text: file.modelData.path
                    font.pixelSize: Theme.note
                    elide: Text.ElideMiddle
                }
                Note {
                    id: counts
                    color: Theme.textDetail
                    text: file.modelData.change + (file.modelData.known
                        ? "  +" + file.modelData.added + "  −" + file.modelData.removed : "")
                    font.pixelSize: Theme.caption
                }
            }
        }
        onActivated: place => root.differences.select(root.differences.files[place].path)
    }
    ColumnLayout {
        spacing: 8
        Layout.fillWidth: true
        Layout.fillHeight: true

        RowLayout {
            spacing: 8
            NameText {
                objectName: "differencePath"
                text: root.differences.path
                elide: Text.ElideMiddle
                Layout.fillWidth: true
            }
            IconAction {
                objectName: "previousChange"
                enabled: root.differences.note === ""
                text: "↑"
                tip: "Предыдущее изменение"
                onClicked: root.go(false)
            }
            IconAction {
                objectName: "nextChange"
                enabled: root.differences.note === ""
                text: "↓"
                tip: "Следующее изменение"
                onClicked: root.go(true)
            }
            Action {
                objectName: "besideToggle"
                visible: root.wide
                text: root.differences.beside ? "Друг под другом" : "Рядом"
                onClicked: root.besideWanted = !root.besideWanted
            }
        }
        Rectangle {
            id: ground
            color: Theme.code
            radius: 8
            Layout.fillWidth: true
            Layout.fillHeight: true

            Rectangle {
                visible: root.differences.beside && lines.count > 0
                anchors { top: parent.top; bottom: parent.bottom; horizontalCenter: parent.horizontalCenter }
                width: 1
                color: Theme.rule
            }
            PaneList {
                id: lines
                objectName: "differenceLines"
                anchors.fill: parent
                anchors.margins: 4
                spacing: 0
                reuseItems: true
                Accessible.name: "Различия: " + root.differences.path
                model: root.differences.lines
                delegate: DifferenceLine {
                    width: ListView.view.width
                    beside: root.differences.beside
                    current: ListView.isCurrentItem && lines.activeFocus
                    shift: root.shift
                    onOpened: root.differences.lines.unfold(index)
                }
                onActivated: place => root.differences.lines.unfold(place)
                Keys.onLeftPressed: root.shift = Math.max(0, root.shift - 80)
                Keys.onRightPressed: root.shift = Math.min(7000, root.shift + 80)

                WheelHandler {
                    acceptedModifiers: Qt.ShiftModifier
                    onWheel: event => root.shift
                        = Math.max(0, Math.min(7000, root.shift - (event.angleDelta.y || event.angleDelta.x)))
                }
                Note {
                    anchors.fill: parent
                    anchors.margins: 12
                    visible: text !== ""
                    text: root.differences.note
                }
            }
        }
    }
}
