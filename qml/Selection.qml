import QtQuick
import Vesk

/* The file and the run that are in view. They follow what becomes of them. */
QtObject {
    id: root

    required property Backend service
    property var file: ({})
    property var run: ({})

    /* The run has another status. */
    signal runMoved()

    function dropFile() {
        file = {};
    }
    function refresh() {
        if (file.path) {
            // Asked of the backend itself: the rows follow the same signal, and may do so later.
            const now = service.files.find(other => other.path === file.path);
            if (!now)
                dropFile();
            else if (now.revision !== file.revision)
                file = now;
        }
        if (run.id) {
            const now = (service.uiState.runs ?? []).find(other => other.id === run.id);
            if (now && now.status !== run.status) {
                run = now;
                runMoved();
            }
        }
    }
}
