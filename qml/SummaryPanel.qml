// The live summary the backend keeps of the call, in four tabs.
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

Rectangle {
    id: root
    objectName: "summaryPanel"

    // The SummaryModel (or a stand-in).
    required property var summary
    // The tab the user opened ("Summary", "Actions", "Topics", "Insights").
    signal tabSelected(string tab)
    readonly property bool hasSummary: summary ? summary.hasSummary : false

    radius: Theme.radius * 1.5
    color: Theme.surface
    border.color: Theme.border

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

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: Theme.padding
        spacing: Theme.spacing

        RowLayout {
            Layout.fillWidth: true
            Label {
                Layout.fillWidth: true
                text: "Live Summary"
                font.pixelSize: Theme.fontTitle
                font.weight: Font.DemiBold
                color: Theme.text
                Accessible.role: Accessible.Heading
            }
            Label {
                objectName: "summaryUpdated"
                visible: root.hasSummary && root.summary.lastUpdated !== undefined
                text: visible ? "Updated " + Qt.formatTime(root.summary.lastUpdated, "h:mm:ss AP") : ""
                font.pixelSize: Theme.fontSmall
                color: Theme.textMuted
            }
        }

        TabBar {
            id: tabs
            objectName: "summaryTabs"
            background: Item {}
            Layout.fillWidth: true
            onCurrentIndexChanged: root.tabSelected(["Summary", "Actions", "Topics", "Insights"][currentIndex])
            Repeater {
                model: ["Summary", "Actions", "Topics", "Insights"]
                QmTabButton {
                    required property string modelData
                    objectName: "summaryTab_" + modelData
                    text: modelData
                    Accessible.name: modelData
                }
            }
        }

        Label {
            objectName: "summaryError"
            visible: root.summary && root.summary.lastError.length > 0
            Layout.fillWidth: true
            wrapMode: Text.Wrap
            textFormat: Text.PlainText
            text: root.summary ? root.summary.lastError : ""
            color: Theme.danger
            font.pixelSize: Theme.fontSmall
        }

        Muted {
            objectName: "summaryEmpty"
            visible: !root.hasSummary
            Layout.fillHeight: true
            horizontalAlignment: Text.AlignHCenter
            verticalAlignment: Text.AlignVCenter
            text: "The summary appears here a little while after the call starts."
        }

        StackLayout {
            visible: root.hasSummary
            Layout.fillWidth: true
            Layout.fillHeight: true
            currentIndex: tabs.currentIndex

            // Summary
            ScrollView {
                objectName: "summaryTabContent"
                clip: true
                contentWidth: availableWidth
                ColumnLayout {
                    width: parent.width
                    spacing: Theme.spacing
                    Body {
                        objectName: "summaryOverview"
                        text: root.summary ? root.summary.overview : ""
                    }
                    SectionTitle { text: "Key Points"; visible: keyPoints.count > 0 }
                    Repeater {
                        id: keyPoints
                        model: root.summary ? root.summary.keyPoints : []
                        Body { required property string modelData; text: "•  " + modelData }
                    }
                    SectionTitle { text: "Speakers"; visible: speakers.count > 0 }
                    Muted { text: "Auto-identified participants"; visible: speakers.count > 0 }
                    Repeater {
                        id: speakers
                        model: root.summary ? root.summary.speakers : []
                        ColumnLayout {
                            required property var modelData
                            Layout.fillWidth: true
                            spacing: 0
                            Body {
                                text: modelData.name + (modelData.role ? " — " + modelData.role : "")
                                font.weight: Font.DemiBold
                            }
                            Muted {
                                visible: modelData.mainContributions.length > 0
                                text: modelData.mainContributions.join("; ")
                            }
                        }
                    }
                }
            }

            // Actions
            ScrollView {
                objectName: "actionsTabContent"
                clip: true
                contentWidth: availableWidth
                ColumnLayout {
                    width: parent.width
                    spacing: Theme.spacing
                    Muted { text: "AI-extracted tasks" }
                    Muted { text: "No action items yet."; visible: actions.count === 0 }
                    Repeater {
                        id: actions
                        model: root.summary ? root.summary.actionItems : []
                        Rectangle {
                            required property var modelData
                            Layout.fillWidth: true
                            implicitHeight: item.implicitHeight + 2 * Theme.spacing
                            radius: Theme.radius
                            color: Theme.surfaceAlt
                            ColumnLayout {
                                id: item
                                anchors.fill: parent
                                anchors.margins: Theme.spacing
                                spacing: 2
                                Body { text: modelData.description }
                                RowLayout {
                                    spacing: Theme.spacing
                                    Label {
                                        visible: modelData.priority.length > 0
                                        text: modelData.priority
                                        textFormat: Text.PlainText
                                        font.pixelSize: Theme.fontSmall
                                        font.weight: Font.DemiBold
                                        color: modelData.priority === "high" ? Theme.danger
                                             : modelData.priority === "medium" ? Theme.warning : Theme.success
                                    }
                                    Label {
                                        visible: modelData.assignee.length > 0
                                        text: "Assignee: " + modelData.assignee
                                        textFormat: Text.PlainText
                                        font.pixelSize: Theme.fontSmall
                                        color: Theme.textMuted
                                    }
                                    Label {
                                        visible: modelData.deadline.length > 0
                                        text: "Due: " + modelData.deadline
                                        textFormat: Text.PlainText
                                        font.pixelSize: Theme.fontSmall
                                        color: Theme.textMuted
                                    }
                                }
                            }
                        }
                    }
                }
            }

            // Topics
            ScrollView {
                objectName: "topicsTabContent"
                clip: true
                contentWidth: availableWidth
                ColumnLayout {
                    width: parent.width
                    spacing: Theme.spacing
                    Muted { text: "No topics yet."; visible: !root.summary || root.summary.topics.length === 0 }
                    TopicChart {
                        Layout.fillWidth: true
                        topics: root.summary ? root.summary.topics : []
                    }
                }
            }

            // Insights
            ScrollView {
                objectName: "insightsTabContent"
                clip: true
                contentWidth: availableWidth
                ColumnLayout {
                    width: parent.width
                    spacing: Theme.spacing
                    SectionTitle { text: "Sentiment" }
                    SentimentGauge {
                        Layout.alignment: Qt.AlignHCenter
                        score: root.summary ? root.summary.sentimentScore : 0
                        label: root.summary ? root.summary.sentimentOverall : ""
                    }
                    Body {
                        objectName: "sentimentOverall"
                        horizontalAlignment: Text.AlignHCenter
                        text: root.summary && root.summary.sentimentOverall.length > 0
                              ? root.summary.sentimentOverall.charAt(0).toUpperCase() + root.summary.sentimentOverall.slice(1)
                              : "Not known yet"
                    }
                    SectionTitle { text: "Confidence" }
                    ProgressBar {
                        Layout.fillWidth: true
                        from: 0; to: 1
                        value: root.summary ? root.summary.confidence : 0
                        Accessible.name: "Summary confidence"
                    }
                    Muted {
                        objectName: "confidenceText"
                        text: root.summary ? Math.round(root.summary.confidence * 100) + "% confidence" : ""
                    }
                }
            }
        }
    }
}
