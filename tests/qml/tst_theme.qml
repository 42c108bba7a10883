import QtQuick
import QtTest
import Vesk
import Vesk.Test

/* Whether every text can be read on every ground that it stands on, in both looks, with glass and without. */
TestCase {
    name: "Theme"
    when: windowShown

    readonly property var columns: ["column", "inspector"]
    readonly property var rows: ["row", "rowHovered", "rowCurrent", "rowUnderPointer"]
    readonly property var dialogs: ["dialog", "popup", "settings", "settingsVeil"]
    readonly property var cards: ["card", "progressCard", "strip"]
    /* What the name of a text begins with, and where it stands. */
    readonly property var grounds: ({
        text: ["centre", "rowSelected", "menu", "menuHighlight", "chip"].concat(columns, rows, dialogs, cards),
        textStrong: ["softButtonHovered", "rowSelected", "popup"].concat(dialogs),
        textMessage: ["centre", "message", "code", "lineAdded", "lineRemoved"].concat(dialogs),
        textField: ["field"],
        textMenu: ["menu", "menuHighlight"],
        textCode: ["code", "lineAdded", "lineRemoved"],
        textNote: ["centre", "message", "code", "field", "row", "rowHovered", "rowCurrent"].concat(columns, dialogs, cards),
        textStatus: ["inspector", "softButton", "rowSelected"].concat(dialogs),
        textDetail: ["rowSelected", "tile", "chip", "lineAdded", "lineRemoved"].concat(dialogs, rows),
        textAside: dialogs,
        textRules: dialogs,
        textRemark: dialogs,
        textInput: ["field", "popupField"],
        textTitle: dialogs,
        textError: dialogs,
        buttonText: ["button", "buttonHovered"],
        buttonTextPrimary: ["buttonPrimary"],
        softButtonText: ["softButton", "softButtonHovered", "softButtonDown", "popupField"],
        nodeLabel: ["inspector", "nodeGround"],
        markOk: ["chip"].concat(rows, dialogs),
        markWarn: ["chip"].concat(rows, dialogs),
        markBad: ["chip"].concat(rows, dialogs),
        markWait: dialogs,
        window: ["dotOn"],
        placeholder: ["field", "code"],
        inputPlaceholder: ["field", "popupField"],
        softPlaceholder: ["popupField"],
        buttonTextDisabled: ["buttonDisabled"],
        softButtonTextDisabled: ["softButton"]
    })

    StandIn { id: desk }
    Component { id: windowComponent; Main { backend: desk } }
    Component { id: buttonComponent; Action {} }
    Component { id: signComponent; Sign {} }

    function cleanup() {
        Theme.look = "dark";
        Theme.glass = true;
        Theme.desktopPoints = 10;
        Theme.chosenTextScale = 0;
    }
    function light(part) {
        return part <= .03928 ? part / 12.92 : Math.pow((part + .055) / 1.055, 2.4);
    }
    function luminance(colour) {
        return .2126 * light(colour.r) + .7152 * light(colour.g) + .0722 * light(colour.b);
    }
    function over(ground, glass) {
        const mix = part => glass[part] * glass.a + ground[part] * (1 - glass.a);
        return Qt.rgba(mix("r"), mix("g"), mix("b"), 1);
    }
    function contrast(one, other) {
        const lights = [luminance(one), luminance(other)].sort((a, b) => b - a);
        return (lights[0] + .05) / (lights[1] + .05);
    }
    function least(text) {
        if (text.endsWith("Disabled"))
            return 2.5;
        return /placeholder/i.test(text) && !Theme.light ? 3.2 : 4.5;
    }
    function test_everyTextCanBeRead_data() {
        const data = [];
        for (const look of ["dark", "light"]) {
            for (const glass of [true, false])
                data.push({ tag: look + (glass ? " glass" : ""), look, glass });
        }
        return data;
    }
    function test_everyTextCanBeRead(data) {
        Theme.look = data.look;
        Theme.glass = data.glass;
        for (const text in grounds) {
            for (const ground of grounds[text]) {
                // Below glass lies the window; below a dialog, at worst its texts, blurred.
                const blurred = over(Theme.window, Qt.rgba(Theme.text.r, Theme.text.g, Theme.text.b, .5));
                const below = /dialog|Veil/.test(ground) ? [Theme.window, blurred] : [Theme.window];
                for (const base of below) {
                    const measured = contrast(Theme[text], over(base, Theme[ground]));
                    verify(measured >= least(text), text + " on " + ground + ": " + measured.toFixed(2));
                }
            }
        }
    }
    function test_noTextIsForgotten() {
        for (const name in Theme) {
            if (/text|placeholder|^mark/i.test(name) && typeof Theme[name].r === "number")
                verify(name in grounds, name);
        }
    }
    function test_theLookIsChosenInTheSettingsAndKept() {
        const app = createTemporaryObject(windowComponent, null);
        tryVerify(() => findChild(app.contentItem, "panelTitle") !== null);
        app.dialogs().workspaceSettings.show().open();
        findChild(app.dialogs().workspaceSettings.dialog.contentItem, "themeChoice").choose(1);
        compare(desk.preferences.theme, "light");
        compare(Theme.light, true);
        compare(app.color, Theme.window);
        app.close();
    }
    function test_textsAreAsLargeAsTheDesktopOrTheUserWants_data() {
        const row = (points, chosen, normal) => ({ tag: points + " pt, " + chosen, points, chosen, normal });
        return [row(10, 0, 14), row(9, 0, 14), row(11, 0, 14), row(12, 0, 17), row(8, 0, 13), row(30, 0, 21),
            row(-1, 0, 14), row(12, 1, 14), row(10, 1.25, 18), row(10, 9, 21)];
    }
    function test_textsAreAsLargeAsTheDesktopOrTheUserWants(data) {
        Theme.desktopPoints = data.points;
        Theme.chosenTextScale = data.chosen;
        compare(Theme.normal, data.normal);
    }
    function test_aSignOnAButtonIsDrawn_data() {
        const row = (text, words, before, behind) => ({ tag: text, words, before, behind });
        return [row("×", "", "×", ""), row("+  Новый чат", "Новый чат", "+", ""), row("Файл ↗", "Файл", "", "↗"),
            row("+1", "+1", "", ""), row("a×", "a×", "", ""), row("↑", "", "↑", "")];
    }
    function test_aSignOnAButtonIsDrawn(data) {
        const button = createTemporaryObject(buttonComponent, this, { text: data.tag });
        const shown = button.contentItem;
        compare([shown.text, shown.before, shown.behind], [data.words, data.before, data.behind]);
        for (const sign of shown.signs)
            verify(createTemporaryObject(signComponent, this, { sign }).known, sign);
    }
    function test_theLookFollowsTheDesktopOnlyWhenAsked() {
        for (const scheme of [Qt.ColorScheme.Light, Qt.ColorScheme.Dark, Qt.ColorScheme.Unknown]) {
            Theme.desktopScheme = scheme;
            for (const look of ["light", "dark", "system"]) {
                Theme.look = look;
                compare(Theme.light, look === "light" || look === "system" && scheme === Qt.ColorScheme.Light);
            }
        }
        Theme.desktopScheme = Qt.binding(() => Application.styleHints.colorScheme);
    }
}
