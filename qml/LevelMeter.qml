// The microphone's level while a call is live, on a decibel scale so quiet
// speech still moves it. It moves in steps, as the level arrives (ten times
// a second): animating it would repaint the window on every frame of a call.
import QtQuick

Item {
    id: root
    property real level: 0
    readonly property real fraction: level <= 0.001 ? 0
                                   : Math.max(0, Math.min(1, (20 * Math.log(level) / Math.LN10 + 60) / 60))

    implicitWidth: 160
    implicitHeight: 8
    Accessible.role: Accessible.ProgressBar
    Accessible.name: "Microphone level"
    Accessible.description: Math.round(fraction * 100) + " percent"

    Rectangle {
        anchors.fill: parent
        radius: height / 2
        color: Theme.surfaceAlt
        border.color: Theme.border
    }
    Rectangle {
        objectName: "levelFill"
        width: parent.width * root.fraction
        height: parent.height
        radius: height / 2
        color: root.fraction > 0.9 ? Theme.warning : Theme.success
    }
}
