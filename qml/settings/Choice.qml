pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls.Basic
import Vesk

/* One of a list. A long list is narrowed down by typing; rows are made only for what is in view. */
ComboBox {
    id: root

    readonly property bool isLong: count > 12
    property string name: ""
    /* No row is taken before the user takes one. */
    property bool startsEmpty: false
    /* What is searched, once something has been typed: asking the model at each key for thousands of rows is felt. */
    property var texts: []

    padding: 10
    leftPadding: 14
    font.pixelSize: Theme.body
    Accessible.name: displayText === "" ? name : name + ": " + displayText
    Accessible.onPressAction: popup.open()
    Keys.onReturnPressed: popup.open()
    Keys.onEnterPressed: popup.open()
    onModelChanged: if (startsEmpty) currentIndex = -1 // a new list would begin with its first row

    /* Places of the rows whose text contains what was typed. */
    function matching(typed: string): var {
        const wanted = typed.trim().toLowerCase();
        const places = Array.from({ length: count }, (_, i) => i);
        if (wanted === "")
            return places;
        if (texts.length !== count)
            texts = places.map(place => textAt(place).toLowerCase());
        return places.filter(place => texts[place].includes(wanted));
    }
    function choose(place: int) {
        currentIndex = place;
        popup.close();
        activated(place);
    }

    indicator: Sign {
        x: root.width - width - 12
        anchors.verticalCenter: parent.verticalCenter
        width: Theme.px(16)
        height: width
        sign: "▾"
        color: root.enabled ? Theme.softButtonText : Theme.softButtonTextDisabled
    }
    contentItem: Text {
        text: root.displayText
        rightPadding: Theme.px(24)
        font: root.font
        textFormat: Text.PlainText
        color: root.enabled ? Theme.softButtonText : Theme.softButtonTextDisabled
        elide: Text.ElideRight
        verticalAlignment: Text.AlignVCenter
    }
    background: Rectangle {
        implicitWidth: Theme.px(160)
        implicitHeight: Theme.px(40)
        radius: 10
        color: root.hovered && root.enabled ? Theme.softButtonHovered : Theme.softButton
        border.width: root.visualFocus ? 2 : 1
        border.color: root.visualFocus ? Theme.focus
            : root.hovered && root.enabled ? Theme.softButtonBorderHovered : Theme.softButtonBorder
    }
    popup: Popup {
        id: popup

        y: root.height + 4
        width: root.width
        padding: 6
        height: Math.min(Theme.px(320), (filter.visible ? filter.height + 6 : 0) + list.contentHeight + 12)
        Component.onCompleted: contentItem.parent.Accessible.name = root.name
        onAboutToShow: {
            root.texts = [];
            filter.clear();
            list.places = root.matching("");
            list.currentIndex = Math.max(0, root.currentIndex);
        }
        onOpened: {
            list.positionViewAtIndex(list.currentIndex, ListView.Contain);
            (root.isLong ? filter : list).forceActiveFocus();
        }

        TabKeys { ground: popup.contentItem.parent }

        background: Rectangle {
            color: Theme.menu
            radius: 10
            border.color: Theme.menuBorder
            Shadow {}
        }
        contentItem: Item {
            Input {
                id: filter
                objectName: "choiceFilter"
                visible: root.isLong
                width: parent.width
                padding: 8
                placeholderText: "Найти в списке"
                onTextChanged: {
                    list.places = root.matching(text);
                    list.currentIndex = 0;
                }
                Keys.onDownPressed: list.incrementCurrentIndex()
                Keys.onUpPressed: list.decrementCurrentIndex()
                onAccepted: list.accept()
            }
            ListView {
                id: list

                property var places: []

                function accept() {
                    if (currentIndex >= 0 && currentIndex < count)
                        root.choose(places[currentIndex]);
                }

                objectName: "choiceList"
                Accessible.role: Accessible.List
                Accessible.name: root.name
                activeFocusOnTab: true
                y: filter.visible ? filter.height + 6 : 0
                width: parent.width
                height: parent.height - y
                clip: true
                boundsBehavior: Flickable.StopAtBounds
                reuseItems: true
                model: places.length
                highlightMoveDuration: 0
                ScrollBar.vertical: ThinBar {}
                Keys.onReturnPressed: accept()
                Keys.onEnterPressed: accept()
                Keys.onSpacePressed: accept()
                delegate: ItemDelegate {
                    id: row
                    required property int index
                    readonly property int place: list.places[index] ?? -1
                    width: ListView.view.width
                    implicitHeight: Theme.px(32)
                    text: root.textAt(place)
                    Accessible.name: text
                    Accessible.selectable: true
                    Accessible.selected: highlighted
                    Accessible.onPressAction: click()
                    highlighted: ListView.isCurrentItem
                    onClicked: root.choose(place)
                    contentItem: Text {
                        text: row.text
                        textFormat: Text.PlainText
                        font.pixelSize: Theme.body
                        color: Theme.textMenu
                        elide: Text.ElideRight
                        verticalAlignment: Text.AlignVCenter
                    }
                    background: Rectangle {
                        radius: 6
                        color: row.highlighted || row.hovered ? Theme.menuHighlight : "transparent"
                    }
                }
            }
        }
    }
}
