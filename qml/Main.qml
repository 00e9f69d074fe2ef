// The main window: the sign-in gate in front of the application.
import QtQuick
import QtQuick.Controls
import QtQuick.Window

ApplicationWindow {
    id: window
    objectName: "mainWindow"

    // The app's long-lived services (ScreenServices); the screens below are
    // handed the ones they read.
    required property QtObject services
    readonly property var windowState: services.windowState
    readonly property var themeManager: services.themeManager
    readonly property var contentView: services.contentView
    readonly property var authService: services.authService

    title: "Quillmoss"
    visible: true
    x: windowState.geometry.x >= 0 ? windowState.geometry.x : (Screen.width - width) / 2
    y: windowState.geometry.y >= 0 ? windowState.geometry.y : (Screen.height - height) / 2
    width: windowState.geometry.width
    height: windowState.geometry.height
    minimumWidth: 880
    minimumHeight: 600
    visibility: windowState.maximized ? Window.Maximized : Window.AutomaticVisibility
    color: Theme.background

    palette.window: Theme.background
    palette.windowText: Theme.text
    palette.base: Theme.surface
    palette.alternateBase: Theme.surfaceAlt
    palette.text: Theme.text
    palette.button: Theme.surfaceAlt
    palette.buttonText: Theme.text
    palette.highlight: Theme.accent
    palette.highlightedText: Theme.accentText
    palette.placeholderText: Theme.textMuted
    palette.mid: Theme.border
    palette.dark: Theme.border
    palette.light: Theme.surface
    palette.midlight: Theme.surfaceAlt
    palette.shadow: Theme.border
    palette.toolTipBase: Theme.surface
    palette.toolTipText: Theme.text
    palette.link: Theme.accent

    Binding { target: Theme; property: "name"; value: themeManager.resolvedTheme }
    Binding { target: Theme; property: "reduceMotion"; value: themeManager.reduceMotion }

    onClosing: windowState.save(x, y, width, height, visibility === Window.Maximized)
    onVisibilityChanged: if (visibility === Window.Minimized) contentView.mainWindowMinimized()

    // "Check for Updates" and the rest of the app menu live in Settings, the
    // mini window's command in the sidebar; the shortcuts jump between the
    // sections and show or hide the mini window.
    Shortcut {
        sequences: ["Ctrl+1"]
        enabled: contentView.screen === "main"
        onActivated: contentView.selectedItem = "callControl"
    }
    Shortcut {
        sequences: ["Ctrl+2"]
        enabled: contentView.screen === "main"
        onActivated: contentView.selectedItem = "callHistory"
    }
    Shortcut {
        sequences: ["Ctrl+3"]
        enabled: contentView.screen === "main"
        onActivated: contentView.selectedItem = "integrations"
    }
    Shortcut {
        sequences: ["Ctrl+Shift+M"]
        enabled: contentView.screen === "main"
        onActivated: contentView.toggleUtilityWindow("shortcut")
    }
    Shortcut {
        sequences: ["Ctrl+4", StandardKey.Preferences]
        enabled: contentView.screen === "main"
        onActivated: contentView.selectedItem = "settings"
    }

    Loader {
        id: screenLoader
        objectName: "screenLoader"
        anchors.fill: parent
        focus: true
        sourceComponent: {
            switch (contentView.screen) {
            case "loading": return loadingScreen
            case "error": return errorScreen
            case "main": return mainView
            default: return loginScreen
            }
        }
    }

    Component {
        id: loadingScreen
        LoadingScreen {}
    }
    Component {
        id: errorScreen
        ErrorScreen {
            message: window.contentView.errorText
            onRetry: window.authService.retryStartupCheck()
            onSignInAgain: window.authService.requestSignOut()
        }
    }
    Component {
        id: loginScreen
        LoginScreen {
            onContinueWithGoogle: window.authService.startLogin()
            onOpenTerms: window.services.app.openTermsOfService()
        }
    }
    Component {
        id: mainView
        MainView { services: window.services }
    }
}
