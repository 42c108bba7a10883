pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Basic
import Vesk

/* The projects to choose from, below the button with the name of the current one. */
Popup {
    id: root

    required property Backend service

    signal chosen()
    signal newProject()
    signal folderRequested()

    objectName: "projectMenu"
    padding: 6
    focus: true
    // A press on the button closes it by the button's own click.
    closePolicy: Popup.CloseOnEscape | Popup.CloseOnPressOutsideParent
    onOpened: (list.count > 0 ? list : contentItem.nextItemInFocusChain(true)).forceActiveFocus(Qt.TabFocusReason)
    Component.onCompleted: contentItem.parent.Accessible.name = list.Accessible.name

    TabKeys { ground: root.contentItem.parent }

    background: Rectangle {
        color: Theme.menu
        radius: 10
        border.color: Theme.menuBorder
        Shadow {}
    }
    contentItem: Column {
        spacing: 6
        PaneList {
            id: list
            objectName: "projectList"
            width: parent.width
            height: Math.min(Theme.px(240), contentHeight)
            spacing: 2
            Accessible.name: "Проекты"
            model: Rows {
                id: projects
                source: root.service
                list: "projects"
            }
            delegate: ListRow {
                id: project
                required property var row
                width: ListView.view.width
                height: Theme.px(32)
                padding: 8
                text: row.name
                fill: hovered ? Theme.menuHighlight : "transparent"
                contentItem: NameText {
                    text: project.text
                    font.pixelSize: Theme.note
                    verticalAlignment: Text.AlignVCenter
                }
                onClicked: root.choose(row.id)
            }
            onActivated: place => root.choose(projects.at(place).id)
        }
        Action {
            objectName: "menuNewProject"
            width: parent.width
            text: "Новый проект"
            onClicked: {
                root.close();
                root.newProject();
            }
        }
        Action {
            objectName: "menuOpenFolder"
            width: parent.width
            text: "Открыть свою папку…"
            onClicked: {
                root.close();
                root.folderRequested();
            }
        }
    }

    function choose(id: string) {
        close();
        service.selectProject(id);
        chosen();
    }
}
