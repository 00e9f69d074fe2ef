// One message of the assistant chat: the user's on the right, the
// assistant's on the left as Markdown, with the tools it asked for and what
// became of them.
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

Item {
    id: root

    required property int index
    required property string messageId
    required property string content
    required property bool isFromUser
    required property bool isLoading
    required property bool isSuggestion
    required property var toolCalls
    required property var toolResults
    required property int approvalState
    // The ChatMarkdown renderer.
    required property var markdown

    // ChatViewModel::ApprovalState
    readonly property var stateTexts: ["", "Waiting for your permission", "Running…",
                                       "Results sent to the assistant", "Denied"]

    implicitHeight: bubble.height
    objectName: "chatMessage_" + index

    Rectangle {
        id: bubble
        anchors.right: root.isFromUser ? parent.right : undefined
        anchors.left: root.isFromUser ? undefined : parent.left
        width: Math.min(parent.width * 0.85,
                        Math.max(column.implicitWidth, 40) + 2 * Theme.padding * 0.75)
        height: column.implicitHeight + 2 * Theme.spacing * 1.25
        radius: Theme.radius * 1.5
        color: root.isFromUser ? Theme.accent
             : root.isSuggestion ? Theme.warningSoft : Theme.surfaceAlt
        border.color: root.isFromUser ? "transparent" : Theme.border

        ColumnLayout {
            id: column
            anchors.fill: parent
            anchors.leftMargin: Theme.padding * 0.75
            anchors.rightMargin: Theme.padding * 0.75
            anchors.topMargin: Theme.spacing * 1.25
            anchors.bottomMargin: Theme.spacing * 1.25
            spacing: Theme.spacing / 2

            RowLayout {
                visible: root.isLoading
                spacing: Theme.spacing
                BusyIndicator {
                    objectName: "chatLoading"
                    running: root.isLoading
                    implicitWidth: 20
                    implicitHeight: 20
                }
                Label {
                    text: root.content
                    color: Theme.textMuted
                    font.italic: true
                }
            }

            // The user's own words are plain text; the assistant's are Markdown
            // without raw HTML. Links open on click only, and only to the web.
            Text {
                objectName: "chatMessageText"
                visible: !root.isLoading
                Layout.fillWidth: true
                Layout.maximumWidth: root.width * 0.85 - 2 * Theme.padding * 0.75
                text: root.isFromUser || !root.markdown ? root.content : root.markdown.toHtml(root.content)
                textFormat: root.isFromUser || !root.markdown ? Text.PlainText : Text.RichText
                wrapMode: Text.Wrap
                color: root.isFromUser ? Theme.accentText : Theme.text
                linkColor: Theme.accent
                font.pixelSize: Theme.fontBody
                onLinkActivated: link => root.markdown.openLink(link)
                HoverHandler {
                    enabled: parent.hoveredLink.length > 0
                    cursorShape: Qt.PointingHandCursor
                }
            }

            Repeater {
                model: root.toolCalls
                delegate: Label {
                    required property var modelData
                    Layout.fillWidth: true
                    Layout.maximumWidth: root.width * 0.85 - 2 * Theme.padding * 0.75
                    text: "Tool: " + modelData.title + (modelData.arguments.length > 0 ? "\n" + modelData.arguments : "")
                    textFormat: Text.PlainText
                    wrapMode: Text.WrapAnywhere
                    font.pixelSize: Theme.fontSmall
                    color: Theme.textMuted
                }
            }
            Label {
                objectName: "toolState"
                visible: root.approvalState > 0
                text: root.stateTexts[root.approvalState] || ""
                font.pixelSize: Theme.fontSmall
                font.weight: Font.DemiBold
                color: root.approvalState === 4 ? Theme.danger
                     : root.approvalState === 3 ? Theme.success : Theme.warning
            }
            Repeater {
                model: root.toolResults
                delegate: Label {
                    required property var modelData
                    Layout.fillWidth: true
                    Layout.maximumWidth: root.width * 0.85 - 2 * Theme.padding * 0.75
                    text: (modelData.success ? "✓ " : "✗ ") + modelData.content
                    textFormat: Text.PlainText
                    maximumLineCount: 4
                    elide: Text.ElideRight
                    wrapMode: Text.Wrap
                    font.pixelSize: Theme.fontSmall
                    color: modelData.success ? Theme.text : Theme.danger
                }
            }
        }
    }
}
