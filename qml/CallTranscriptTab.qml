// A past call's "Transcript" tab: what was said, by speaker and time, or the
// whole text when the call has no segments.
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

DetailTabPage {
    id: page
    objectName: "transcriptPage"

    // The call's transcript: segments [{speaker, time, text}], text.
    required property var transcript

    readonly property bool hasSegments: page.transcript.segments !== undefined
                                       && page.transcript.segments.length > 0

    Repeater {
        objectName: "transcriptSegments"
        model: page.transcript.segments !== undefined ? page.transcript.segments : []
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
            DetailText { text: modelData.text }
        }
    }
    DetailText {
        objectName: "transcriptText"
        visible: !page.hasSegments && text !== ""
        text: page.transcript.text !== undefined ? page.transcript.text : ""
    }
    DetailText {
        muted: true
        visible: !page.hasSegments && !page.transcript.text
        text: "There is no transcript for this call."
    }
}
