import QtQuick
import QtTest
import "../../qml"

Item {
    width: 600
    height: 500

    Finder { id: finder }

    QtObject {
        id: summary
        property bool hasSummary: false
        property string overview: "Priya's team misses forecasts by eighteen percent."
        property var keyPoints: ["Sixty reps in three regions", "Forecast lives in a spreadsheet"]
        property var speakers: [{ name: "Priya Natarajan", role: "VP Sales", mainContributions: ["Explained the forecast process"] }]
        property var actionItems: [{ description: "Send the pricing sheet", assignee: "Jordan", priority: "high", deadline: "Friday" }]
        property var topics: [{ topic: "Forecasting", importance: 0.9, mentions: 4 }, { topic: "Pricing", importance: 0.3, mentions: 1 }]
        property string sentimentOverall: "positive"
        property real sentimentScore: 0.6
        property real confidence: 0.82
        property string lastError: ""
        property var lastUpdated: new Date()
    }

    SummaryPanel {
        id: panel
        anchors.fill: parent
        summary: summary
    }

    TestCase {
        name: "SummaryPanel"
        when: windowShown

        function init() { summary.hasSummary = false; summary.lastError = "" }

        function test_emptyUntilTheFirstSummary() {
            verify(finder.shown(panel, "summaryEmpty"))
            verify(!finder.shown(panel, "summaryOverview"))
            summary.hasSummary = true
            verify(!finder.shown(panel, "summaryEmpty"))
            verify(finder.shown(panel, "summaryOverview"))
            compare(finder.find(panel, "summaryOverview").text, summary.overview)
        }

        function test_tabs_data() {
            return [
                { tag: "Summary", index: 0, content: "summaryTabContent" },
                { tag: "Actions", index: 1, content: "actionsTabContent" },
                { tag: "Topics", index: 2, content: "topicsTabContent" },
                { tag: "Insights", index: 3, content: "insightsTabContent" },
            ]
        }
        function test_tabs(data) {
            summary.hasSummary = true
            mouseClick(finder.find(panel, "summaryTab_" + data.tag))
            compare(finder.find(panel, "summaryTabs").currentIndex, data.index)
            for (const content of ["summaryTabContent", "actionsTabContent", "topicsTabContent", "insightsTabContent"])
                compare(finder.shown(panel, content), content === data.content, content)
        }

        function test_insights() {
            summary.hasSummary = true
            compare(finder.find(panel, "sentimentOverall").text, "Positive")
            compare(finder.find(panel, "confidenceText").text, "82% confidence")
        }

        function test_errorShows() {
            summary.lastError = "The summary could not be read"
            verify(finder.shown(panel, "summaryError"))
        }
    }
}
