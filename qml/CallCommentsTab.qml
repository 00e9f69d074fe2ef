// A past call's "Comments" tab: the conversation with the assistant during the call.
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

DetailTabPage {
    id: page
    objectName: "commentsPage"

    // The call's messages: [{role, author, content, time}].
    required property var comments

    Repeater {
        objectName: "commentMessages"
        model: page.comments
        DetailCard {
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
                DetailText { muted: true; Layout.fillWidth: false; text: modelData.time }
            }
            DetailText { text: modelData.content }
        }
    }
    DetailText {
        muted: true
        visible: page.comments.length === 0
        text: "There were no messages with the assistant during this call."
    }
}
