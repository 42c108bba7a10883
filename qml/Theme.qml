pragma Singleton
import QtQuick

/* The look of the application: a monochrome workspace, dark or light. Names say what a value is for. A text is at least
   4.5 times as light as its ground, or as dark; only the hints in empty fields of the dark look stay below that. */
QtObject {
    id: theme

    /* Follows the window: nothing moves while it is inactive or the user has switched motion off. */
    property bool animated: true
    property bool glass: true
    /* What the user has chosen: "dark", "light" or "system". A desktop that tells neither is taken for a dark one. */
    property string look: "dark"
    property int desktopScheme: Application.styleHints.colorScheme
    readonly property bool light: look === "light" || look === "system" && desktopScheme === Qt.ColorScheme.Light

    /* How large texts are, and what holds them: what the user has set, or, with 0, as the desktop's own font asks.
       Desktops come with fonts of 9 to 11 points; who has another has chosen it. */
    property real chosenTextScale: 0
    property real desktopPoints: 10
    readonly property real desktopTextScale: desktopPoints <= 0 || desktopPoints >= 9 && desktopPoints <= 11 ? 1
        : desktopPoints / 10
    readonly property real textScale: Math.max(.9, Math.min(1.5, chosenTextScale || desktopTextScale))

    /* A size that grows with the texts. */
    function px(size: real): int {
        return Math.round(size * textScale);
    }

    // Surfaces, from the back to the front
    readonly property color window: light ? "#f3f3f3" : "#111111"
    readonly property color centre: light ? "#f3f3f3" : "#111111"
    readonly property color column: glass ? (light ? "#bde6e6e6" : "#bd202020") : light ? "#ebebeb" : "#181818"
    readonly property color inspector: glass ? (light ? "#b5e9e9e9" : "#b51c1c1c") : light ? "#eeeeee" : "#151515"
    readonly property color strip: light ? "#e4e4e4" : "#262626"
    readonly property color card: light ? "#ffffff" : "#1f1f1f"
    readonly property color progressCard: glass ? (light ? "#a8ffffff" : "#a82a2a2a") : light ? "#fcfcfc" : "#242424"
    readonly property color message: light ? "#e3e3e3" : "#252525"
    readonly property color field: light ? "#ffffff" : "#202020"
    readonly property color row: light ? "#fafafa" : "#202020"
    readonly property color rowHovered: light ? "#e2e2e2" : "#222222"
    readonly property color rowUnderPointer: light ? "#ececec" : "#282828"
    readonly property color rowCurrent: light ? "#d9d9d9" : "#2a2a2a"
    readonly property color rowSelected: light ? "#dcdcdc" : "#303030"
    readonly property color tile: light ? "#e0e0e0" : "#333333"
    readonly property color chip: light ? "#e2e2e2" : "#303030"
    readonly property color code: light ? "#fdfdfd" : "#191919"
    readonly property color menu: light ? "#ffffff" : "#242424"
    readonly property color menuHighlight: light ? "#e6e6e6" : "#393939"
    readonly property color dialog: glass ? (light ? "#fcf7f7f7" : "#fc252525") : light ? "#f7f7f7" : "#252525"
    readonly property color popup: light ? "#f7f7f7" : "#1c1c1c"
    readonly property color popupField: light ? "#ffffff" : "#292929"
    readonly property color settings: light ? "#f5f5f5" : "#252525"
    readonly property color settingsVeil: light ? "#edf6f6f6" : "#ed222222"

    // Over and under what lies over the window
    readonly property color dim: light ? "#3c000000" : "#80000000"
    readonly property real shadow: light ? .4 : .8
    readonly property color dialogGround: light ? "#f7f7f7" : "#252525"
    readonly property color centreClear: light ? "#00f3f3f3" : "#00111111"
    readonly property color bar: light ? "#b4b4b4" : "#4c4c4c"
    readonly property color barActive: light ? "#808080" : "#7a7a7a"

    // Buttons
    readonly property color button: light ? "#fbfbfb" : "#222222"
    readonly property color buttonHovered: light ? "#e6e6e6" : "#303030"
    readonly property color buttonDisabled: light ? "#ececec" : "#202020"
    readonly property color buttonPrimary: light ? "#1f1f1f" : "#ededed"
    readonly property color buttonBorder: light ? "#cccccc" : "#363636"
    readonly property color buttonText: light ? "#262626" : "#d8d8d8"
    readonly property color buttonTextDisabled: light ? "#848484" : "#666666"
    readonly property color buttonTextPrimary: light ? "#fafafa" : "#111111"

    readonly property color softButton: light ? "#e8e8e8" : "#313131"
    readonly property color softButtonHovered: light ? "#dcdcdc" : "#414141"
    readonly property color softButtonDown: light ? "#cccccc" : "#505050"
    readonly property color softButtonText: light ? "#1b1b1b" : "#eeeeee"
    readonly property color softButtonTextDisabled: light ? "#7d7d7d" : "#777777"

    // Lines
    readonly property color softButtonBorder: light ? "#c6c6c6" : "#494949"
    readonly property color softButtonBorderHovered: light ? "#7a7a7a" : "#888888"
    readonly property color rule: light ? "#d4d4d4" : "#303030"
    readonly property color formRule: light ? "#c8c8c8" : "#454545"
    readonly property color handle: light ? "#d9d9d9" : "#282828"
    readonly property color handleHovered: light ? "#8c8c8c" : "#606060"
    readonly property color fieldBorder: light ? "#b8b8b8" : "#404040"
    readonly property color fieldBorderFocus: light ? "#555555" : "#aaaaaa"
    readonly property color popupFieldBorder: light ? "#b8b8b8" : "#484848"
    readonly property color popupFieldBorderFocus: light ? "#4a4a4a" : "#bbbbbb"
    readonly property color composerBorder: light ? "#c4c4c4" : "#373737"
    readonly property color composerBorderFocus: light ? "#7a7a7a" : "#696969"
    readonly property color progressBorder: light ? "#d0d0d0" : "#414141"
    readonly property color menuBorder: light ? "#c8c8c8" : "#424242"
    readonly property color cardBorder: light ? "#c8c8c8" : "#494949"
    readonly property color dialogBorder: light ? "#b4b4b4" : "#555555"
    readonly property color grip: light ? "#8a8a8a" : "#777777"
    readonly property color focus: light ? "#3c3c3c" : "#cfcfcf"

    // Text
    readonly property color text: light ? "#1f1f1f" : "#e9e9e9"
    readonly property color textStrong: light ? "#000000" : "#ffffff"
    readonly property color textMessage: light ? "#262626" : "#dddddd"
    readonly property color textField: light ? "#1d1d1d" : "#ededed"
    readonly property color textMenu: light ? "#232323" : "#e1e1e1"
    readonly property color textCode: light ? "#383838" : "#bcbcbc"
    readonly property color textNote: light ? "#5c5c5c" : "#929292"
    readonly property color textStatus: light ? "#545454" : "#aaaaaa"
    readonly property color textDetail: light ? "#484848" : "#bbbbbb"
    readonly property color textAside: light ? "#545454" : "#a8a8a8"
    readonly property color textRules: light ? "#3d3d3d" : "#cccccc"
    readonly property color textRemark: light ? "#5c5c5c" : "#999999"
    readonly property color placeholder: light ? "#666666" : "#797979"
    readonly property color textInput: light ? "#1b1b1b" : "#f0f0f0"
    readonly property color inputPlaceholder: light ? "#666666" : "#777777"
    readonly property color textError: light ? "#a3260f" : "#ffb7a9"
    readonly property color textTitle: light ? "#111111" : "#fafafa"
    readonly property color softPlaceholder: light ? "#666666" : "#888888"
    readonly property color errorLine: light ? "#40d9472b" : "#40ffb7a9"

    // Marks
    readonly property color markOk: light ? "#1d6428" : "#a9d6ab"
    readonly property color markWarn: light ? "#735000" : "#e6cf8f"
    readonly property color markBad: light ? "#a3260f" : "#ffb7a9"
    readonly property color markWait: light ? "#5c5c5c" : "#929292"
    readonly property color dotOff: light ? "#9a9a9a" : "#666666"
    readonly property color dotOn: light ? "#2a2a2a" : "#eeeeee"
    readonly property color dotLive: light ? "#111111" : "#fafafa"
    readonly property color dotIdle: light ? "#8a8a8a" : "#888888"
    readonly property color face: light ? "#8a8a8a" : "#686868"
    readonly property color eyes: light ? "#2c2c2c" : "#e6e6e6"
    readonly property color nodeIdle: light ? "#ffffff" : "#191919"
    readonly property color nodeLive: light ? "#1e1e1e" : "#ececec"
    readonly property color nodeEyes: light ? "#3a3a3a" : "#d4d4d4"
    readonly property color nodeEyesLive: light ? "#f4f4f4" : "#161616"
    readonly property color nodeHalo: light ? "#8a8a8a" : "#7a7a7a"
    readonly property color nodeGround: light ? "#ebebeb" : "#191919"
    readonly property color nodeLabel: light ? "#2b2b2b" : "#d9d9d9"
    readonly property color wire: light ? "#c0c0c0" : "#353535"
    readonly property color wireLit: light ? "#6a6a6a" : "#888888"
    readonly property color meshLine: light ? "#8a8a8a" : "#454545"
    readonly property color meshPoint: light ? "#6e6e6e" : "#747474"

    /* Of the user's living background, whose colours are the script's own: over a light ground dark shapes would
       take the words away. */
    readonly property real backdropOpacity: light ? .12 : .55
    readonly property color shape: light ? "#c8c8c8" : "#303030"

    // For what the controls draw themselves
    readonly property Palette palette: Palette {
        window: theme.light ? "#ebebeb" : "#181818"
        base: theme.light ? "#ffffff" : "#202020"
        text: theme.light ? "#1b1b1b" : "#f0f0f0"
        windowText: theme.light ? "#1f1f1f" : "#eeeeee"
        button: theme.light ? "#e8e8e8" : "#252525"
        buttonText: theme.light ? "#1f1f1f" : "#eeeeee"
        highlight: theme.light ? "#2a2a2a" : "#eeeeee"
        highlightedText: theme.light ? "#f6f6f6" : "#111111"
        placeholderText: theme.light ? "#666666" : "#777777"
        toolTipBase: theme.light ? "#ffffff" : "#242424"
        toolTipText: theme.light ? "#232323" : "#e1e1e1"
        light: theme.light ? "#ffffff" : "#242424"
        midlight: theme.light ? "#e0e0e0" : "#303030"
        mid: theme.light ? "#a6a6a6" : "#5a5a5a"
        dark: theme.light ? "#767676" : "#8a8a8a"
    }

    // Lines that go and come; signs at their start say the same
    readonly property color lineRemoved: light ? "#f6dcd8" : "#3d2626"
    readonly property color lineAdded: light ? "#d9eed9" : "#243524"

    // Metrics, in pixels
    readonly property int sidebarWidth: 236
    readonly property int sidebarLeast: 180
    readonly property int sidebarMost: 380
    readonly property int sidebarRoomy: 320
    readonly property int inspectorWidth: 390
    readonly property int inspectorLeast: 280
    readonly property int inspectorMost: 620
    readonly property int centreLeast: px(440)
    readonly property int handleWidth: 7
    readonly property int textColumn: px(840)
    readonly property int sideMargin: 24

    // Type
    readonly property string family: "Segoe UI"
    readonly property string codeFamily: "Consolas"
    readonly property int tiny: px(9)
    readonly property int caption: px(10)
    readonly property int small: px(11)
    readonly property int note: px(12)
    readonly property int body: px(13)
    readonly property int normal: px(14)
    readonly property int title: px(18)
    readonly property int headline: px(30)

    // Motion, in milliseconds
    readonly property int press: animated ? 110 : 0
    readonly property int tint: animated ? 140 : 0
    readonly property int slide: animated ? 190 : 0
    readonly property int fade: animated ? 140 : 0
    readonly property int softTint: animated ? 130 : 0
    readonly property int tipDelay: 500
}
