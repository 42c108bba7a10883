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
        property var preferences: ({ background_js: "return []" })
        property string backgroundError: ""
        property int backgroundErrorLine: 0
        property var applied: []
        property int asked: 0
        function setPreference(key: string, value: var) {
            applied.push(key, value);
            preferences = { background_js: value };
        }
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
            background.visible = true;
            background.opacity = 1;
        }
        function draw(shapes) {
            tryVerify(() => !background.painting);
            painted.clear();
            stub.backgroundFrame = shapes;
            stub.backgroundChanged();
            tryVerify(() => painted.count > 0 && !background.painting);
            return grabImage(background);
        }

        function test_aShapeIsDrawnAsItSays_data() {
            const far = 1e308;
            return [
                { tag: "nothing", shape: {}, at: [5, 5], color: "#ffffff" },
                { tag: "a circle", shape: { type: "circle", x: 50, y: 50, r: 20, color: "#ff0000" }, at: [65, 50],
                  color: "#ff0000" },
                { tag: "outside of it", shape: { type: "circle", x: 50, y: 50, r: 20, color: "#ff0000" }, at: [66, 66],
                  color: "#ffffff" },
                { tag: "a usual circle", shape: { type: "circle", x: 50, y: 50, r: 0 }, at: [57, 50], color: "#303030" },
                { tag: "no number", shape: { type: "circle", x: null, y: "?", r: {} }, at: [5, 5], color: "#303030" },
                { tag: "a rectangle", shape: { type: "rect", x: 20, y: 20, w: 30, h: 5, color: "blue" }, at: [49, 24],
                  color: "#0000ff" },
                { tag: "a usual rectangle", shape: { type: "rect", x: 20 }, at: [29, 9], color: "#303030" },
                { tag: "a line", shape: { type: "line", x: 0, y: 50, x2: 200, y2: 50, width: 99, color: "#00ff00" },
                  at: [100, 64], color: "#00ff00" },
                { tag: "no wider", shape: { type: "line", x: 0, y: 50, x2: 200, y2: 50, width: 99, color: "#00ff00" },
                  at: [100, 67], color: "#ffffff" },
                { tag: "far away", shape: { type: "line", x: -far, y: -far, x2: far, y2: far, r: far, w: far }, at: [5, 95],
                  color: "#ffffff" },
                { tag: "another type", shape: { type: "star", x: 5, y: 5 }, at: [5, 5], color: "#ffffff" },
            ];
        }
        function test_aShapeIsDrawnAsItSays(data) {
            const image = draw([{ type: "rect", w: 200, h: 100, color: "#ffffff" }, data.shape]);
            compare(image.pixel(data.at[0], data.at[1]), data.color);
        }

        function test_aFrameReplacesTheOneBefore() {
            draw([{ type: "rect", w: 100, h: 100, color: "#ff0000" }]);
            const image = draw([{ type: "rect", x: 100, w: 100, h: 100, color: "#00ff00" }]);
            compare([image.pixel(50, 50), image.pixel(150, 50)].map(String), ["#ffffff", "#00ff00"]);
        }

        function test_framesAreAskedForOnlyWhileTheyCanBeSeen_data() {
            return [
                { tag: "seen", visible: true, animated: true, script: "return []", asks: true },
                { tag: "hidden", visible: false, animated: true, script: "return []", asks: false },
                { tag: "at rest", visible: true, animated: false, script: "return []", asks: false },
                { tag: "no script", visible: true, animated: true, script: "", asks: false },
            ];
        }
        function test_framesAreAskedForOnlyWhileTheyCanBeSeen(data) {
            background.visible = data.visible;
            background.animated = data.animated;
            stub.preferences = { background_js: data.script };
            stub.asked = 0;
            wait(350); // Three times its interval.
            compare(stub.asked > 1, data.asks);
            background.animated = false;
        }

        function test_aScriptIsWrittenAndApplied() {
            stub.preferences = { background_js: "return [1]" };
            stub.applied = [];
            const page = createTemporaryObject(pageComponent, root, { service: stub });
            const code = findChild(page, "backgroundCode");
            const press = text => mouseClick(buttonOf(page, text));
            compare(code.text, "return [1]");
            stub.preferences = { background_js: "return [1]", glass: false };
            code.insert(0, "// ");
            stub.preferences = { background_js: "return [1]" };
            compare(code.text, "// return [1]"); // What is being typed stays.
            press("Пример");
            compare(stub.applied, []);
            verify(code.text.startsWith("return Array.from({length:12}"));
            press("Применить");
            compare(stub.applied, ["background_js", page.example]);
            code.undo();
            code.undo();
            compare(code.text, "// return [1]");
            press("Сбросить");
            compare([code.text, ...stub.applied.slice(2)], ["", "background_js", ""]);
        }

        function test_anErrorIsToldWithItsLine() {
            const script = "let a = 1;\nnothing();\nreturn [a];";
            stub.preferences = { background_js: script };
            stub.backgroundError = "ReferenceError";
            stub.backgroundErrorLine = 2;
            const page = createTemporaryObject(pageComponent, root, { service: stub });
            const code = findChild(page, "backgroundCode"), mark = findChild(page, "errorMark");
            verify(findChild(page, "backgroundError").visible && mark.visible);
            compare(mark.y, code.positionToRectangle(script.indexOf("nothing")).y);
            compare(mark.height, code.positionToRectangle(0).height);
            mouseClick(findChild(page, "errorLine"));
            compare(code.cursorPosition, script.indexOf("nothing"));
            keyClick(Qt.Key_Space);
            verify(!mark.visible); // It is another text now.
            keyClick(Qt.Key_Tab);
            verify(!code.activeFocus);
            stub.backgroundError = "";
            verify(!findChild(page, "backgroundError").visible);
        }
        function buttonOf(item, text) {
            return item.text === text && item.clicked ? item
                : Array.from(item.children).map(child => buttonOf(child, text)).find(found => found) ?? null;
        }
    }
}
