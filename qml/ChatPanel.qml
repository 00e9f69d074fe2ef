// The assistant chat of a live call: the conversation, the suggested
// questions, the permission prompt for the tools the assistant asks to run,
// and the agent-mode switch. Usable only while a call is live.
import QtQuick
import QtQuick.Controls
import QtQuick.Dialogs
import QtQuick.Layouts

Rectangle {
    id: root
    objectName: "chatPanel"

    // The ChatController, the ChatMarkdown renderer and the Clipboard (or stand-ins).
    required property var chat
    required property var markdown
    required property var clipboard
    // Whether the call can be chatted about yet: a live call whose session is ready.
    property bool sessionReady: true

    readonly property var model: chat ? chat.chatModel : null
    readonly property bool active: chat !== null && chat.isActive
    readonly property var prompt: chat ? chat.approvalPrompt : ({})
    readonly property bool prompting: prompt !== undefined && prompt.messageId !== undefined

    function send(text) {
        if (!root.model || text.trim().length === 0)
            return
        root.model.sendMessage(text)
        input.text = ""
        list.positionViewAtEnd()
    }

    radius: Theme.radius * 1.5
    color: Theme.surface
    border.color: Theme.border

    // The prompt takes the keyboard when it appears, so that Tab reaches Approve.
    onPromptingChanged: if (prompting && input.activeFocus) approveButton.forceActiveFocus()

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: Theme.padding
        spacing: Theme.spacing

        RowLayout {
            Layout.fillWidth: true
            spacing: Theme.spacing / 2
            Label {
                Layout.fillWidth: true
                text: "AI Assistant"
                elide: Text.ElideRight
                font.pixelSize: Theme.fontTitle
                font.weight: Font.DemiBold
                color: Theme.text
                Accessible.role: Accessible.Heading
            }
            QmButton {
                objectName: "copyChatButton"
                text: copiedTimer.running ? "Copied!" : "Copy"
                font.pixelSize: Theme.fontSmall
                leftPadding: 10
                rightPadding: 10
                enabled: list.count > 0
                onClicked: {
                    if (root.clipboard && root.model) {
                        root.clipboard.setText(root.model.exportMarkdown())
                        copiedTimer.restart()
                    }
                }
                Timer { id: copiedTimer; interval: 2000 }
            }
            QmButton {
                objectName: "exportChatButton"
                text: "Export…"
                font.pixelSize: Theme.fontSmall
                leftPadding: 10
                rightPadding: 10
                enabled: list.count > 0
                onClicked: exportDialog.open()
            }
        }

        Switch {
            id: agentSwitch
            objectName: "agentModeSwitch"
            Layout.fillWidth: true
            text: "Agent mode: suggest tools as the call goes"
            enabled: root.active
            checked: root.chat ? root.chat.isAgentModeEnabled : false
            font.pixelSize: Theme.fontSmall
            Accessible.name: "Agent mode"
            onToggled: {
                if (root.chat && !root.chat.setAgentModeEnabled(checked))
                    checked = Qt.binding(() => root.chat.isAgentModeEnabled)
            }
        }

        Rectangle {
            objectName: "noToolsNotification"
            visible: root.chat !== null && root.chat.showingNoToolsNotification
            Layout.fillWidth: true
            implicitHeight: noTools.implicitHeight + 2 * Theme.spacing
            radius: Theme.radius
            color: Theme.warningSoft
            border.color: Theme.warning
            Accessible.role: Accessible.AlertMessage
            Accessible.name: "Agent mode requires tools to be enabled"
            RowLayout {
                id: noTools
                anchors.fill: parent
                anchors.margins: Theme.spacing
                ColumnLayout {
                    Layout.fillWidth: true
                    spacing: 2
                    Label {
                        Layout.fillWidth: true
                        text: "Agent mode requires tools to be enabled"
                        font.weight: Font.DemiBold
                        color: Theme.warning
                        wrapMode: Text.Wrap
                    }
                    Label {
                        Layout.fillWidth: true
                        text: "Enable integrations in Settings to use AI agent features"
                        color: Theme.text
                        font.pixelSize: Theme.fontSmall
                        wrapMode: Text.Wrap
                    }
                }
                QmButton {
                    objectName: "dismissNoToolsButton"
                    text: "OK"
                    onClicked: root.chat.dismissNoToolsNotification()
                }
            }
        }

        Label {
            objectName: "agentModeNotice"
            visible: text.length > 0
            Layout.fillWidth: true
            text: root.chat ? root.chat.agentModeNotice : ""
            color: Theme.success
            font.weight: Font.DemiBold
            Timer {
                running: parent.visible
                interval: 3000
                onTriggered: root.chat.dismissAgentModeNotice()
            }
        }

        // Outside a call there is nothing to talk about.
        ColumnLayout {
            objectName: "chatInactive"
            visible: !root.active
            Layout.fillWidth: true
            Layout.fillHeight: true
            spacing: Theme.spacing
            Item { Layout.fillHeight: true }
            Label {
                Layout.fillWidth: true
                horizontalAlignment: Text.AlignHCenter
                text: "AI Assistant Inactive"
                font.pixelSize: Theme.fontTitle
                font.weight: Font.DemiBold
                color: Theme.text
            }
            Label {
                Layout.fillWidth: true
                horizontalAlignment: Text.AlignHCenter
                wrapMode: Text.Wrap
                text: "Start a call to enable AI chat and live transcription"
                color: Theme.textMuted
            }
            Item { Layout.fillHeight: true }
        }

        ListView {
            id: list
            objectName: "chatMessages"
            visible: root.active
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            spacing: Theme.spacing
            model: root.chat ? root.chat.messages : null
            // New messages stay in sight unless the user scrolled back to read.
            property bool following: true
            onMovementEnded: following = atYEnd
            onContentHeightChanged: if (following) Qt.callLater(positionViewAtEnd)
            ScrollBar.vertical: ScrollBar {}

            delegate: ChatBubble {
                width: ListView.view.width
                markdown: root.markdown
            }

            Label {
                anchors.centerIn: parent
                width: parent.width - 2 * Theme.padding
                visible: list.count === 0
                horizontalAlignment: Text.AlignHCenter
                wrapMode: Text.Wrap
                text: root.sessionReady ? "Ask about the call, or pick a question below."
                                        : "Connecting to the assistant…"
                color: Theme.textMuted
            }
        }

        Label {
            objectName: "chatError"
            visible: root.active && text.length > 0
            Layout.fillWidth: true
            text: root.model ? root.model.errorMessage : ""
            wrapMode: Text.Wrap
            color: Theme.danger
            Accessible.role: Accessible.AlertMessage
            Accessible.name: text
        }

        // One row of one-click questions, scrolled sideways when it is wider.
        ListView {
            objectName: "suggestedQuestions"
            visible: root.active && !root.prompting
            Layout.fillWidth: true
            implicitHeight: 34
            orientation: ListView.Horizontal
            spacing: Theme.spacing / 2
            clip: true
            model: root.model ? root.model.suggestedQuestions : []
            delegate: QmButton {
                required property string modelData
                required property int index
                objectName: "suggestedQuestion_" + index
                text: modelData
                font.pixelSize: Theme.fontSmall
                padding: 6
                enabled: root.model && !root.model.isLoading
                onClicked: root.send(modelData)
            }
        }

        // The assistant's request to run tools: nothing runs without Approve.
        Rectangle {
            id: promptBox
            objectName: "approvalPrompt"
            visible: root.active && root.prompting
            Layout.fillWidth: true
            Layout.maximumHeight: root.height * 0.5
            implicitHeight: promptColumn.implicitHeight + 2 * Theme.padding
            radius: Theme.radius
            color: Theme.accentSoft
            border.color: Theme.accent
            Accessible.role: Accessible.Dialog
            Accessible.name: root.prompting ? root.prompt.title : ""

            ColumnLayout {
                id: promptColumn
                anchors.fill: parent
                anchors.margins: Theme.padding
                spacing: Theme.spacing
                Label {
                    objectName: "approvalTitle"
                    Layout.fillWidth: true
                    text: root.prompting ? root.prompt.title : ""
                    font.weight: Font.Bold
                    color: Theme.text
                }
                Label {
                    objectName: "approvalIntro"
                    Layout.fillWidth: true
                    text: root.prompting ? root.prompt.intro : ""
                    wrapMode: Text.Wrap
                    color: Theme.text
                }
                ScrollView {
                    Layout.fillWidth: true
                    Layout.fillHeight: true
                    Layout.preferredHeight: Math.min(toolsColumn.implicitHeight, 220)
                    clip: true
                    ColumnLayout {
                        id: toolsColumn
                        width: promptBox.width - 2 * Theme.padding
                        spacing: Theme.spacing / 2
                        Repeater {
                            model: root.prompting ? root.prompt.tools : []
                            delegate: ColumnLayout {
                                required property var modelData
                                required property int index
                                Layout.fillWidth: true
                                spacing: 2
                                Label {
                                    objectName: "approvalTool_" + index
                                    Layout.fillWidth: true
                                    text: "Tool: " + modelData.title
                                          + (modelData.title !== modelData.name ? " (" + modelData.name + ")" : "")
                                    font.weight: Font.DemiBold
                                    color: Theme.text
                                    wrapMode: Text.Wrap
                                }
                                // Plain text: arguments are shown as they will be sent.
                                Label {
                                    objectName: "approvalArguments_" + index
                                    Layout.fillWidth: true
                                    text: modelData.arguments.length > 0 ? modelData.arguments : "(no arguments)"
                                    textFormat: Text.PlainText
                                    wrapMode: Text.WrapAnywhere
                                    font.family: "monospace"
                                    font.pixelSize: Theme.fontSmall
                                    color: Theme.text
                                }
                            }
                        }
                    }
                }
                RowLayout {
                    Layout.fillWidth: true
                    Label {
                        Layout.fillWidth: true
                        visible: root.prompting && root.prompt.waiting > 1
                        text: root.prompting ? (root.prompt.waiting - 1) + " more waiting" : ""
                        color: Theme.textMuted
                        font.pixelSize: Theme.fontSmall
                    }
                    Item { Layout.fillWidth: true }
                    QmButton {
                        id: denyButton
                        objectName: "denyButton"
                        text: "Deny"
                        KeyNavigation.tab: input
                        Keys.onReturnPressed: clicked()
                        Keys.onEnterPressed: clicked()
                        onClicked: root.model.deny(root.prompt.messageId)
                    }
                    QmButton {
                        id: approveButton
                        objectName: "approveButton"
                        text: "Approve"
                        primary: true
                        KeyNavigation.tab: denyButton
                        Keys.onReturnPressed: clicked()
                        Keys.onEnterPressed: clicked()
                        onClicked: root.model.approve(root.prompt.messageId)
                    }
                }
            }
        }

        RowLayout {
            Layout.fillWidth: true
            spacing: Theme.spacing
            TextField {
                id: input
                objectName: "chatInput"
                Layout.fillWidth: true
                Layout.minimumWidth: 80
                Layout.preferredWidth: 80
                enabled: root.active
                placeholderText: "Ask me anything..."
                Accessible.name: "Message to the assistant"
                KeyNavigation.tab: root.prompting ? approveButton : sendButton
                onAccepted: root.send(text)
            }
            QmButton {
                id: sendButton
                objectName: "sendChatButton"
                text: "Send"
                primary: true
                enabled: root.active && input.text.trim().length > 0
                onClicked: root.send(input.text)
            }
        }
    }

    FileDialog {
        id: exportDialog
        title: "Export Conversation"
        fileMode: FileDialog.SaveFile
        nameFilters: ["Markdown (*.md)"]
        defaultSuffix: "md"
        onAccepted: {
            const error = root.chat.exportConversation(selectedFile)
            exportError.text = error
        }
    }
    Label {
        id: exportError
        objectName: "chatExportError"
        visible: text.length > 0
        anchors.bottom: parent.bottom
        anchors.horizontalCenter: parent.horizontalCenter
        color: Theme.danger
    }
}
