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
    property bool begun: false
    property string firstRow: ""
    property int known: 0

    function tell(text: string, atOnce: bool) {
        if (begun && text !== "")
            Accessible.announce(text, atOnce ? Accessible.Assertive : Accessible.Polite);
    }
    function tellRows() {
        // A line that is on its way has no id yet.
        const same = idOf(0) === firstRow || firstRow === "" && known === 1;
        for (let i = same ? known : chat.count; i < chat.count; ++i) {
            const row = chat.at(i);
            if (row.role !== "user")
                tell("VESK: " + (row.content ?? "").slice(0, 400), false);
        }
        firstRow = idOf(0);
        known = chat.count;
    }
    function tellQuestion() {
        tell(question && "Вопрос: " + question, true);
    }
    function idOf(place: int): string {
        return String(chat.at(place).id ?? "");
    }

    Accessible.ignored: true
    onNoteChanged: if (question === "") tell(note, note.startsWith("Нуж"))
    onApiStatusChanged: tell(apiStatus, false)
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
