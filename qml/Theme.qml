pragma Singleton
import QtQuick

/* The look of the application: a monochrome dark workspace. Names say what a value is for. */
QtObject {
    id: theme

    /* Follows the window: nothing moves while it is inactive or the user has switched motion off. */
    property bool animated: true
    property bool glass: true

    // Surfaces, from the back to the front
    readonly property color window: "#111111"
    readonly property color centre: "#111111"
    readonly property color column: glass ? "#bd202020" : "#181818"
    readonly property color inspector: glass ? "#b51c1c1c" : "#151515"
    readonly property color strip: "#262626"
    readonly property color card: "#1f1f1f"
    readonly property color progressCard: glass ? "#a82a2a2a" : "#242424"
    readonly property color message: "#252525"
    readonly property color field: "#202020"
    readonly property color row: "#202020"
    readonly property color rowHovered: "#222222"
    readonly property color rowCurrent: "#2a2a2a"
    readonly property color rowSelected: "#303030"
    readonly property color tile: "#333333"
    readonly property color chip: "#303030"
    readonly property color code: "#191919"
    readonly property color menu: "#242424"
    readonly property color menuHighlight: "#393939"
    readonly property color dialog: glass ? "#fc252525" : "#252525"
    readonly property color popup: "#1c1c1c"
    readonly property color popupField: "#292929"
    readonly property color settings: "#252525"
    readonly property color settingsVeil: "#ed222222"

    // Buttons
    readonly property color button: "#222222"
    readonly property color buttonHovered: "#303030"
    readonly property color buttonDisabled: "#202020"
    readonly property color buttonPrimary: "#ededed"
    readonly property color buttonBorder: "#363636"
    readonly property color buttonText: "#d8d8d8"
    readonly property color buttonTextDisabled: "#666666"
    readonly property color buttonTextPrimary: "#111111"

    readonly property color softButton: "#313131"
    readonly property color softButtonHovered: "#414141"
    readonly property color softButtonDown: "#505050"
    readonly property color softButtonText: "#eeeeee"
    readonly property color softButtonTextDisabled: "#777777"

    // Lines
    readonly property color softButtonBorder: "#494949"
    readonly property color softButtonBorderHovered: "#888888"
    readonly property color rule: "#303030"
    readonly property color formRule: "#454545"
    readonly property color handle: "#282828"
    readonly property color handleHovered: "#606060"
    readonly property color fieldBorder: "#404040"
    readonly property color fieldBorderFocus: "#aaaaaa"
    readonly property color popupFieldBorder: "#484848"
    readonly property color popupFieldBorderFocus: "#bbbbbb"
    readonly property color composerBorder: "#373737"
    readonly property color composerBorderFocus: "#696969"
    readonly property color progressBorder: "#414141"
    readonly property color menuBorder: "#424242"
    readonly property color cardBorder: "#494949"
    readonly property color dialogBorder: "#555555"
    readonly property color grip: "#777777"
    readonly property color focus: "#cfcfcf"

    // Text
    readonly property color text: "#e9e9e9"
    readonly property color textStrong: "#ffffff"
    readonly property color textMessage: "#dddddd"
    readonly property color textField: "#ededed"
    readonly property color textMenu: "#e1e1e1"
    readonly property color textCode: "#bcbcbc"
    readonly property color textNote: "#929292"
    readonly property color textStatus: "#aaaaaa"
    readonly property color textDetail: "#bbbbbb"
    readonly property color textAside: "#a8a8a8"
    readonly property color textRules: "#cccccc"
    readonly property color textRemark: "#999999"
    readonly property color placeholder: "#797979"
    readonly property color textInput: "#f0f0f0"
    readonly property color inputPlaceholder: "#777777"
    readonly property color textError: "#ffb7a9"
    readonly property color textTitle: "#fafafa"
    readonly property color softPlaceholder: "#888888"
    readonly property color errorLine: "#40ffb7a9"

    // Marks
    readonly property color markOk: "#a9d6ab"
    readonly property color markWarn: "#e6cf8f"
    readonly property color markBad: "#ffb7a9"
    readonly property color markWait: "#929292"
    readonly property color dotOff: "#666666"
    readonly property color dotOn: "#eeeeee"
    readonly property color dotLive: "#fafafa"
    readonly property color dotIdle: "#888888"
    readonly property color face: "#686868"
    readonly property color eyes: "#e6e6e6"
    readonly property color nodeIdle: "#191919"
    readonly property color nodeLive: "#ececec"
    readonly property color nodeEyes: "#d4d4d4"
    readonly property color nodeEyesLive: "#161616"
    readonly property color nodeHalo: "#7a7a7a"
    readonly property color nodeLabel: "#d9d9d9"
    readonly property color wire: "#353535"
    readonly property color wireLit: "#888888"
    readonly property color meshLine: "#454545"
    readonly property color meshPoint: "#747474"

    readonly property color shape: "#303030"

    // For what the controls draw themselves
    readonly property Palette palette: Palette {
        window: "#181818"
        base: "#202020"
        text: "#f0f0f0"
        windowText: "#eeeeee"
        button: "#252525"
        buttonText: "#eeeeee"
        highlight: "#eeeeee"
        highlightedText: "#111111"
        placeholderText: "#777777"
        toolTipBase: "#242424"
        toolTipText: "#e1e1e1"
        light: "#242424"
        midlight: "#303030"
        mid: "#5a5a5a"
        dark: "#8a8a8a"
    }

    // Lines that go and come; signs at their start say the same
    readonly property color lineRemoved: "#3d2626"
    readonly property color lineAdded: "#243524"

    // Metrics, in pixels
    readonly property int sidebarWidth: 236
    readonly property int sidebarLeast: 180
    readonly property int sidebarMost: 380
    readonly property int inspectorWidth: 390
    readonly property int inspectorLeast: 280
    readonly property int inspectorMost: 620
    readonly property int centreLeast: 440
    readonly property int handleWidth: 7
    readonly property int textColumn: 840
    readonly property int sideMargin: 24

    // Type
    readonly property string family: "Segoe UI"
    readonly property string codeFamily: "Consolas"
    readonly property int tiny: 9
    readonly property int caption: 10
    readonly property int small: 11
    readonly property int note: 12
    readonly property int body: 13
    readonly property int normal: 14
    readonly property int title: 18
    readonly property int headline: 30

    // Motion, in milliseconds
    readonly property int press: animated ? 110 : 0
    readonly property int tint: animated ? 140 : 0
    readonly property int slide: animated ? 190 : 0
    readonly property int fade: animated ? 140 : 0
    readonly property int softTint: animated ? 130 : 0
    readonly property int tipDelay: 500
}
