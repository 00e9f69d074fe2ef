// The call screen: the call's controls, the state of the backend, the live
// transcript, the live summary and the assistant chat side by side.
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

Rectangle {
    id: root
    objectName: "callControlPage"
    color: Theme.background

    // CallController, TranscriptionViewModel, SummaryModel, Clipboard,
    // ChatController and ChatMarkdown (or stand-ins).
    required property var controller
    required property var transcript
    required property var summary
    required property var clipboard
    required property var chat
    required property var markdown
    // Receives the screen's named analytics events; null sends none.
    required property var analytics
    // The local recognizer's status, null until a model is loaded.
    property var recognitionStatus

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: Theme.padding * 1.5
        spacing: Theme.padding

        RowLayout {
            Layout.fillWidth: true
            Label {
                Layout.fillWidth: true
                text: "Call Control"
                font.pixelSize: Theme.fontHeading
                font.weight: Font.Bold
                color: Theme.text
                Accessible.role: Accessible.Heading
            }
            Label {
                objectName: "sessionStatus"
                visible: root.controller && root.controller.isLive
                text: !root.controller ? ""
                      : root.controller.isSessionReady ? "● Assistant connected"
                      : root.controller.serverStatusText.length > 0 ? "● Offline" : "● Connecting…"
                color: root.controller && root.controller.isSessionReady ? Theme.success : Theme.textMuted
                font.pixelSize: Theme.fontSmall
            }
        }

        Rectangle {
            objectName: "serverOfflineBanner"
            visible: root.controller && root.controller.serverStatusText.length > 0
            Layout.fillWidth: true
            implicitHeight: bannerText.implicitHeight + 2 * Theme.spacing * 1.5
            radius: Theme.radius
            color: Theme.warningSoft
            border.color: Theme.warning
            Accessible.role: Accessible.AlertMessage
            Accessible.name: bannerText.text
            Label {
                id: bannerText
                anchors.fill: parent
                anchors.margins: Theme.spacing * 1.5
                verticalAlignment: Text.AlignVCenter
                wrapMode: Text.Wrap
                text: "⚠  " + (root.controller ? root.controller.serverStatusText : "")
                color: Theme.warning
                font.pixelSize: Theme.fontBody
            }
        }

        CallControlCard {
            Layout.fillWidth: true
            controller: root.controller
        }

        Label {
            objectName: "recognitionStatus"
            Layout.fillWidth: true
            elide: Text.ElideRight
            font.pixelSize: Theme.fontSmall
            color: Theme.textMuted
            text: {
                const s = root.recognitionStatus
                if (!s || !s.model)
                    return root.controller && !root.controller.isInitializingModels
                           ? "Speech recognition: no model loaded — calls are not transcribed"
                           : "Speech recognition: loading model…"
                let line = "Speech recognition: " + s.model + " on " + s.computeBackend
                if (s.jobsCompleted > 0)
                    line += " · real-time factor " + s.lastJobRealTimeFactor.toFixed(2)
                if (s.secondsSkipped > 0)
                    line += " · " + s.secondsSkipped.toFixed(1) + " s skipped to keep up"
                return line
            }
        }

        SplitView {
            Layout.fillWidth: true
            Layout.fillHeight: true
            orientation: Qt.Horizontal

            TranscriptPanel {
                SplitView.preferredWidth: parent.width * 0.34
                SplitView.minimumWidth: 180
                transcript: root.transcript
                clipboard: root.clipboard
            }
            SummaryPanel {
                SplitView.preferredWidth: parent.width * 0.30
                SplitView.minimumWidth: 180
                summary: root.summary
                onTabSelected: tab => {
                    if (root.analytics)
                        root.analytics.capture("Insight Tab Selected", { "tab": tab })
                }
            }
            ChatPanel {
                SplitView.fillWidth: true
                SplitView.minimumWidth: 260
                chat: root.chat
                markdown: root.markdown
                clipboard: root.clipboard
                sessionReady: root.controller ? root.controller.isSessionReady : false
            }
        }
    }
}
