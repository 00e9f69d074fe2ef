import QtQuick
import QtTest
import "../../qml"

Item {
    width: 900
    height: 650

    Finder { id: finder }

    LoginScreen { id: login; anchors.fill: parent; visible: false }
    ErrorScreen { id: error; anchors.fill: parent; visible: false; message: "Unable to connect to the server." }
    LoadingScreen { id: loading; anchors.fill: parent; visible: false }
    Sidebar {
        id: sidebar
        height: parent.height
        visible: false
        items: [{ key: "callControl", label: "Call Control" }, { key: "callHistory", label: "Call History" },
                { key: "integrations", label: "Integrations" }, { key: "settings", label: "Settings" }]
        selectedKey: "callControl"
    }

    SignalSpy { id: continueSpy; target: login; signalName: "continueWithGoogle" }
    SignalSpy { id: termsSpy; target: login; signalName: "openTerms" }
    SignalSpy { id: retrySpy; target: error; signalName: "retry" }
    SignalSpy { id: selectedSpy; target: sidebar; signalName: "selected" }

    TestCase {
        name: "Gate"
        when: windowShown

        function texts(item) {
            let all = []
            if (item.text !== undefined && typeof item.text === "string")
                all.push(item.text)
            for (let i = 0; i < item.children.length; ++i)
                all = all.concat(texts(item.children[i]))
            if (item.contentItem && item.contentItem !== item)
                all = all.concat(texts(item.contentItem))
            return all
        }

        function test_loginScreen() {
            login.visible = true
            const shown = texts(login)
            for (const text of ["AI-Powered Sales Assistant", "Continue with Google",
                                "Sign in to access your AI sales assistant and start improving your call performance",
                                "By continuing you agree to our", "Terms of Service"])
                verify(shown.indexOf(text) >= 0, text)
            mouseClick(finder.find(login, "continueWithGoogleButton"))
            compare(continueSpy.count, 1)
            const terms = finder.find(login, "termsLink")
            terms.forceActiveFocus()
            keyClick(Qt.Key_Return)
            compare(termsSpy.count, 1)
            login.visible = false
        }

        function test_loadingAndError() {
            loading.visible = true
            const shown = texts(loading)
            verify(shown.indexOf("Fetching profile...") >= 0)
            verify(shown.indexOf("Please wait while we load your account information") >= 0)
            loading.visible = false
            error.visible = true
            compare(finder.find(error, "errorMessage").text, "Unable to connect to the server.")
            mouseClick(finder.find(error, "retryButton"))
            compare(retrySpy.count, 1)
            error.visible = false
        }

        function test_sidebarOrderAndKeyboard() {
            sidebar.visible = true
            const list = finder.find(sidebar, "sidebarList")
            compare(list.count, 4)
            mouseClick(finder.find(sidebar, "sidebarItem_settings"))
            compare(selectedSpy.signalArguments[selectedSpy.count - 1][0], "settings")
            list.forceActiveFocus()
            keyClick(Qt.Key_Down)
            compare(selectedSpy.signalArguments[selectedSpy.count - 1][0], "callHistory")
            sidebar.visible = false
        }
    }
}
