// Topics of the call as horizontal bars: the bar is the importance, the
// number beside it how often the topic came up.
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

ColumnLayout {
    id: root
    property var topics: []
    readonly property real maxImportance: {
        let max = 0
        for (const topic of topics)
            max = Math.max(max, topic.importance)
        return max > 0 ? max : 1
    }
    spacing: Theme.spacing
    Accessible.role: Accessible.Chart
    Accessible.name: "Topics by importance"

    Repeater {
        model: root.topics
        delegate: ColumnLayout {
            required property var modelData
            Layout.fillWidth: true
            spacing: 2
            Accessible.role: Accessible.StaticText
            Accessible.name: modelData.topic + ", importance " + modelData.importance
                             + ", " + modelData.mentions + " mentions"
            RowLayout {
                Layout.fillWidth: true
                Label {
                    Layout.fillWidth: true
                    text: modelData.topic
                    textFormat: Text.PlainText
                    elide: Text.ElideRight
                    color: Theme.text
                    font.pixelSize: Theme.fontBody
                }
                Label {
                    text: modelData.mentions === 1 ? "1 mention" : modelData.mentions + " mentions"
                    color: Theme.textMuted
                    font.pixelSize: Theme.fontSmall
                }
            }
            Rectangle {
                Layout.fillWidth: true
                implicitHeight: 10
                radius: 5
                color: Theme.surfaceAlt
                Rectangle {
                    width: parent.width * Math.max(0, Math.min(1, modelData.importance / root.maxImportance))
                    height: parent.height
                    radius: 5
                    color: Theme.accent
                    Behavior on width { NumberAnimation { duration: Theme.animationDuration } }
                }
            }
        }
    }
}
