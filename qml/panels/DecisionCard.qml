pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Vesk

/* A question of the run. */
Rectangle {
    id: root

    required property var decision
    /* The answers and the input box below need the room. */
    property bool low: false

    readonly property list<string> answers: Array.from(decision?.options ?? []).filter(option => typeof option === "string")
    /* The question with its answers, as it is read out. */
    readonly property string said: question.text + (answers.length > 0 ? " Варианты: " + answers.join("; ") : "")

    signal answered(string answer)
    signal ownAnswer()
    signal compared(string path)

    // In a low window the answers give way, and scroll.
    Layout.fillHeight: true
    Layout.minimumHeight: question.implicitHeight + 44 + Theme.px(40)
    Layout.maximumHeight: implicitHeight
    implicitHeight: content.implicitHeight + 32
    radius: 14
    color: Theme.card
    border.color: Theme.cardBorder
    Accessible.role: Accessible.Grouping
    Accessible.name: question.text

    ColumnLayout {
        id: content
        anchors { fill: parent; margins: 16 }
        spacing: 12

        LabelText {
            id: question
            objectName: "decisionQuestion"
            text: root.decision?.question || "Уточните задачу"
            font.weight: Font.DemiBold
            maximumLineCount: root.low ? 3 : 6
            elide: Text.ElideRight
            Layout.fillWidth: true
        }
        /* However many and long the answers are, the input box stays in sight. */
        Flickable {
            id: scroller
            clip: true
            boundsBehavior: Flickable.StopAtBounds
            contentHeight: choices.implicitHeight
            ScrollBar.vertical: ThinBar {}
            Layout.fillWidth: true
            Layout.fillHeight: true
            Layout.preferredHeight: Math.min(Theme.px(220), choices.implicitHeight)

            function reveal(top: real, bottom: real) {
                contentY = Math.max(Math.min(contentY, top), bottom - height);
            }

            Flow {
                id: choices
                width: content.width - (scroller.contentHeight > scroller.height ? 10 : 0) // beside the bar
                spacing: 8
                Repeater {
                    model: root.answers
                    Action {
                        required property string modelData
                        required property int index
                        objectName: "decisionOption" + index
                        text: modelData
                        wraps: true
                        primary: index === 0
                        width: Math.min(implicitWidth, choices.width)
                        onClicked: root.answered(modelData)
                        onVisualFocusChanged: if (visualFocus) scroller.reveal(y, y + height)
                    }
                }
                Repeater {
                    model: Array.from(root.decision?.paths ?? []).slice(0, 10)
                    Action {
                        required property string modelData
                        objectName: "decisionDifferences"
                        text: "Посмотреть различия: " + modelData
                        width: Math.min(implicitWidth, choices.width)
                        onClicked: root.compared(modelData)
                    }
                }
                Action {
                    objectName: "ownAnswer"
                    text: "Свой ответ"
                    onClicked: root.ownAnswer()
                    onVisualFocusChanged: if (visualFocus) scroller.reveal(y, y + height)
                }
            }
        }
    }
}
