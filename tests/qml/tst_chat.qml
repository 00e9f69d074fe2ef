import QtQuick
import QtQuick.Controls
import QtTest
import "../../qml"

Item {
    id: scene
    width: 420
    height: 720

    // The ChatController and its model as the panel reads them.
    Component {
        id: chatStandIn
        QtObject {
            property bool isActive: true
            property bool showingNoToolsNotification: false
            property bool isAgentModeEnabled: false
            property string agentModeNotice: ""
            property var approvalPrompt: ({})
            property bool toolsEnabled: false
            property var messages: ListModel {}
            property var chatModel: QtObject {
                property string errorMessage: ""
                property bool isLoading: false
                property var suggestedQuestions: ["Summarize the key points from this call",
                                                  "What are the next steps?",
                                                  "What follow-up actions should I take?"]
                property var sent: []
                property var decisions: []
                function sendMessage(text) { sent = sent.concat([text]) }
                function approve(id) { decisions = decisions.concat(["approve " + id]) }
                function deny(id) { decisions = decisions.concat(["deny " + id]) }
                function exportMarkdown() { return "# Chat Conversation\n\n" }
            }
            function setAgentModeEnabled(enabled) {
                if (enabled && !toolsEnabled) {
                    showingNoToolsNotification = true
                    return false
                }
                isAgentModeEnabled = enabled
                agentModeNotice = enabled ? "Agent Mode Started" : ""
                return true
            }
            function dismissNoToolsNotification() { showingNoToolsNotification = false }
            function dismissAgentModeNotice() { agentModeNotice = "" }
        }
    }

    Component {
        id: panelComponent
        ChatPanel {
            anchors.fill: parent
            markdown: null
            clipboard: null
        }
    }

    Finder { id: finder }

    TestCase {
        name: "ChatPanel"
        when: windowShown

        function makePanel(chat) {
            return createTemporaryObject(panelComponent, scene, { chat: chat })
        }

        function test_inactiveOutsideACall() {
            const chat = createTemporaryObject(chatStandIn, scene, { isActive: false })
            const panel = makePanel(chat)
            verify(finder.shown(panel, "chatInactive"))
            verify(!finder.shown(panel, "chatMessages"))
            verify(!finder.find(panel, "chatInput").enabled)
            compare(finder.find(panel, "chatInput").placeholderText, "Ask me anything...")
        }

        function test_enterAndChipsSend() {
            const chat = createTemporaryObject(chatStandIn, scene)
            const panel = makePanel(chat)
            const input = finder.find(panel, "chatInput")
            input.forceActiveFocus()
            keyClick("H"); keyClick("i"); keyClick(Qt.Key_Return)
            compare(chat.chatModel.sent, ["Hi"])
            compare(input.text, "")
            // Blank input sends nothing.
            keyClick(Qt.Key_Space); keyClick(Qt.Key_Return)
            compare(chat.chatModel.sent, ["Hi"])
            mouseClick(finder.find(panel, "suggestedQuestion_1"))
            compare(chat.chatModel.sent, ["Hi", "What are the next steps?"])
        }

        function test_errorLine() {
            const chat = createTemporaryObject(chatStandIn, scene)
            const panel = makePanel(chat)
            verify(!finder.shown(panel, "chatError"))
            chat.chatModel.errorMessage = "Message timeout - please try again"
            verify(finder.shown(panel, "chatError"))
            compare(finder.find(panel, "chatError").text, "Message timeout - please try again")
        }

        function test_promptByKeyboard_data() {
            return [
                { tag: "approve", key: "approve", tabs: 1 },
                { tag: "deny", key: "deny", tabs: 2 },
            ]
        }

        function test_promptByKeyboard(data) {
            const chat = createTemporaryObject(chatStandIn, scene)
            const panel = makePanel(chat)
            finder.find(panel, "chatInput").forceActiveFocus()
            chat.approvalPrompt = { messageId: "m1", title: "Permission Required",
                                    intro: "The AI wants to use the following tools:",
                                    waiting: 1,
                                    tools: [{ name: "brave_web_search", title: "Brave Web Search",
                                              arguments: "query: <b>Acme</b>" }] }
            verify(finder.shown(panel, "approvalPrompt"))
            // Arguments are plain text, shown as they will be sent.
            compare(finder.find(panel, "approvalArguments_0").textFormat, Text.PlainText)
            // The prompt takes the focus on Approve; Tab moves on to Deny.
            for (let i = 1; i < data.tabs; ++i)
                keyClick(Qt.Key_Tab)
            keyClick(Qt.Key_Return)
            compare(chat.chatModel.decisions, [data.key + " m1"])
        }

        function test_agentModeNeedsTools() {
            const chat = createTemporaryObject(chatStandIn, scene)
            const panel = makePanel(chat)
            const toggle = finder.find(panel, "agentModeSwitch")
            mouseClick(toggle)
            verify(finder.shown(panel, "noToolsNotification"))
            verify(!toggle.checked)
            mouseClick(finder.find(panel, "dismissNoToolsButton"))
            verify(!finder.shown(panel, "noToolsNotification"))
            chat.toolsEnabled = true
            mouseClick(toggle)
            verify(toggle.checked)
            compare(finder.find(panel, "agentModeNotice").text, "Agent Mode Started")
        }
    }
}
