// One past call in six tabs, with its action items to copy or save as Markdown.
import QtQuick
import QtQuick.Controls
import QtQuick.Dialogs
import QtQuick.Layouts

Rectangle {
    id: root
    objectName: "callDetailView"

    // What CallHistoryListModel.detail() gives for the call.
    property var detail: ({})
    // The CallHistoryListModel (or a stand-in) and the Clipboard.
    property var historyModel: null
    property var clipboard: null

    signal back()

    readonly property string callId: detail && detail.id ? detail.id : ""
    readonly property var summaryTab: detail && detail.summary ? detail.summary : ({})
    readonly property var transcriptTab: detail && detail.transcript ? detail.transcript : ({})
    readonly property var actions: detail && detail.actions ? detail.actions : []
    readonly property var comments: detail && detail.comments ? detail.comments : []
    readonly property var topics: detail && detail.topics ? detail.topics : []
    readonly property var insights: detail && detail.insights ? detail.insights : ({})

    property bool copied: false
    property string exportError: ""
    property bool exported: false

    color: Theme.background

    onCallIdChanged: {
        copied = false
        exportError = ""
        exported = false
        tabs.currentIndex = 0
    }

    component SectionTitle: Label {
        font.pixelSize: Theme.fontBody
        font.weight: Font.DemiBold
        color: Theme.text
        Accessible.role: Accessible.Heading
    }
    component Body: Label {
        Layout.fillWidth: true
        wrapMode: Text.Wrap
        textFormat: Text.PlainText
        font.pixelSize: Theme.fontBody
        color: Theme.text
    }
    component Muted: Label {
        Layout.fillWidth: true
        wrapMode: Text.Wrap
        textFormat: Text.PlainText
        font.pixelSize: Theme.fontSmall
        color: Theme.textMuted
    }
    component Chip: Label {
        property color tint: Theme.surfaceAlt
        property color ink: Theme.textMuted
        visible: text !== ""
        textFormat: Text.PlainText
        font.pixelSize: Theme.fontSmall
        color: ink
        leftPadding: 8
        rightPadding: 8
        topPadding: 2
        bottomPadding: 2
        background: Rectangle { radius: height / 2; color: parent.tint }
    }
    // A tab's page: its content scrolls on its own.
    component TabPage: ScrollView {
        id: page
        default property alias content: column.data
        clip: true
        contentWidth: availableWidth
        ColumnLayout {
            id: column
            width: page.availableWidth
            spacing: Theme.spacing * 1.5
        }
    }
    component Card: Rectangle {
        default property alias content: cardColumn.data
        Layout.fillWidth: true
        implicitHeight: cardColumn.implicitHeight + Theme.padding
        radius: Theme.radius
        color: Theme.surface
        border.color: Theme.border
        ColumnLayout {
            id: cardColumn
            anchors.fill: parent
            anchors.margins: Theme.padding / 2
            spacing: 4
        }
    }

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: Theme.padding * 1.5
        spacing: Theme.spacing * 1.5

        RowLayout {
            Layout.fillWidth: true
            spacing: Theme.spacing

            QmButton {
                objectName: "backButton"
                text: "‹ Call History"
                Accessible.name: "Back to Call History"
                onClicked: root.back()
            }
            Item { Layout.fillWidth: true }
            Label {
                objectName: "actionsCopiedLabel"
                text: "Copied!"
                color: Theme.success
                font.pixelSize: Theme.fontSmall
                opacity: root.copied ? 1 : 0
                visible: opacity > 0
                Behavior on opacity { NumberAnimation { duration: Theme.animationDuration } }
            }
            QmButton {
                objectName: "copyActionsButton"
                text: "Copy Action Items"
                enabled: root.callId !== ""
                onClicked: {
                    if (root.clipboard && root.historyModel) {
                        root.clipboard.setText(root.historyModel.actionItemsMarkdown(root.callId))
                        root.copied = true
                        copiedTimer.restart()
                    }
                }
            }
            QmButton {
                objectName: "exportActionsButton"
                text: "Export Action Items…"
                enabled: root.callId !== ""
                onClicked: exportDialog.open()
            }
        }

        Timer {
            id: copiedTimer
            interval: 2000
            onTriggered: root.copied = false
        }

        FileDialog {
            id: exportDialog
            objectName: "exportDialog"
            title: "Export Action Items"
            fileMode: FileDialog.SaveFile
            nameFilters: ["Markdown files (*.md)", "All files (*)"]
            defaultSuffix: "md"
            onAccepted: {
                const error = root.historyModel ? root.historyModel.saveActionItems(root.callId, selectedFile)
                                                : "The call history is not available."
                root.exportError = error
                root.exported = error === ""
            }
        }

        ColumnLayout {
            Layout.fillWidth: true
            spacing: 4

            Label {
                objectName: "detailTitle"
                Layout.fillWidth: true
                text: root.detail && root.detail.title ? root.detail.title : ""
                textFormat: Text.PlainText
                wrapMode: Text.Wrap
                font.pixelSize: Theme.fontHeading
                font.weight: Font.DemiBold
                color: Theme.text
                Accessible.role: Accessible.Heading
            }
            RowLayout {
                spacing: Theme.spacing
                Muted {
                    Layout.fillWidth: false
                    text: [root.detail.dateText, root.detail.durationText]
                          .filter(part => part !== undefined && part !== "").join("  ·  ")
                }
                Chip { text: root.detail.status !== undefined ? root.detail.status : "" }
            }
        }

        Label {
            objectName: "exportMessage"
            Layout.fillWidth: true
            visible: root.exportError !== "" || root.exported
            text: root.exportError !== "" ? root.exportError : "Action items saved."
            textFormat: Text.PlainText
            wrapMode: Text.Wrap
            color: root.exportError !== "" ? Theme.danger : Theme.success
            font.pixelSize: Theme.fontSmall
            Accessible.role: Accessible.AlertMessage
            Accessible.name: text
        }

        Rectangle {
            objectName: "detailDecryptionError"
            Layout.fillWidth: true
            visible: root.detail.decryptionError !== undefined && root.detail.decryptionError !== ""
            implicitHeight: decryptionText.implicitHeight + Theme.padding
            radius: Theme.radius
            color: Theme.dangerSoft
            Label {
                id: decryptionText
                anchors.fill: parent
                anchors.margins: Theme.padding / 2
                text: "⚠ " + (parent.visible ? root.detail.decryptionError : "")
                      + " — the server could not open this call's contents."
                textFormat: Text.PlainText
                wrapMode: Text.Wrap
                color: Theme.danger
                font.pixelSize: Theme.fontBody
                Accessible.role: Accessible.AlertMessage
                Accessible.name: text
            }
        }

        TabBar {
            id: tabs
            objectName: "detailTabs"
            Layout.fillWidth: true
            background: Item {}
            Accessible.name: "Call details"
            Repeater {
                model: root.historyModel ? root.historyModel.detailTabNames : []
                QmTabButton {
                    required property string modelData
                    objectName: "detailTab_" + modelData
                    text: modelData
                }
            }
        }

        StackLayout {
            id: pages
            objectName: "detailPages"
            Layout.fillWidth: true
            Layout.fillHeight: true
            currentIndex: tabs.currentIndex

            // Summary
            TabPage {
                objectName: "summaryPage"
                Body {
                    objectName: "summaryContent"
                    visible: text !== ""
                    text: root.summaryTab.content !== undefined ? root.summaryTab.content : ""
                }
                Muted {
                    visible: !root.summaryTab.content
                    text: "There is no summary for this call."
                }
                SectionTitle {
                    visible: keyPoints.count > 0
                    text: "Key points"
                }
                Repeater {
                    id: keyPoints
                    model: root.summaryTab.keyPoints !== undefined ? root.summaryTab.keyPoints : []
                    Body {
                        required property string modelData
                        text: "•  " + modelData
                        Accessible.name: modelData
                    }
                }
            }

            // Transcript
            TabPage {
                objectName: "transcriptPage"
                Repeater {
                    objectName: "transcriptSegments"
                    model: root.transcriptTab.segments !== undefined ? root.transcriptTab.segments : []
                    ColumnLayout {
                        required property var modelData
                        Layout.fillWidth: true
                        spacing: 2
                        Accessible.role: Accessible.ListItem
                        Accessible.name: modelData.speaker + ", " + modelData.time + ": " + modelData.text
                        RowLayout {
                            spacing: Theme.spacing
                            Label {
                                text: modelData.speaker
                                textFormat: Text.PlainText
                                font.pixelSize: Theme.fontSmall
                                font.weight: Font.DemiBold
                                color: Theme.accent
                            }
                            Label {
                                text: modelData.time
                                textFormat: Text.PlainText
                                font.pixelSize: Theme.fontSmall
                                color: Theme.textMuted
                            }
                        }
                        Body { text: modelData.text }
                    }
                }
                Body {
                    objectName: "transcriptText"
                    visible: (root.transcriptTab.segments === undefined
                              || root.transcriptTab.segments.length === 0) && text !== ""
                    text: root.transcriptTab.text !== undefined ? root.transcriptTab.text : ""
                }
                Muted {
                    visible: (root.transcriptTab.segments === undefined
                              || root.transcriptTab.segments.length === 0)
                             && !root.transcriptTab.text
                    text: "There is no transcript for this call."
                }
            }

            // Actions
            TabPage {
                objectName: "actionsPage"
                Repeater {
                    objectName: "actionItems"
                    model: root.actions
                    Card {
                        required property var modelData
                        Accessible.role: Accessible.ListItem
                        Accessible.name: modelData.description
                        Body { text: modelData.description }
                        RowLayout {
                            spacing: Theme.spacing
                            Chip {
                                text: modelData.priority
                                tint: modelData.priority === "high" ? Theme.dangerSoft
                                    : modelData.priority === "medium" ? Theme.warningSoft
                                    : Theme.surfaceAlt
                                ink: modelData.priority === "high" ? Theme.danger
                                   : modelData.priority === "medium" ? Theme.warning
                                   : Theme.textMuted
                            }
                            Muted {
                                Layout.fillWidth: false
                                visible: text !== ""
                                text: modelData.assignee
                            }
                            Muted {
                                Layout.fillWidth: false
                                visible: modelData.deadline !== ""
                                text: "Due " + modelData.deadline
                            }
                        }
                    }
                }
                Muted {
                    visible: root.actions.length === 0
                    text: "There are no action items for this call."
                }
            }

            // Comments
            TabPage {
                objectName: "commentsPage"
                Repeater {
                    objectName: "commentMessages"
                    model: root.comments
                    Card {
                        required property var modelData
                        Accessible.role: Accessible.ListItem
                        Accessible.name: modelData.author + ": " + modelData.content
                        RowLayout {
                            spacing: Theme.spacing
                            Label {
                                text: modelData.author
                                textFormat: Text.PlainText
                                font.pixelSize: Theme.fontSmall
                                font.weight: Font.DemiBold
                                color: modelData.role === "assistant" ? Theme.accent : Theme.text
                            }
                            Muted { Layout.fillWidth: false; text: modelData.time }
                        }
                        Body { text: modelData.content }
                    }
                }
                Muted {
                    visible: root.comments.length === 0
                    text: "There were no messages with the assistant during this call."
                }
            }

            // Topics
            TabPage {
                objectName: "topicsPage"
                Repeater {
                    objectName: "topicRows"
                    model: root.topics
                    ColumnLayout {
                        required property var modelData
                        Layout.fillWidth: true
                        spacing: 4
                        Accessible.role: Accessible.ListItem
                        Accessible.name: modelData.topic + ", importance " + modelData.importanceText
                                         + ", " + modelData.mentions + " mentions"
                        RowLayout {
                            Layout.fillWidth: true
                            Body { text: modelData.topic }
                            Muted {
                                Layout.fillWidth: false
                                text: modelData.importanceText + "  ·  " + modelData.mentions
                                      + (modelData.mentions === 1 ? " mention" : " mentions")
                            }
                        }
                        Rectangle {
                            Layout.fillWidth: true
                            implicitHeight: 6
                            radius: 3
                            color: Theme.surfaceAlt
                            Rectangle {
                                width: parent.width * Math.max(0, Math.min(1, modelData.importance))
                                height: parent.height
                                radius: 3
                                color: Theme.accent
                            }
                        }
                    }
                }
                Muted {
                    visible: root.topics.length === 0
                    text: "No topics were found in this call."
                }
            }

            // Insights
            TabPage {
                objectName: "insightsPage"
                SectionTitle { text: "Sentiment" }
                Body {
                    objectName: "insightsSentiment"
                    text: root.insights.sentiment
                          ? root.insights.sentiment
                            + (root.insights.sentimentScoreText ? " (" + root.insights.sentimentScoreText + ")" : "")
                          : "Not known"
                }
                SectionTitle {
                    visible: speakers.count > 0
                    text: "Speakers"
                }
                Repeater {
                    id: speakers
                    model: root.insights.speakers !== undefined ? root.insights.speakers : []
                    Card {
                        required property var modelData
                        Accessible.role: Accessible.ListItem
                        Accessible.name: modelData.name + (modelData.role ? ", " + modelData.role : "")
                        Body {
                            text: modelData.name + (modelData.role ? "  —  " + modelData.role : "")
                            font.weight: Font.DemiBold
                        }
                        Repeater {
                            model: modelData.contributions
                            Muted {
                                required property string modelData
                                text: "•  " + modelData
                            }
                        }
                    }
                }
                SectionTitle { text: "Processing" }
                GridLayout {
                    Layout.fillWidth: true
                    columns: 2
                    columnSpacing: Theme.padding
                    rowSpacing: 4
                    Repeater {
                        model: root.insights.processing !== undefined ? root.insights.processing : []
                        delegate: Muted {
                            required property var modelData
                            required property int index
                            Layout.fillWidth: false
                            Layout.row: index
                            Layout.column: 0
                            text: modelData.label
                        }
                    }
                    Repeater {
                        model: root.insights.processing !== undefined ? root.insights.processing : []
                        delegate: Body {
                            required property var modelData
                            required property int index
                            Layout.row: index
                            Layout.column: 1
                            text: modelData.value
                        }
                    }
                }
            }
        }
    }
}
