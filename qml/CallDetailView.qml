// One past call in six tabs (one file each), with its action items to copy or
// save as Markdown.
import QtQuick
import QtQuick.Controls
import QtQuick.Dialogs
import QtQuick.Layouts

Rectangle {
    id: root
    objectName: "callDetailView"

    // What CallHistoryListModel.detail() gives for the call (a CallDetail).
    property var detail: ({})
    // The CallHistoryListModel and the Clipboard (or stand-ins).
    required property var historyModel
    required property var clipboard

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
                DetailText {
                    muted: true
                    Layout.fillWidth: false
                    text: [root.detail.dateText, root.detail.durationText]
                          .filter(part => part !== undefined && part !== "").join("  ·  ")
                }
                DetailChip { text: root.detail.status !== undefined ? root.detail.status : "" }
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

            CallSummaryTab { summary: root.summaryTab }
            CallTranscriptTab { transcript: root.transcriptTab }
            CallActionsTab { actions: root.actions }
            CallCommentsTab { comments: root.comments }
            CallTopicsTab { topics: root.topics }
            CallInsightsTab { insights: root.insights }
        }
    }
}
