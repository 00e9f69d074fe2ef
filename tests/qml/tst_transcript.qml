import QtQuick
import QtTest
import "../../qml"

Item {
    id: root
    width: 600
    height: 400

    Finder { id: finder }

    QtObject {
        id: transcript
        property var speakerSegments: []
        readonly property string panelTitle: "Live Transcription"
        readonly property string emptyTitle: "No transcription yet"
        readonly property string emptyHint: "Start speaking to see live transcription appear here"
        readonly property string copiedConfirmation: "Copied!"
        function markdown(when) { return "# Live Transcription\n\n" + speakerSegments.map(s => s.text).join("\n\n") }
    }
    QtObject {
        id: clipboard
        property string text
        function setText(value) { text = value }
    }

    TranscriptPanel {
        id: panel
        anchors.fill: parent
        transcript: transcript
        clipboard: clipboard
    }

    TestCase {
        name: "TranscriptPanel"
        when: windowShown

        function segments(count) {
            const list = []
            for (let i = 0; i < count; ++i)
                list.push({ speaker: i % 2 ? "Priya" : "local", text: "Line " + i + " of the call, long enough to wrap once or twice in the panel.", isPartial: false })
            return list
        }
        function list() { return finder.find(panel, "transcriptList") }

        function init() {
            transcript.speakerSegments = []
            panel.following = true
            clipboard.text = ""
        }

        function test_emptyStateAndCopyDisabled() {
            verify(finder.shown(panel, "transcriptEmpty"))
            verify(!finder.find(panel, "copyTranscriptButton").enabled)
        }

        function test_segmentsBySpeakerAndCopy() {
            transcript.speakerSegments = segments(3)
            verify(!finder.shown(panel, "transcriptEmpty"))
            tryCompare(list(), "count", 3)
            compare(panel.speakerLabel("local"), "You")
            compare(panel.speakerLabel(""), "unknown")
            compare(panel.speakerLabel("Priya"), "Priya")
            mouseClick(finder.find(panel, "copyTranscriptButton"))
            verify(clipboard.text.startsWith("# Live Transcription"))
            verify(finder.shown(panel, "copiedLabel"))
            compare(finder.find(panel, "copiedLabel").text, "Copied!")
        }

        // New text follows the end until the user scrolls back to read.
        function test_followsUntilTheUserReadsBack() {
            transcript.speakerSegments = segments(40)
            tryVerify(() => list().atYEnd)
            // The user scrolls to the top.
            list().contentY = list().originY
            list().movementEnded()
            verify(!panel.following)
            verify(finder.shown(panel, "jumpToLatestButton"))
            const readingAt = list().contentY
            transcript.speakerSegments = segments(45)
            wait(50)
            compare(list().contentY, readingAt)
            mouseClick(finder.find(panel, "jumpToLatestButton"))
            verify(panel.following)
            tryVerify(() => list().atYEnd)
            transcript.speakerSegments = segments(50)
            tryVerify(() => list().atYEnd)
        }
    }
}
