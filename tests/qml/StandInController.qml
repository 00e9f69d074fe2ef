// A call controller's published state and invokables, for the call screen's tests.
import QtQuick

QtObject {
    property bool isLive: false
    property var callModel: ({ isAudioPaused: false, duration: 0, audioLevel: 0 })
    property bool isInitializingModels: false
    property string initializationStatus: "Setting up app..."
    property real initializationProgress: 0
    property bool hasRequiredPermissions: true
    property bool isCheckingPermissions: false
    property bool hasSelectedAudioDevice: false
    property var selectedAudioDevice: ({ name: "" })
    property string captureError: ""
    property string serverStatusText: ""
    property bool isSessionReady: false
    readonly property string endCallConfirmation: "This will close the AI assistant session. Do you want to pause instead? Warning: pausing will keep call minutes running."

    property var calls: []
    function record(name) { calls = calls.concat([name]) }
    function startCall() { record("startCall"); isLive = true; return true }
    function pauseCall() { record("pauseCall"); callModel = Object.assign({}, callModel, { isAudioPaused: true }) }
    function resumeCall() { record("resumeCall"); callModel = Object.assign({}, callModel, { isAudioPaused: false }) }
    function endCall() { record("endCall"); isLive = false }
    function startPermissionPolling() { record("startPermissionPolling") }
    function checkPermissions(request) { record("checkPermissions:" + request) }
    function openPrivacySettings() { record("openPrivacySettings") }
}
