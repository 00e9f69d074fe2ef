// A past call's "Insights" tab: its sentiment, its speakers and how it was processed.
import QtQuick
import QtQuick.Layouts

DetailTabPage {
    id: page
    objectName: "insightsPage"

    // The call's insights: sentiment, sentimentScoreText, speakers [{name,
    // role, contributions}], processing [{label, value}].
    required property var insights

    DetailHeading { text: "Sentiment" }
    DetailText {
        objectName: "insightsSentiment"
        text: page.insights.sentiment
              ? page.insights.sentiment
                + (page.insights.sentimentScoreText ? " (" + page.insights.sentimentScoreText + ")" : "")
              : "Not known"
    }
    DetailHeading {
        visible: speakers.count > 0
        text: "Speakers"
    }
    Repeater {
        id: speakers
        model: page.insights.speakers !== undefined ? page.insights.speakers : []
        DetailCard {
            required property var modelData
            Accessible.role: Accessible.ListItem
            Accessible.name: modelData.name + (modelData.role ? ", " + modelData.role : "")
            DetailText {
                text: modelData.name + (modelData.role ? "  —  " + modelData.role : "")
                font.weight: Font.DemiBold
            }
            Repeater {
                model: modelData.contributions
                DetailText {
                    required property string modelData
                    muted: true
                    text: "•  " + modelData
                }
            }
        }
    }
    DetailHeading { text: "Processing" }
    GridLayout {
        Layout.fillWidth: true
        columns: 2
        columnSpacing: Theme.padding
        rowSpacing: 4
        Repeater {
            model: page.insights.processing !== undefined ? page.insights.processing : []
            delegate: DetailText {
                required property var modelData
                required property int index
                muted: true
                Layout.fillWidth: false
                Layout.row: index
                Layout.column: 0
                text: modelData.label
            }
        }
        Repeater {
            model: page.insights.processing !== undefined ? page.insights.processing : []
            delegate: DetailText {
                required property var modelData
                required property int index
                Layout.row: index
                Layout.column: 1
                text: modelData.value
            }
        }
    }
}
