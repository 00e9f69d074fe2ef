// A past call's "Topics" tab: what the call was about, by importance.
import QtQuick
import QtQuick.Layouts

DetailTabPage {
    id: page
    objectName: "topicsPage"

    // The call's topics: [{topic, importance, importanceText, mentions}].
    required property var topics

    Repeater {
        objectName: "topicRows"
        model: page.topics
        ColumnLayout {
            required property var modelData
            Layout.fillWidth: true
            spacing: 4
            Accessible.role: Accessible.ListItem
            Accessible.name: modelData.topic + ", importance " + modelData.importanceText
                             + ", " + modelData.mentions + " mentions"
            RowLayout {
                Layout.fillWidth: true
                DetailText { text: modelData.topic }
                DetailText {
                    muted: true
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
    DetailText {
        muted: true
        visible: page.topics.length === 0
        text: "No topics were found in this call."
    }
}
