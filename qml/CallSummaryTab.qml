// A past call's "Summary" tab: the summary's text and its key points.
import QtQuick

DetailTabPage {
    id: page
    objectName: "summaryPage"

    // The call's summary: content, keyPoints (a CallDetailSummary or the like).
    required property var summary

    DetailText {
        objectName: "summaryContent"
        visible: text !== ""
        text: page.summary.content !== undefined ? page.summary.content : ""
    }
    DetailText {
        muted: true
        visible: !page.summary.content
        text: "There is no summary for this call."
    }
    DetailHeading {
        visible: keyPoints.count > 0
        text: "Key points"
    }
    Repeater {
        id: keyPoints
        model: page.summary.keyPoints !== undefined ? page.summary.keyPoints : []
        DetailText {
            required property string modelData
            text: "•  " + modelData
            Accessible.name: modelData
        }
    }
}
