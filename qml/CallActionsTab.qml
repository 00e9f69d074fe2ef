// A past call's "Actions" tab: its action items with priority, assignee and deadline.
import QtQuick
import QtQuick.Layouts

DetailTabPage {
    id: page
    objectName: "actionsPage"

    // The call's action items: [{description, assignee, priority, deadline}].
    required property var actions

    Repeater {
        objectName: "actionItems"
        model: page.actions
        DetailCard {
            required property var modelData
            Accessible.role: Accessible.ListItem
            Accessible.name: modelData.description
            DetailText { text: modelData.description }
            RowLayout {
                spacing: Theme.spacing
                DetailChip {
                    text: modelData.priority
                    tint: modelData.priority === "high" ? Theme.dangerSoft
                        : modelData.priority === "medium" ? Theme.warningSoft
                        : Theme.surfaceAlt
                    ink: modelData.priority === "high" ? Theme.danger
                       : modelData.priority === "medium" ? Theme.warning
                       : Theme.textMuted
                }
                DetailText {
                    muted: true
                    Layout.fillWidth: false
                    visible: text !== ""
                    text: modelData.assignee
                }
                DetailText {
                    muted: true
                    Layout.fillWidth: false
                    visible: modelData.deadline !== ""
                    text: "Due " + modelData.deadline
                }
            }
        }
    }
    DetailText {
        muted: true
        visible: page.actions.length === 0
        text: "There are no action items for this call."
    }
}
