import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Vesk

/* The user's background script: written here, applied by a button, and told what is wrong with it. */
ColumnLayout {
    id: page

    required property Backend service
    readonly property string example: "return Array.from({length:12},(_,i)=>({type:'circle',x:w*(i+1)/13,y:h/2+Math.sin(t*.5+i)*h*.22,r:25+i*3,color:'#353535'}));"
    readonly property string applied: service.preferences.background_js ?? ""

    /* There is room for the script, its error and the buttons alone. */
    readonly property bool low: height < Theme.px(240)

    spacing: low ? 8 : 12
    Component.onCompleted: backgroundCode.text = applied

    /* As if typed, so that it can be undone. */
    function write(text: string) {
        backgroundCode.remove(0, backgroundCode.length);
        backgroundCode.insert(0, text);
    }
    function goToErrorLine() {
        backgroundCode.cursorPosition = backgroundCode.startOfLine(page.service.backgroundErrorLine);
        backgroundCode.forceActiveFocus();
    }

    LabelText {
        visible: !page.low
        text: "Свой живой фон"
        color: Theme.textStrong
        font.pixelSize: Theme.px(20)
    }
    LabelText {
        visible: !page.low
        text: "Верните массив фигур circle, line или rect. t — время, w и h — размер. Код выполняется отдельно от интерфейса."
        color: Theme.textStatus
        Layout.fillWidth: true
    }
    ScrollView {
        id: scroll
        clip: true
        Layout.fillWidth: true
        Layout.fillHeight: true
        background: Rectangle {
            color: Theme.code
            radius: 8
            border.color: backgroundCode.activeFocus ? Theme.fieldBorderFocus : Theme.fieldBorder
        }

        TextArea {
            id: backgroundCode
            objectName: "backgroundCode"
            placeholderText: "return [{type:'circle', x:w/2, y:h/2, r:80, color:'#303030'}];"
            Accessible.name: "Код фона"
            color: Theme.textMessage
            placeholderTextColor: Theme.placeholder
            font { family: Theme.codeFamily; pixelSize: Theme.body }
            textFormat: TextEdit.PlainText
            wrapMode: TextEdit.Wrap
            selectByMouse: true
            padding: 10
            Keys.forwardTo: [pages]

            TextPages {
                id: pages
                area: backgroundCode
                page: scroll.availableHeight
            }

            background: Rectangle {
                id: mark

                /* The text of the line that the error is about, as long as what stands here is what has failed. */
                readonly property int line: backgroundCode.text === page.applied ? page.service.backgroundErrorLine : 0
                readonly property rect from: place(backgroundCode.startOfLine(line))
                readonly property rect to: place(backgroundCode.startOfLine(line + 1) - 1)

                /* Of a character; to be found again when the lines are broken in other places. */
                function place(position: int): rect {
                    void backgroundCode.contentHeight;
                    return backgroundCode.positionToRectangle(Math.max(0, Math.min(position, backgroundCode.length)));
                }

                color: "transparent"
                Rectangle {
                    objectName: "errorMark"
                    visible: mark.line > 0
                    y: mark.from.y
                    width: parent.width
                    height: mark.to.y + mark.to.height - y
                    color: Theme.errorLine
                }
            }

            /* Where the line begins, counted from 1; behind the end for one that there is not. */
            function startOfLine(line: int): int {
                return text.split("\n").slice(0, line - 1).reduce((sum, part) => sum + part.length + 1, 0);
            }
        }
    }
    RowLayout {
        visible: page.service.backgroundError !== ""
        spacing: 8

        LiveText {
            objectName: "backgroundError"
            text: page.service.backgroundError
            color: Theme.textError
            Layout.fillWidth: true
        }
        SoftButton {
            objectName: "errorLine"
            visible: mark.line > 0
            text: "Строка " + mark.line
            onClicked: page.goToErrorLine()
        }
    }
    RowLayout {
        spacing: 8

        SoftButton {
            id: applyButton
            text: "Применить"
            onClicked: page.service.setPreference("background_js", backgroundCode.text)
        }
        SoftButton {
            text: "Пример"
            onClicked: page.write(page.example)
        }
        SoftButton {
            text: "Сбросить"
            onClicked: {
                page.write("");
                page.service.setPreference("background_js", "");
            }
        }
    }
}
