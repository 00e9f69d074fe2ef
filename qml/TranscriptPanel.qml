// The live transcript: segments by speaker, following the newest text unless
// the user has scrolled back to read.
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

Rectangle {
    id: root
    objectName: "transcriptPanel"

    // The TranscriptionViewModel and the Clipboard (or stand-ins).
    required property var transcript
    required property var clipboard
    // Follows new text; off while the user reads further up.
    property bool following: true
    readonly property var segments: transcript ? transcript.speakerSegments : []

    function speakerLabel(speaker) {
        if (!speaker || speaker.length === 0)
            return "unknown"
        return speaker === "local" ? "You" : speaker
    }

    radius: Theme.radius * 1.5
    color: Theme.surface
    border.color: Theme.border

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: Theme.padding
        spacing: Theme.spacing

        RowLayout {
            Layout.fillWidth: true
            Label {
                Layout.fillWidth: true
                text: root.transcript ? root.transcript.panelTitle : "Live Transcription"
                elide: Text.ElideRight
                font.pixelSize: Theme.fontTitle
                font.weight: Font.DemiBold
                color: Theme.text
                Accessible.role: Accessible.Heading
            }
            Label {
                id: copied
                objectName: "copiedLabel"
                visible: false
                text: root.transcript ? root.transcript.copiedConfirmation : "Copied!"
                color: Theme.success
                font.pixelSize: Theme.fontSmall
                Timer {
                    id: copiedTimer
                    interval: 2000
                    onTriggered: copied.visible = false
                }
            }
            QmButton {
                objectName: "copyTranscriptButton"
                text: "Copy as Markdown"
                enabled: root.segments.length > 0
                onClicked: {
                    root.clipboard.setText(root.transcript.markdown(new Date()))
                    copied.visible = true
                    copiedTimer.restart()
                }
            }
        }

        Item {
            Layout.fillWidth: true
            Layout.fillHeight: true

            ColumnLayout {
                objectName: "transcriptEmpty"
                anchors.centerIn: parent
                width: parent.width
                visible: root.segments.length === 0
                spacing: 4
                Label {
                    Layout.alignment: Qt.AlignHCenter
                    text: root.transcript ? root.transcript.emptyTitle : ""
                    font.pixelSize: Theme.fontBody
                    font.weight: Font.DemiBold
                    color: Theme.textMuted
                }
                Label {
                    Layout.fillWidth: true
                    horizontalAlignment: Text.AlignHCenter
                    wrapMode: Text.WordWrap
                    text: root.transcript ? root.transcript.emptyHint : ""
                    font.pixelSize: Theme.fontSmall
                    color: Theme.textMuted
                }
            }

            ListView {
                id: list
                objectName: "transcriptList"
                anchors.fill: parent
                clip: true
                visible: root.segments.length > 0
                model: root.segments
                spacing: Theme.spacing * 1.5
                activeFocusOnTab: true
                boundsBehavior: Flickable.StopAtBounds
                Accessible.role: Accessible.List
                Accessible.name: "Transcript"
                ScrollBar.vertical: ScrollBar { policy: ScrollBar.AsNeeded }

                // Scrolling up by hand stops following; reaching the end again resumes it.
                onMovementEnded: root.following = atYEnd
                onContentHeightChanged: if (root.following) Qt.callLater(positionViewAtEnd)
                onCountChanged: if (root.following) Qt.callLater(positionViewAtEnd)
                Keys.onUpPressed: { root.following = false; flick(0, 800) }
                Keys.onDownPressed: flick(0, -800)

                delegate: ColumnLayout {
                    required property var modelData
                    width: ListView.view.width - 12
                    spacing: 2
                    Label {
                        text: root.speakerLabel(modelData.speaker)
                        textFormat: Text.PlainText
                        font.pixelSize: Theme.fontSmall
                        font.weight: Font.DemiBold
                        color: modelData.speaker === "local" ? Theme.accent : Theme.success
                    }
                    Label {
                        Layout.fillWidth: true
                        text: modelData.text
                        textFormat: Text.PlainText
                        wrapMode: Text.Wrap
                        font.pixelSize: Theme.fontBody
                        font.italic: modelData.isPartial
                        color: modelData.isPartial ? Theme.textMuted : Theme.text
                    }
                }
            }

            QmButton {
                objectName: "jumpToLatestButton"
                anchors.bottom: parent.bottom
                anchors.horizontalCenter: parent.horizontalCenter
                visible: !root.following && root.segments.length > 0
                text: "Jump to latest"
                onClicked: {
                    root.following = true
                    list.positionViewAtEnd()
                }
            }
        }
    }
}
