import QtQuick

/* The keys of the whole window, while nothing lies over it; F1 and Ctrl+Q always. KeysDialog lists them. */
Item {
    id: root

    signal newChat()
    signal newProject()
    signal folderRequested()
    signal settingsRequested()
    signal panelCalled(string panel)
    signal sidebarToggled()
    signal conversationStepped(int rows)
    signal paneStepped(bool forward)
    signal inputRequested()
    signal helpRequested()
    signal endRequested()

    Shortcut {
        sequence: "Ctrl+N"
        onActivated: root.newChat()
    }
    Shortcut {
        sequence: "Ctrl+Shift+N"
        onActivated: root.newProject()
    }
    Shortcut {
        sequence: "Ctrl+O"
        onActivated: root.folderRequested()
    }
    Shortcut {
        sequence: "Ctrl+,"
        onActivated: root.settingsRequested()
    }
    Shortcut {
        sequence: "Ctrl+1"
        onActivated: root.panelCalled("agents")
    }
    Shortcut {
        sequence: "Ctrl+2"
        onActivated: root.panelCalled("files")
    }
    Shortcut {
        sequence: "Ctrl+3"
        onActivated: root.panelCalled("history")
    }
    Shortcut {
        sequence: "Ctrl+B"
        onActivated: root.sidebarToggled()
    }
    Shortcut {
        sequence: "Alt+Up"
        onActivated: root.conversationStepped(-1)
    }
    Shortcut {
        sequence: "Alt+Down"
        onActivated: root.conversationStepped(1)
    }
    Shortcut {
        sequence: "F6"
        onActivated: root.paneStepped(true)
    }
    Shortcut {
        sequence: "Shift+F6"
        onActivated: root.paneStepped(false)
    }
    Shortcut {
        sequence: "Ctrl+L"
        onActivated: root.inputRequested()
    }
    Shortcut {
        sequence: "F1"
        context: Qt.ApplicationShortcut
        onActivated: root.helpRequested()
    }
    Shortcut {
        sequence: "Ctrl+Q"
        context: Qt.ApplicationShortcut
        onActivated: root.endRequested()
    }
}
