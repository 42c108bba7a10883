import QtQuick
import QtQuick.Layouts
import Vesk

/* A long text of any kind, or a record as fields, with what it is made of a button away. */
FloatingDialog {
    id: root

    property string detailsText: ""
    property list<var> fields: []
    /* Addresses of pictures that belong to the text. */
    property list<string> pictures: []
    /* Gives the text that the fields were taken from. */
    property var source: null
    readonly property bool record: fields.length > 0
    property bool rawShown: false
    readonly property int tallest: Math.min(Theme.px(640), (parent?.height ?? 680) - 40)

    function showText(text: string) {
        show(text, [], null, tallest);
    }
    function showPictures(text: string, addresses: list<string>) {
        showText(text);
        pictures = addresses;
    }
    function showRecord(shown: list<var>, whole: var) {
        const lines = shown.every(field => !field.raw && field.text.length < 80) ? shown.length : 99;
        show("", shown, whole, Theme.px(176 + 32 * Math.max(2, lines)));
    }
    function show(text: string, shown: list<var>, whole: var, wanted: int) {
        rawShown = false;
        pictures = [];
        detailsText = text;
        source = whole;
        fields = shown;
        height = Math.min(tallest, wanted);
        open();
    }
    function toggleRaw() {
        rawShown = !rawShown;
        detailsText = rawShown ? source.call(null) : "";
        height = Math.max(height, tallest);
        fit();
    }

    objectName: "details"
    title: "Подробности"
    width: Math.min(Theme.px(760), (parent?.width ?? 760) - 40)
    height: tallest

    contentItem: ColumnLayout {
        spacing: 12
        FieldList {
            objectName: "detailsFields"
            visible: root.record && !root.rawShown
            name: root.title
            fields: root.fields
            Layout.fillWidth: true
            Layout.fillHeight: true
        }
        Row {
            visible: root.pictures.length > 0
            spacing: 10
            Layout.fillWidth: true
            Repeater {
                model: root.pictures
                Image {
                    required property string modelData
                    objectName: "detailsPicture"
                    source: modelData
                    asynchronous: true
                    cache: false
                    height: Theme.px(220)
                    fillMode: Image.PreserveAspectFit
                    Accessible.role: Accessible.Graphic
                    Accessible.name: "Снимок страницы"
                }
            }
        }
        PlainArea {
            objectName: "detailsText"
            visible: !root.record || root.rawShown
            name: root.title
            text: root.detailsText
            textFont.pixelSize: root.rawShown ? Theme.small : Theme.body
            textFont.family: root.rawShown ? Theme.codeFamily : Theme.family
            Layout.fillWidth: true
            Layout.fillHeight: true
        }
        RowLayout {
            spacing: 10
            Action {
                objectName: "rawData"
                text: root.rawShown ? "Коротко" : "Исходные данные"
                visible: root.record
                onClicked: root.toggleRaw()
            }
            Item { Layout.fillWidth: true }
            Action {
                text: "Закрыть"
                onClicked: root.close()
            }
        }
    }
}
