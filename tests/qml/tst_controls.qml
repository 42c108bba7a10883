import QtQuick
import QtQuick.Controls.Basic as Basic
import QtTest
import Vesk

/* What one presses, drags and types into. */
Item {
    id: root
    width: 900
    height: 700

    Component { id: actionComponent; Action { text: "Создать" } }
    Component {
        id: handleComponent
        ColumnHandle {
            value: 236; from: 180; to: 380; direction: 1
            x: 400; width: 7; height: 300
            onMoved: next => value = next
        }
    }
    Component {
        id: menuComponent
        CompactMenu {
            property string chosen
            CompactMenuItem { text: "Переименовать"; onTriggered: chosen = text }
            CompactMenuItem { text: "<b>Скрыть</b>"; onTriggered: chosen = text }
        }
    }
    Component { id: spyComponent; SignalSpy {} }

    TestCase {
        name: "Controls"
        when: windowShown

        function spy(target, signalName) {
            return createTemporaryObject(spyComponent, root, { target, signalName });
        }
        function init() {
            failOnWarning(/.?/);
            Theme.animated = true;
            root.Window.window.requestActivate();
            tryVerify(() => root.Window.window.active);
        }

        function test_aButtonIsPressedByMouseAndKeyboard() {
            const button = createTemporaryObject(actionComponent, root);
            const clicks = spy(button, "clicked");
            button.forceActiveFocus(Qt.TabFocusReason);
            compare(button.background.border.width, 2);
            mouseClick(button);
            for (const key of [Qt.Key_Return, Qt.Key_Enter, Qt.Key_Space])
                keyClick(key);
            compare(clicks.count, 4);
            compare(button.Accessible.name, "Создать");
            button.tip = "Создать проект";
            compare(button.Accessible.name, "Создать проект");
            button.enabled = false;
            mouseClick(button);
            compare(clicks.count, 4);
            compare(button.contentItem.color, Qt.color("#666666"));
        }
        function test_aTipNeverTakesTheClick() {
            // At the upper edge, where a tip has no room above.
            const button = createTemporaryObject(actionComponent, root, { tip: "Создать проект" });
            const clicks = spy(button, "clicked");
            mouseMove(button, 10, 10);
            tryVerify(() => Array.from(button.children).some(child => child.item?.opened ?? false));
            mouseClick(button, 10, 10);
            compare(clicks.count, 1);
            mouseMove(root, 500, 500);
        }
        function test_aHandleKeepsToItsLimits_data() {
            return [
                { tag: "wider", direction: 1, by: 50, value: 286 },
                { tag: "too wide", direction: 1, by: 400, value: 380 },
                { tag: "too narrow", direction: 1, by: -300, value: 180 },
                { tag: "turned, too narrow", direction: -1, by: 400, value: 180 }
            ];
        }
        function test_aHandleKeepsToItsLimits(data) {
            const handle = createTemporaryObject(handleComponent, root, { direction: data.direction });
            const released = spy(handle, "released");
            mousePress(root, 403, 100);
            verify(!handle.dragging);
            mouseMove(root, 403 + data.by / 2, 120);
            verify(handle.dragging);
            mouseMove(root, 403 + data.by, 140);
            compare(released.count, 0);
            mouseRelease(root, 403 + data.by, 140);
            compare(handle.value, data.value);
            compare(released.count, 1);
            compare(released.signalArguments[0][0], data.value);
        }
        function test_aHandleIsMovedByTheArrows() {
            const handle = createTemporaryObject(handleComponent, root);
            handle.forceActiveFocus(Qt.TabFocusReason);
            keyClick(Qt.Key_Right);
            compare(handle.value, 246);
            handle.direction = -1;
            for (let i = 0; i < 20; ++i)
                keyClick(Qt.Key_Left);
            compare(handle.value, 380);
        }
        function test_aMenuIsWorkedByTheKeyboard() {
            const menu = createTemporaryObject(menuComponent, root);
            menu.popup(root, 20, 20);
            verify(menu.opacity < 1, "it fades in");
            tryCompare(menu, "opened", true);
            compare(menu.opacity, 1);
            keyClick(Qt.Key_Down);
            keyClick(Qt.Key_Down);
            compare(menu.itemAt(1).contentItem.textFormat, Text.PlainText);
            keyClick(Qt.Key_Return);
            compare(menu.chosen, "<b>Скрыть</b>");
            compare(menu.visible, false);
            menu.popup(root, 20, 20);
            tryCompare(menu, "opened", true);
            keyClick(Qt.Key_Escape);
            compare(menu.visible, false);
        }
        function test_withoutMotionAMenuIsThereAtOnce() {
            Theme.animated = false;
            const menu = createTemporaryObject(menuComponent, root);
            menu.popup(root, 20, 20);
            compare(menu.opacity, 1);
            menu.close();
        }
    }
}
