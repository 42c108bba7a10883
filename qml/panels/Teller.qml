import QtQuick
import Vesk

/* Tells a screen reader what others see happen: answers, questions, what the team does now. What is in view already,
   and another conversation that is opened, are not told. */
Item {
    id: root

    required property Backend service
    /* What goes on, in a few words. */
    required property string note
    /* The question that waits for an answer; empty: none. */
    required property string question
    /* Of connecting a model, and of looking for one on this computer. */
    readonly property string apiStatus: service.apiStatus
    readonly property string serverStatus: service.serverStatus
    /* Of the team, which can be taken back. */
    readonly property string change: service.networkUndo
    property bool begun: false
    property string beginning: ""
    property int known: 0

    function tell(text: string, atOnce: bool) {
        if (begun && text !== "")
            Accessible.announce(text, atOnce ? Accessible.Assertive : Accessible.Polite);
    }
    function tellRows() {
        // Not by its id: a line that is on its way has none yet.
        const begin = chat.at(0).content ?? "";
        const same = begin === beginning;
        for (let i = same ? known : chat.count; i < chat.count; ++i) {
            const row = chat.at(i);
            if (row.role !== "user")
                tell("VESK: " + (row.content ?? "").slice(0, 400), false);
        }
        beginning = begin;
        known = chat.count;
    }
    function tellQuestion() {
        tell(question && "Вопрос: " + question, true);
    }

    Accessible.ignored: true
    onNoteChanged: if (question === "") tell(note, note.startsWith("Нуж"))
    onApiStatusChanged: tell(apiStatus, false)
    onChangeChanged: tell(change, false)
    onServerStatusChanged: tell(serverStatus, false)
    Component.onCompleted: begun = true
    onQuestionChanged: if (question !== "") Qt.callLater(tellQuestion) // it may come in pieces

    Rows {
        id: chat
        source: root.service
        list: "chat"
        without: ["progress", "file", "question"]
        onCountChanged: root.tellRows()
    }
}
