// A tab of the app's tab bars: the current one underlined in the accent colour.
import QtQuick
import QtQuick.Controls

TabButton {
    id: control
    activeFocusOnTab: true
    padding: 8
    font.pixelSize: Theme.fontBody
    Accessible.name: text

    contentItem: Text {
        text: control.text
        font.pixelSize: control.font.pixelSize
        font.weight: control.checked ? Font.DemiBold : Font.Normal
        color: control.checked ? Theme.accent : Theme.textMuted
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
        elide: Text.ElideRight
    }
    background: Rectangle {
        implicitHeight: 36
        color: control.hovered ? Theme.surfaceAlt : "transparent"
        border.width: control.visualFocus ? 2 : 0
        border.color: Theme.focus
        radius: 4
        Rectangle {
            anchors.bottom: parent.bottom
            width: parent.width
            height: control.checked ? 2 : 1
            color: control.checked ? Theme.accent : Theme.border
        }
    }
}
