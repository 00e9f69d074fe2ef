// Starting, pausing and ending a call, and everything that comes before it:
// the model load at start-up and the capture permissions.
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

Rectangle {
    id: root
    objectName: "callControlCard"

    // The call controller (or a stand-in with the same properties).
    required property var controller
    readonly property var call: controller ? controller.callModel : null
    readonly property string callState: !controller ? "initializing"
        : controller.isLive ? (call && call.isAudioPaused ? "paused" : "live")
        : controller.isInitializingModels ? "initializing"
        : !controller.hasRequiredPermissions ? "needsPermissions"
        : "idle"

    function formatDuration(seconds) {
        const total = Math.max(0, Math.floor(seconds))
        const h = Math.floor(total / 3600)
        const m = Math.floor(total % 3600 / 60)
        const s = total % 60
        const two = n => (n < 10 ? "0" : "") + n
        return h > 0 ? h + ":" + two(m) + ":" + two(s) : two(m) + ":" + two(s)
    }

    implicitHeight: content.implicitHeight + 2 * Theme.padding
    radius: Theme.radius * 1.5
    color: Theme.surface
    border.color: Theme.border

    onCallStateChanged: {
        if (callState === "needsPermissions")
            controller.startPermissionPolling()
    }
    Component.onCompleted: {
        if (callState === "needsPermissions")
            controller.startPermissionPolling()
    }

    ColumnLayout {
        id: content
        anchors.fill: parent
        anchors.margins: Theme.padding
        spacing: Theme.spacing

        // Initializing
        ColumnLayout {
            objectName: "initializingState"
            visible: root.callState === "initializing"
            Layout.fillWidth: true
            spacing: Theme.spacing
            Label {
                objectName: "initializationStatus"
                text: root.controller ? root.controller.initializationStatus : ""
                font.pixelSize: Theme.fontTitle
                color: Theme.text
            }
            ProgressBar {
                objectName: "initializationProgress"
                Layout.fillWidth: true
                from: 0
                to: 1
                value: root.controller ? root.controller.initializationProgress : 0
                Accessible.name: "Start-up progress"
            }
        }

        // Needs permissions
        ColumnLayout {
            objectName: "permissionsState"
            visible: root.callState === "needsPermissions"
            Layout.fillWidth: true
            spacing: Theme.spacing
            Label {
                text: "Grant Permissions to Record"
                font.pixelSize: Theme.fontTitle
                font.weight: Font.DemiBold
                color: Theme.text
            }
            Label {
                Layout.fillWidth: true
                wrapMode: Text.WordWrap
                text: "Quillmoss needs microphone and screen recording permissions to work."
                color: Theme.textMuted
                font.pixelSize: Theme.fontBody
            }
            Label {
                Layout.fillWidth: true
                wrapMode: Text.WordWrap
                text: "On Linux this means the sound server must let Quillmoss record your microphone and the output monitor."
                color: Theme.textMuted
                font.pixelSize: Theme.fontSmall
            }
            RowLayout {
                spacing: Theme.spacing
                QmButton {
                    objectName: "openPrivacySettingsButton"
                    text: "Open Sound Settings"
                    primary: true
                    onClicked: root.controller.openPrivacySettings()
                }
                QmButton {
                    objectName: "checkPermissionsButton"
                    text: "Check Again"
                    enabled: !root.controller.isCheckingPermissions
                    onClicked: root.controller.checkPermissions(true)
                }
                BusyIndicator {
                    visible: root.controller && root.controller.isCheckingPermissions
                    running: visible
                    implicitWidth: 24
                    implicitHeight: 24
                }
                Label {
                    objectName: "checkingPermissions"
                    visible: root.controller && root.controller.isCheckingPermissions
                    text: "Checking permissions..."
                    color: Theme.textMuted
                }
            }
        }

        // Idle
        RowLayout {
            objectName: "idleState"
            visible: root.callState === "idle"
            Layout.fillWidth: true
            spacing: Theme.padding
            ColumnLayout {
                Layout.fillWidth: true
                spacing: 2
                Label {
                    text: "Ready for your next call"
                    font.pixelSize: Theme.fontTitle
                    font.weight: Font.DemiBold
                    color: Theme.text
                }
                Label {
                    Layout.fillWidth: true
                    elide: Text.ElideRight
                    textFormat: Text.PlainText
                    text: root.controller && root.controller.hasSelectedAudioDevice
                          ? "Microphone: " + root.controller.selectedAudioDevice.name
                          : "Microphone: system default"
                    color: Theme.textMuted
                    font.pixelSize: Theme.fontSmall
                }
                Label {
                    objectName: "captureError"
                    visible: text.length > 0
                    Layout.fillWidth: true
                    wrapMode: Text.WordWrap
                    textFormat: Text.PlainText
                    text: root.controller ? root.controller.captureError : ""
                    color: Theme.danger
                    font.pixelSize: Theme.fontSmall
                }
            }
            QmButton {
                objectName: "startCallButton"
                text: "Start Call"
                primary: true
                onClicked: root.controller.startCall()
            }
        }

        // Live and paused
        RowLayout {
            objectName: "liveState"
            visible: root.callState === "live" || root.callState === "paused"
            Layout.fillWidth: true
            spacing: Theme.padding

            Rectangle {
                width: 12; height: 12; radius: 6
                color: root.callState === "live" ? Theme.danger : Theme.textMuted
                Accessible.role: Accessible.Indicator
                Accessible.name: root.callState === "live" ? "Recording" : "Paused"
                // A slow blink, not an animation: every frame of the window costs
                // the machine the call runs on.
                Timer {
                    running: root.callState === "live" && !Theme.reduceMotion
                    repeat: true
                    interval: 900
                    onTriggered: parent.opacity = parent.opacity < 1 ? 1 : 0.4
                    onRunningChanged: if (!running) parent.opacity = 1
                }
            }
            ColumnLayout {
                spacing: 2
                Label {
                    objectName: "callStateLabel"
                    text: root.callState === "live" ? "Call in progress" : "Paused — audio is not being recorded"
                    font.pixelSize: Theme.fontBody
                    font.weight: Font.DemiBold
                    color: Theme.text
                }
                Label {
                    objectName: "callTimer"
                    text: root.formatDuration(root.call ? root.call.duration : 0)
                    font.pixelSize: Theme.fontHeading
                    font.family: "monospace"
                    color: Theme.text
                    Accessible.name: "Call duration " + text
                }
            }
            LevelMeter {
                objectName: "levelMeter"
                Layout.fillWidth: true
                Layout.maximumWidth: 260
                level: root.callState === "live" && root.call ? root.call.audioLevel : 0
            }
            Item { Layout.fillWidth: true }
            QmButton {
                objectName: "pauseCallButton"
                visible: root.callState === "live"
                text: "Pause"
                onClicked: root.controller.pauseCall()
            }
            QmButton {
                objectName: "resumeCallButton"
                visible: root.callState === "paused"
                text: "Resume"
                primary: true
                onClicked: root.controller.resumeCall()
            }
            QmButton {
                objectName: "endCallButton"
                text: "End Call"
                destructive: true
                onClicked: endCallDialog.open()
            }
        }
    }

    Dialog {
        id: endCallDialog
        objectName: "endCallDialog"
        title: "End Call Confirmation"
        modal: true
        anchors.centerIn: Overlay.overlay
        width: Math.min(440, (Overlay.overlay ? Overlay.overlay.width : 440) - 2 * Theme.padding)
        padding: Theme.padding

        background: Rectangle {
            radius: Theme.radius * 1.5
            color: Theme.surface
            border.color: Theme.border
        }
        header: Label {
            text: endCallDialog.title
            padding: Theme.padding
            bottomPadding: 0
            font.pixelSize: Theme.fontTitle
            font.weight: Font.DemiBold
            color: Theme.text
        }
        contentItem: ColumnLayout {
            spacing: Theme.padding
            Label {
                objectName: "endCallMessage"
                Layout.fillWidth: true
                wrapMode: Text.WordWrap
                text: root.controller ? root.controller.endCallConfirmation : ""
                color: Theme.text
                font.pixelSize: Theme.fontBody
            }
            RowLayout {
                Layout.alignment: Qt.AlignRight
                spacing: Theme.spacing
                QmButton {
                    objectName: "cancelEndCallButton"
                    text: "Cancel"
                    onClicked: endCallDialog.close()
                }
                QmButton {
                    objectName: "pauseInsteadButton"
                    visible: root.callState === "live"
                    text: "Pause Instead"
                    onClicked: {
                        root.controller.pauseCall()
                        endCallDialog.close()
                    }
                }
                QmButton {
                    objectName: "confirmEndCallButton"
                    text: "End Call"
                    primary: true
                    focus: true
                    onClicked: {
                        endCallDialog.close()
                        root.controller.endCall()
                    }
                }
            }
        }
    }
}
