// Text of a call's details as it arrived: plain, wrapped, muted for the
// secondary lines and the empty states.
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

Label {
    property bool muted: false
    Layout.fillWidth: true
    wrapMode: Text.Wrap
    textFormat: Text.PlainText
    font.pixelSize: muted ? Theme.fontSmall : Theme.fontBody
    color: muted ? Theme.textMuted : Theme.text
}
