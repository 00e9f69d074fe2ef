import QtQuick
import QtTest
import "../../qml"

Item {
    id: root
    width: 1000
    height: 700

    StandInController { id: controller }
    Finder { id: finder }

    CallControlPage {
        id: page
        anchors.fill: parent
        controller: controller
        transcript: null
        summary: null
        clipboard: null
        chat: null
        markdown: null
        analytics: null
    }

    TestCase {
        name: "CallControl"
        when: windowShown

        function find(name) { return finder.find(page, name) }
        function shown(name) { return finder.shown(page, name) }

        function init() {
            controller.calls = []
            controller.isLive = false
            controller.callModel = { isAudioPaused: false, duration: 0, audioLevel: 0 }
            controller.isInitializingModels = false
            controller.hasRequiredPermissions = true
            controller.isCheckingPermissions = false
            controller.serverStatusText = ""
        }

        // Which part of the card shows, from the controller's state.
        function test_states_data() {
            return [
                { tag: "initializing", initializing: true, permitted: true, live: false, paused: false, part: "initializingState" },
                { tag: "needs permissions", initializing: false, permitted: false, live: false, paused: false, part: "permissionsState" },
                { tag: "idle", initializing: false, permitted: true, live: false, paused: false, part: "idleState" },
                { tag: "live", initializing: false, permitted: true, live: true, paused: false, part: "liveState" },
                { tag: "paused", initializing: false, permitted: true, live: true, paused: true, part: "liveState" },
                // A live call stays on screen even if a permission check now fails.
                { tag: "live without permission", initializing: false, permitted: false, live: true, paused: false, part: "liveState" },
            ]
        }
        function test_states(data) {
            controller.isInitializingModels = data.initializing
            controller.hasRequiredPermissions = data.permitted
            controller.isLive = data.live
            controller.callModel = { isAudioPaused: data.paused, duration: 65, audioLevel: 0.1 }
            for (const part of ["initializingState", "permissionsState", "idleState", "liveState"])
                compare(shown(part), part === data.part, part)
            if (data.part === "liveState") {
                compare(find("callTimer").text, "01:05")
                compare(shown("pauseCallButton"), !data.paused)
                compare(shown("resumeCallButton"), data.paused)
                compare(find("levelMeter").level, data.paused ? 0 : 0.1)
            }
        }

        function test_initializingShowsStatusAndProgress() {
            controller.isInitializingModels = true
            controller.initializationStatus = "Checking AI models..."
            controller.initializationProgress = 0.1
            compare(find("initializationStatus").text, "Checking AI models...")
            compare(find("initializationProgress").value, 0.1)
        }

        function test_permissionScreenPollsAndShowsChecking() {
            controller.hasRequiredPermissions = false
            verify(controller.calls.indexOf("startPermissionPolling") >= 0, JSON.stringify(controller.calls))
            verify(!shown("checkingPermissions"))
            controller.isCheckingPermissions = true
            verify(shown("checkingPermissions"))
            compare(find("checkingPermissions").text, "Checking permissions...")
            controller.isCheckingPermissions = false
            mouseClick(find("openPrivacySettingsButton"))
            verify(controller.calls.indexOf("openPrivacySettings") >= 0)
        }

        function test_endCallAsksFirstAndOffersPause() {
            mouseClick(find("startCallButton"))
            verify(controller.isLive)
            mouseClick(find("endCallButton"))
            const dialog = find("endCallDialog")
            tryCompare(dialog, "opened", true)
            compare(dialog.title, "End Call Confirmation")
            compare(find("endCallMessage").text, controller.endCallConfirmation)
            mouseClick(find("pauseInsteadButton"))
            tryCompare(dialog, "visible", false)
            verify(controller.isLive)
            verify(controller.callModel.isAudioPaused)

            mouseClick(find("endCallButton"))
            tryCompare(dialog, "opened", true)
            mouseClick(find("confirmEndCallButton"))
            tryCompare(dialog, "visible", false)
            verify(!controller.isLive)
            compare(controller.calls.filter(c => c === "endCall").length, 1)
        }

        function test_serverOfflineBanner() {
            verify(!shown("serverOfflineBanner"))
            controller.serverStatusText = "Server offline - calls will not be saved, live transcription only"
            verify(shown("serverOfflineBanner"))
        }

        function test_recognitionStatusLine_data() {
            return [
                { tag: "loading", initializing: true, status: null, expected: "Speech recognition: loading model…" },
                { tag: "no model", initializing: false, status: null, expected: "Speech recognition: no model loaded — calls are not transcribed" },
                { tag: "loaded, idle", initializing: false,
                  status: { model: "ggml-small.en.bin", computeBackend: "CPU", jobsCompleted: 0, lastJobRealTimeFactor: 0, secondsSkipped: 0 },
                  expected: "Speech recognition: ggml-small.en.bin on CPU" },
                { tag: "keeping up", initializing: false,
                  status: { model: "ggml-small.en.bin", computeBackend: "CPU", jobsCompleted: 4, lastJobRealTimeFactor: 0.347, secondsSkipped: 0 },
                  expected: "Speech recognition: ggml-small.en.bin on CPU · real-time factor 0.35" },
                { tag: "falling behind", initializing: false,
                  status: { model: "ggml-large-v3.bin", computeBackend: "CPU", jobsCompleted: 9, lastJobRealTimeFactor: 1.8, secondsSkipped: 12.25 },
                  expected: "Speech recognition: ggml-large-v3.bin on CPU · real-time factor 1.80 · 12.3 s skipped to keep up" },
            ]
        }
        function test_recognitionStatusLine(data) {
            controller.isInitializingModels = data.initializing
            page.recognitionStatus = data.status
            compare(find("recognitionStatus").text, data.expected)
            page.recognitionStatus = null
        }

        function test_levelMeterScale_data() {
            return [
                { tag: "silence", level: 0, fraction: 0 },
                { tag: "-60 dB", level: 0.001, fraction: 0 },
                { tag: "-20 dB", level: 0.1, fraction: 2 / 3 },
                { tag: "full scale", level: 1, fraction: 1 },
                { tag: "over", level: 4, fraction: 1 },
            ]
        }
        function test_levelMeterScale(data) {
            controller.isLive = true
            controller.callModel = { isAudioPaused: false, duration: 0, audioLevel: data.level }
            fuzzyCompare(find("levelMeter").fraction, data.fraction, 0.001)
        }
    }
}
