// The app's button: themed, with a focus ring keyboard users can see.
import QtQuick
import QtQuick.Controls

Button {
    id: control
    property bool primary: false
    property bool destructive: false

    activeFocusOnTab: true
    padding: 10
    leftPadding: 16
    rightPadding: 16
    font.pixelSize: Theme.fontBody
    Accessible.name: text

    contentItem: Text {
        text: control.text
        font: control.font
        color: !control.enabled ? Theme.textMuted
              : control.primary ? Theme.accentText
              : control.destructive ? Theme.danger : Theme.text
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
        elide: Text.ElideRight
    }
    background: Rectangle {
        implicitHeight: 36
        implicitWidth: 88
        radius: Theme.radius
        color: control.primary ? (control.enabled ? Theme.accent : Theme.border)
             : control.destructive ? Theme.dangerSoft : Theme.surfaceAlt
        opacity: control.down ? 0.8 : (control.hovered ? 0.92 : 1.0)
        border.width: control.visualFocus ? 2 : (control.primary ? 0 : 1)
        border.color: control.visualFocus ? Theme.focus : Theme.border
        Behavior on opacity { NumberAnimation { duration: Theme.animationDuration } }
    }
}
