// Colours, type sizes and spacing of every screen. `name` follows the theme
// manager's resolved theme ("light", "dark" or "sepia"); the window binds it.
pragma Singleton
import QtQuick

QtObject {
    id: theme

    property string name: "light"
    // Motion is cut to nothing when the desktop asks for reduced motion.
    property bool reduceMotion: false
    readonly property int animationDuration: reduceMotion ? 0 : 150

    readonly property var palettes: ({
        "light": {
            "background": "#f6f7f9", "surface": "#ffffff", "surfaceAlt": "#eef1f5",
            "border": "#d5dae1", "text": "#1c2430", "textMuted": "#5b6675",
            "accent": "#2458c6", "accentText": "#ffffff", "accentSoft": "#e3ebfb",
            "danger": "#b3261e", "dangerSoft": "#fbe4e2", "warning": "#8a5300",
            "warningSoft": "#fff1d6", "success": "#1e7a46", "successSoft": "#def3e6",
            "focus": "#1a73e8", "sidebar": "#eceff3", "selection": "#d6e2fa"
        },
        "dark": {
            "background": "#15181d", "surface": "#1e232a", "surfaceAlt": "#262c35",
            "border": "#39414d", "text": "#e8ebef", "textMuted": "#a3acb9",
            "accent": "#7aa7ff", "accentText": "#0d1422", "accentSoft": "#26344f",
            "danger": "#ff8a80", "dangerSoft": "#4a2321", "warning": "#ffc46b",
            "warningSoft": "#43361c", "success": "#7fd3a0", "successSoft": "#1f3a2a",
            "focus": "#8ab4f8", "sidebar": "#1a1e24", "selection": "#2c3b57"
        },
        "sepia": {
            "background": "#f4ecd8", "surface": "#fbf5e6", "surfaceAlt": "#efe4c9",
            "border": "#d9caa6", "text": "#3b2f1e", "textMuted": "#6d5c42",
            "accent": "#8a4f13", "accentText": "#fffaf0", "accentSoft": "#f0dcbc",
            "danger": "#a0321f", "dangerSoft": "#f3d6c9", "warning": "#7a5200",
            "warningSoft": "#f6e2b5", "success": "#3f6b2a", "successSoft": "#dfe8c8",
            "focus": "#b5651d", "sidebar": "#ede2c6", "selection": "#e6d2a8"
        }
    })
    readonly property var colors: palettes[name] !== undefined ? palettes[name] : palettes["light"]

    readonly property color background: colors.background
    readonly property color surface: colors.surface
    readonly property color surfaceAlt: colors.surfaceAlt
    readonly property color border: colors.border
    readonly property color text: colors.text
    readonly property color textMuted: colors.textMuted
    readonly property color accent: colors.accent
    readonly property color accentText: colors.accentText
    readonly property color accentSoft: colors.accentSoft
    readonly property color danger: colors.danger
    readonly property color dangerSoft: colors.dangerSoft
    readonly property color warning: colors.warning
    readonly property color warningSoft: colors.warningSoft
    readonly property color success: colors.success
    readonly property color successSoft: colors.successSoft
    readonly property color focus: colors.focus
    readonly property color sidebar: colors.sidebar
    readonly property color selection: colors.selection

    readonly property int fontSmall: 12
    readonly property int fontBody: 14
    readonly property int fontTitle: 17
    readonly property int fontHeading: 22
    readonly property int spacing: 8
    readonly property int padding: 16
    readonly property int radius: 8
}
