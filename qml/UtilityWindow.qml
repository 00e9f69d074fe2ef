// The mini window: a small panel floating over other applications during a
// call. Collapsed, a strip with the call's timer and level; expanded, the live
// summary in three tabs and a line to the assistant. Dragged by its background.
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import QtQuick.Window

Window {
    id: window
    objectName: "utilityWindow"

    // The app's long-lived services (ScreenServices), as the main window has them.
    required property QtObject services
    readonly property var mini: services.utilityMiniWindow
    readonly property var controller: services.callController
    readonly property var summary: services.summaryModel
    readonly property var chat: services.chatController
    readonly property var markdown: services.chatMarkdown
    readonly property var call: controller ? controller.callModel : null
    readonly property bool live: controller ? controller.isLive : false
    readonly property var prompt: chat ? chat.approvalPrompt : ({})
    readonly property bool prompting: prompt !== undefined && prompt.messageId !== undefined

    function formatDuration(seconds) {
        const total = Math.max(0, Math.floor(seconds))
        const h = Math.floor(total / 3600)
        const m = Math.floor(total % 3600 / 60)
        const s = total % 60
        const two = n => (n < 10 ? "0" : "") + n
        return h > 0 ? h + ":" + two(m) + ":" + two(s) : two(m) + ":" + two(s)
    }
    function send() {
        if (window.mini.sendMessage(input.text))
            input.text = ""
    }

    title: "Quillmoss Mini Window"
    flags: Qt.Tool | Qt.FramelessWindowHint | Qt.WindowStaysOnTopHint
    width: 450
    height: mini.isExpanded ? 460 : 60
    color: Theme.surface

    // The background moves the window: the window manager drags it where it
    // can (and on Wayland only it may), otherwise it follows the pointer here.
    MouseArea {
        id: dragArea
        objectName: "utilityDragArea"
        anchors.fill: parent
        property point pressedAt
        property bool systemMove: false
        onPressed: mouse => {
            systemMove = window.startSystemMove()
            pressedAt = Qt.point(mouse.x, mouse.y)
        }
        onPositionChanged: mouse => {
            if (!systemMove && pressed) {
                window.x += mouse.x - pressedAt.x
                window.y += mouse.y - pressedAt.y
            }
        }
    }

    Rectangle {
        anchors.fill: parent
        color: "transparent"
        border.color: Theme.border
        radius: 2
    }

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: Theme.spacing
        spacing: Theme.spacing

        // The strip: always there.
        RowLayout {
            Layout.fillWidth: true
            Layout.preferredHeight: 60 - 2 * Theme.spacing
            spacing: Theme.spacing
            Rectangle {
                width: 10; height: 10; radius: 5
                color: window.live ? Theme.danger : Theme.border
                Accessible.role: Accessible.Indicator
                Accessible.name: window.live ? "Call is live" : "No call"
            }
            Label {
                objectName: "miniCallTimer"
                text: window.live ? window.formatDuration(window.call ? window.call.duration : 0)
                                  : "No call"
                font.pixelSize: Theme.fontTitle
                font.family: window.live ? "monospace" : font.family
                color: Theme.text
            }
            LevelMeter {
                objectName: "miniLevelMeter"
                Layout.fillWidth: true
                visible: window.live
                level: window.call ? window.call.audioLevel : 0
            }
            Item { Layout.fillWidth: true; visible: !window.live }
            QmButton {
                objectName: "miniExpandButton"
                text: window.mini.isExpanded ? "Collapse" : "Expand"
                padding: 6
                font.pixelSize: Theme.fontSmall
                onClicked: window.mini.toggleExpanded()
            }
            QmButton {
                objectName: "miniCloseButton"
                text: "✕"
                padding: 6
                font.pixelSize: Theme.fontSmall
                Accessible.name: "Close Utility Window"
                ToolTip.visible: hovered
                ToolTip.text: "Close Utility Window"
                onClicked: window.mini.close()
            }
        }

        TabBar {
            id: tabs
            objectName: "miniTabs"
            visible: window.mini.isExpanded
            background: Item {}
            Layout.fillWidth: true
            currentIndex: window.mini.tabs.indexOf(window.mini.selectedTab)
            Repeater {
                model: window.mini.tabs
                QmTabButton {
                    required property string modelData
                    objectName: "miniTab_" + modelData
                    text: modelData
                    onClicked: window.mini.selectTab(modelData)
                }
            }
        }

        StackLayout {
            visible: window.mini.isExpanded
            Layout.fillWidth: true
            Layout.fillHeight: true
            currentIndex: tabs.currentIndex

            component Muted: Label {
                Layout.fillWidth: true
                wrapMode: Text.Wrap
                textFormat: Text.PlainText
                font.pixelSize: Theme.fontSmall
                color: Theme.textMuted
            }
            component Body: Label {
                Layout.fillWidth: true
                wrapMode: Text.Wrap
                textFormat: Text.PlainText
                font.pixelSize: Theme.fontBody
                color: Theme.text
            }

            ScrollView {
                objectName: "miniSummaryContent"
                clip: true
                contentWidth: availableWidth
                ColumnLayout {
                    width: parent.width
                    spacing: Theme.spacing / 2
                    Muted {
                        visible: !window.summary || !window.summary.hasSummary
                        text: "The summary appears here a little while after the call starts."
                    }
                    Body {
                        objectName: "miniOverview"
                        visible: text.length > 0
                        text: window.summary ? window.summary.overview : ""
                    }
                    Repeater {
                        model: window.summary ? window.summary.keyPoints : []
                        Body { required property string modelData; text: "•  " + modelData }
                    }
                }
            }
            ScrollView {
                objectName: "miniActionsContent"
                clip: true
                contentWidth: availableWidth
                ColumnLayout {
                    width: parent.width
                    spacing: Theme.spacing / 2
                    Muted {
                        visible: miniActions.count === 0
                        text: "No action items yet."
                    }
                    Repeater {
                        id: miniActions
                        model: window.summary ? window.summary.actionItems : []
                        ColumnLayout {
                            required property var modelData
                            Layout.fillWidth: true
                            spacing: 0
                            Body { text: "☐  " + modelData.description }
                            Muted {
                                visible: text.length > 0
                                text: [modelData.assignee.length > 0 ? "Assignee: " + modelData.assignee : "",
                                       modelData.priority.length > 0 ? "Priority: " + modelData.priority : ""]
                                      .filter(part => part.length > 0).join(" · ")
                            }
                        }
                    }
                }
            }
            ScrollView {
                objectName: "miniInsightsContent"
                clip: true
                contentWidth: availableWidth
                ColumnLayout {
                    width: parent.width
                    spacing: Theme.spacing / 2
                    Body {
                        objectName: "miniSentiment"
                        text: "Sentiment: " + (window.summary && window.summary.sentimentOverall.length > 0
                                               ? window.summary.sentimentOverall : "not known yet")
                    }
                    Muted {
                        visible: !window.summary || window.summary.topics.length === 0
                        text: "No topics yet."
                    }
                    Repeater {
                        model: window.summary ? window.summary.topics : []
                        Body { required property var modelData; text: "#  " + modelData.topic }
                    }
                }
            }
        }

        // The assistant's latest word, and its request to run tools.
        Label {
            objectName: "miniLatestAnswer"
            visible: window.mini.isExpanded && text.length > 0
            Layout.fillWidth: true
            Layout.maximumHeight: 120
            clip: true
            wrapMode: Text.Wrap
            textFormat: Text.RichText
            text: window.mini.latestAnswer.length > 0 && window.markdown
                  ? window.markdown.toHtml(window.mini.latestAnswer) : ""
            color: Theme.text
            font.pixelSize: Theme.fontSmall
            onLinkActivated: link => window.markdown.openLink(link)
        }
        Rectangle {
            objectName: "miniApprovalPrompt"
            visible: window.mini.isExpanded && window.live && window.prompting
            Layout.fillWidth: true
            implicitHeight: promptRow.implicitHeight + 2 * Theme.spacing
            radius: Theme.radius
            color: Theme.accentSoft
            border.color: Theme.accent
            Accessible.role: Accessible.Dialog
            Accessible.name: window.prompting ? window.prompt.title : ""
            RowLayout {
                id: promptRow
                anchors.fill: parent
                anchors.margins: Theme.spacing
                Label {
                    Layout.fillWidth: true
                    wrapMode: Text.Wrap
                    textFormat: Text.PlainText
                    text: window.prompting
                          ? window.prompt.title + ": " + window.prompt.tools.map(tool => tool.title).join(", ")
                          : ""
                    color: Theme.text
                    font.pixelSize: Theme.fontSmall
                }
                QmButton {
                    objectName: "miniDenyButton"
                    text: "Deny"
                    padding: 6
                    onClicked: window.chat.chatModel.deny(window.prompt.messageId)
                }
                QmButton {
                    objectName: "miniApproveButton"
                    text: "Approve"
                    primary: true
                    padding: 6
                    onClicked: window.chat.chatModel.approve(window.prompt.messageId)
                }
            }
        }
        RowLayout {
            visible: window.mini.isExpanded
            Layout.fillWidth: true
            spacing: Theme.spacing
            TextField {
                id: input
                objectName: "miniChatInput"
                Layout.fillWidth: true
                enabled: window.mini.canChat
                placeholderText: window.mini.chatPlaceholder
                Accessible.name: "Message to the assistant"
                onAccepted: window.send()
            }
            QmButton {
                objectName: "miniSendButton"
                text: "Send"
                primary: true
                enabled: window.mini.canChat && input.text.trim().length > 0
                onClicked: window.send()
            }
        }
    }
}
