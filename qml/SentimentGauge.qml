// The call's sentiment score (-1 to 1) as a half-circle gauge.
import QtQuick
import QtQuick.Controls

Item {
    id: root
    property real score: 0
    property string label
    readonly property real clamped: Math.max(-1, Math.min(1, score))

    implicitWidth: 200
    implicitHeight: 120
    Accessible.role: Accessible.Indicator
    Accessible.name: "Sentiment " + label + ", score " + clamped.toFixed(2)

    Canvas {
        id: canvas
        anchors.fill: parent
        property color track: Theme.surfaceAlt
        property color negative: Theme.danger
        property color neutral: Theme.warning
        property color positive: Theme.success
        property real value: root.clamped
        onTrackChanged: requestPaint()
        onValueChanged: requestPaint()
        onPaint: {
            const ctx = getContext("2d")
            ctx.reset()
            const cx = width / 2, cy = height - 14, r = Math.min(width / 2, height) - 16
            ctx.lineWidth = 14
            ctx.lineCap = "round"
            ctx.strokeStyle = track
            ctx.beginPath()
            ctx.arc(cx, cy, r, Math.PI, 2 * Math.PI)
            ctx.stroke()
            const end = Math.PI + (value + 1) / 2 * Math.PI
            ctx.strokeStyle = value < -0.2 ? negative : value > 0.2 ? positive : neutral
            ctx.beginPath()
            ctx.arc(cx, cy, r, Math.PI, end)
            ctx.stroke()
        }
    }
    Label {
        anchors.horizontalCenter: parent.horizontalCenter
        anchors.bottom: parent.bottom
        text: root.clamped.toFixed(2)
        font.pixelSize: Theme.fontHeading
        font.weight: Font.DemiBold
        color: Theme.text
    }
}
