// A short tag in a pill (a call's status, an action item's priority); hidden when empty.
import QtQuick
import QtQuick.Controls

Label {
    property color tint: Theme.surfaceAlt
    property color ink: Theme.textMuted
    visible: text !== ""
    textFormat: Text.PlainText
    font.pixelSize: Theme.fontSmall
    color: ink
    leftPadding: 8
    rightPadding: 8
    topPadding: 2
    bottomPadding: 2
    background: Rectangle { radius: height / 2; color: parent.tint }
}
