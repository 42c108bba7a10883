import QtQuick
import QtQuick.Layouts
import Vesk
import "../Wording.js" as Wording

/* What the team is doing and for how long, in two lines; the whole story opens apart. */
Rectangle {
    id: root

    required property string note
    required property string streamNote
    required property bool live
    /* Nothing goes on before the user has decided. */
    property bool waiting: false
    /* Backend.progress of the task. */
    property var progress: ({})
    property date now: new Date()
    readonly property bool ended: !live && !!progress.ended

    signal expanded()

    function sinceBegin(until: date): string {
        return Wording.duration(until - new Date(progress.began));
    }
    function result(): string {
        return "За " + sinceBegin(new Date(progress.ended)) + " · "
            + new Date(progress.ended).toLocaleString(Qt.locale("ru_RU"), "d MMMM, hh:mm");
    }

    implicitHeight: Math.max(62, line.implicitHeight + 16)
    radius: 16
    color: Theme.progressCard
    border.color: Theme.progressBorder
    Accessible.role: Accessible.Grouping
    Accessible.name: stage.text + ", " + remark.text
    onLiveChanged: now = new Date()

    Timer {
        interval: 1000
        repeat: true
        triggeredOnStart: true
        running: root.visible && root.live && !!root.progress.began
        onTriggered: root.now = new Date()
    }
    RowLayout {
        id: line
        anchors.fill: parent
        anchors.leftMargin: 18
        anchors.rightMargin: 14
        spacing: 14

        Rectangle {
            id: dot
            color: root.live ? Theme.dotLive : Theme.dotIdle
            radius: 4
            Layout.preferredWidth: 8
            Layout.preferredHeight: 8

            SequentialAnimation {
                running: root.visible && root.live && !root.waiting && Theme.animated
                loops: Animation.Infinite
                onRunningChanged: if (!running) dot.opacity = 1
                NumberAnimation { target: dot; property: "opacity"; to: .3; duration: 700 }
                NumberAnimation { target: dot; property: "opacity"; to: 1; duration: 700 }
            }
        }
        ColumnLayout {
            spacing: 2
            LabelText {
                id: stage
                objectName: "progressState"
                text: root.note + (root.live && root.progress.step ? " · " + root.progress.step : "")
                wrapMode: Text.NoWrap
                elide: Text.ElideRight
                Layout.fillWidth: true
            }
            Note {
                id: remark
                objectName: "progressNote"
                text: root.ended ? root.result() : !root.waiting && root.streamNote || "План, структура и действия команды"
                wrapMode: Text.NoWrap
                elide: Text.ElideRight
                Layout.fillWidth: true
            }
        }
        ColumnLayout {
            visible: root.live && !!root.progress.began
            spacing: 2
            Note {
                objectName: "progressSteps"
                visible: root.progress.steps > 0
                text: "Готово " + root.progress.done + " из " + root.progress.steps
                wrapMode: Text.NoWrap
                Layout.alignment: Qt.AlignRight
            }
            Note {
                objectName: "progressTime"
                text: root.live && root.progress.began ? root.sinceBegin(root.now) : ""
                wrapMode: Text.NoWrap
                Layout.alignment: Qt.AlignRight
            }
        }
        Action {
            objectName: "expandProgress"
            text: "Развернуть"
            onClicked: root.expanded()
        }
    }
}
