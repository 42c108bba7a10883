pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Layouts
import Vesk

/* What each claim of a finished task rests on: one row each, unproved ones first. A row opens the record behind it. */
FloatingDialog {
    id: root

    required property Backend service
    property var proofs: ({})
    readonly property var rows: proofs.rows ?? []

    /* How many criteria are proved, and how many are not: {"level", "count"}. */
    readonly property var counts: proofs.counts ?? []

    signal detailsRequested(string text, list<string> pictures)

    objectName: "proofs"
    title: "Доказательства"
    width: Math.min(Theme.px(820), (parent?.width ?? 820) - 40)
    height: Math.min(Theme.px(640), (parent?.height ?? 640) - 40)

    /* At the first criterion with this mark, or at the top. */
    function begin(mark: string) {
        proofs = service.proofs();
        open();
        list.currentIndex = Math.max(0, rows.findIndex(row => row.mark === mark));
        list.positionViewAtIndex(list.currentIndex, ListView.Contain);
        list.forceActiveFocus();
    }
    function show(place: int) {
        const row = rows[place];
        detailsRequested(service.proofBehind(row.list, row.place), service.proofPictures(row.list, row.place));
    }
    function colourOf(level: string): color {
        return level === "proved" ? Theme.markOk : level === "seen" ? Theme.markWarn : Theme.markBad;
    }

    contentItem: ColumnLayout {
        spacing: 12
        LabelText {
            objectName: "proofsHeadline"
            text: root.proofs.headline || (root.rows.length > 0 ? "Критерии не были записаны."
                                                                : "У этой задачи нет записей о доказательствах.")
            font.pixelSize: Theme.title
            Layout.fillWidth: true
        }
        /* How much of it is green. */
        RowLayout {
            objectName: "proofsBar"
            visible: root.counts.some(part => part.count > 0)
            spacing: 3
            Layout.fillWidth: true
            Repeater {
                model: root.counts.filter(part => part.count > 0)
                Rectangle {
                    required property var modelData
                    implicitHeight: 6
                    radius: 3
                    color: root.colourOf(modelData.level)
                    Layout.fillWidth: true
                    Layout.horizontalStretchFactor: modelData.count
                }
            }
        }
        PaneList {
            id: list
            objectName: "proofRows"
            model: root.rows
            Layout.fillWidth: true
            Layout.fillHeight: true
            Accessible.name: root.title
            delegate: ListRow {
                id: row
                required property var modelData
                required property int index
                readonly property bool opensSection: index === 0 || root.rows[index - 1].section !== modelData.section
                width: ListView.view.width
                height: topInset + Math.max(44, line.implicitHeight + 16)
                topInset: opensSection ? Theme.px(30) : 0
                topPadding: topInset
                leftPadding: 12
                rightPadding: 12
                Accessible.name: modelData.marks.join(", ") + ": " + modelData.text
                onClicked: root.show(index)

                Heading {
                    visible: row.opensSection
                    y: Theme.px(8)
                    text: row.modelData.section
                }
                contentItem: RowLayout {
                    id: line
                    spacing: 12
                    /* Filled, half or hollow: the colour is not all that tells. */
                    Rectangle {
                        implicitWidth: 12
                        implicitHeight: 12
                        radius: 6
                        color: row.modelData.level === "proved" ? border.color : "transparent"
                        border.width: row.modelData.level === "seen" ? 4 : 2
                        border.color: root.colourOf(row.modelData.level)
                    }
                    Column {
                        Layout.fillWidth: true
                        LabelText {
                            width: parent.width
                            text: row.modelData.text
                            maximumLineCount: 2
                            elide: Text.ElideRight
                            font.pixelSize: Theme.body
                        }
                        Note {
                            visible: text !== ""
                            width: parent.width
                            text: row.modelData.note
                            maximumLineCount: 2
                            elide: Text.ElideRight
                            color: Theme.markBad
                        }
                    }
                    Repeater {
                        model: row.modelData.marks
                        Rectangle {
                            id: chip
                            required property string modelData
                            implicitWidth: mark.implicitWidth + 16
                            implicitHeight: mark.implicitHeight + 8
                            radius: height / 2
                            color: Theme.chip
                            Note {
                                id: mark
                                anchors.centerIn: parent
                                text: chip.modelData
                                wrapMode: Text.NoWrap
                                color: root.colourOf(row.modelData.level)
                            }
                        }
                    }
                }
            }
            onActivated: place => root.show(place)
        }
        RowLayout {
            spacing: 10
            Note {
                objectName: "proofsOpen"
                text: root.proofs.gaps?.length > 0 ? "Открытых вопросов: " + root.proofs.gaps.length : ""
                Layout.fillWidth: true
            }
            Action {
                objectName: "proofsGaps"
                text: "Что ещё проверить"
                visible: root.proofs.gaps?.length > 0
                onClicked: root.detailsRequested(root.proofs.gaps.map(gap => "• " + gap).join("\n"), [])
            }
        }
    }
}
