import QtQuick
import QtTest
import Vesk
import Vesk.Test

/* What a background script returns, as it is drawn, and the page on which it is written. */
Item {
    id: root
    width: 600
    height: 400

    StandIn {
        id: stub
        property var backgroundFrame: []
        property var preferences: ({})
        property string backgroundError: ""
        property int backgroundErrorLine: 0
        property var applied: []
        property int asked: 0
        function setPreference(key: string, value: var) { applied.push(key, value); }
        function renderBackground(time: real, width: int, height: int) { ++asked; }
    }
    CustomBackground {
        id: background
        width: 200
        height: 100
        service: stub
        animated: false
    }
    Component { id: pageComponent; BackgroundPage { width: 600; height: 400 } }
    SignalSpy { id: painted; target: background; signalName: "painted" }

    TestCase {
        name: "Background"
        when: windowShown

        function init() {
            failOnWarning(/.?/);
        }
        function draw(shapes) {
            tryVerify(() => !background.painting);
            painted.clear();
            stub.backgroundFrame = shapes;
            stub.backgroundChanged();
            tryVerify(() => painted.count > 0 && !background.painting);
            return grabImage(background);
        }
        function pageWith(script) {
            stub.preferences = { background_js: script };
            const page = createTemporaryObject(pageComponent, root, { service: stub });
            return { page, code: findChild(page, "backgroundCode") };
        }
        function buttonOf(item, text) {
            return item.text === text && item.clicked ? item
                : Array.from(item.children).map(child => buttonOf(child, text)).find(found => found) ?? null;
        }

        function test_whatComesDuringAFrameIsDrawnInTheNext() {
            background.opacity = 1;
            tryVerify(() => !background.painting);
            painted.clear();
            for (const color of ["red", "lime", "blue"]) {
                stub.backgroundFrame = [{ type: "rect", w: 200, h: 100, color }];
                stub.backgroundChanged();
            }
            tryVerify(() => painted.count === 2 && !background.painting);
            compare(grabImage(background).pixel(50, 50), "#0000ff");
        }
        function test_aShapeIsDrawnAsItSays() {
            const far = 1e308, red = "#ff0000", usual = "#303030", none = "#ffffff";
            const line = { type: "line", x: 0, y: 50, x2: 200, y2: 50, width: 99, color: red };
            background.opacity = 1;
            for (const [shape, x, y, color] of [
                [{ type: "circle", x: 50, y: 50, r: 20, color: red }, 65, 50, red],
                [{ type: "circle", x: 50, y: 50, r: 20, color: red }, 66, 66, none],
                [{ type: "circle", x: 50, y: 50, r: 0 }, 57, 50, usual],
                [{ type: "circle", x: null, y: "?", r: {} }, 5, 5, usual],
                [{ type: "rect", x: 20, y: 20, w: 30, h: 5, color: "red" }, 49, 24, red],
                [{ type: "rect", x: 20 }, 29, 9, usual],
                [line, 100, 64, red],
                [line, 100, 67, none],
                [{ type: "line", x: -far, y: -far, x2: far, y2: far }, 5, 95, none],
                [{ type: "star" }, 5, 5, none],
                [{}, 5, 5, none],
            ])
                compare(draw([shape]).pixel(x, y), color, JSON.stringify(shape));
            compare(draw([line, { type: "rect", color: "no colour" }]).pixel(5, 5), usual);
        }

        function test_framesAreAskedForOnlyWhileTheyCanBeSeen() {
            for (const [visible, animated, script, asks] of [
                [true, true, "x", true], [false, true, "x", false], [true, false, "x", false], [true, true, "", false]]) {
                background.visible = visible;
                background.animated = animated;
                stub.preferences = { background_js: script };
                stub.asked = 0;
                wait(350); // Three times its interval.
                compare(stub.asked > 1, asks);
            }
            background.animated = false;
        }

        function test_aScriptIsWrittenAndApplied() {
            const { page, code } = pageWith("return [1]");
            code.insert(0, "// ");
            stub.preferences = { background_js: "return [1]", glass: false };
            compare(code.text, "// return [1]"); // What is being typed stays.
            mouseClick(buttonOf(page, "Пример"));
            compare(stub.applied, []);
            mouseClick(buttonOf(page, "Применить"));
            code.undo();
            code.undo();
            compare(code.text, "// return [1]");
            mouseClick(buttonOf(page, "Сбросить"));
            compare([code.text, ...stub.applied], ["", "background_js", page.example, "background_js", ""]);
        }

        function test_anErrorIsToldWithItsLine() {
            const { page, code } = pageWith("let a = 1;\nnothing();\nreturn [a];");
            const mark = findChild(page, "errorMark");
            verify(!findChild(page, "backgroundError").visible && !mark.visible);
            stub.backgroundError = "ReferenceError";
            stub.backgroundErrorLine = 2;
            compare(mark.y, code.positionToRectangle(11).y);
            mouseClick(findChild(page, "errorLine"));
            compare(code.cursorPosition, 11);
            verify(findChild(page, "backgroundError").visible && mark.visible);
            keyClick(Qt.Key_Space);
            verify(!mark.visible); // It is another text now.
            keyClick(Qt.Key_Tab);
            verify(!code.activeFocus);
        }
    }
}
