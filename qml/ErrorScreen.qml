// Shown when signing in failed: the reason, a retry and a way back to the login.
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

Rectangle {
    id: root
    objectName: "errorScreen"
    color: Theme.background

    property string message
    signal retry()
    signal signInAgain()

    ColumnLayout {
        anchors.centerIn: parent
        width: Math.min(parent.width - 2 * Theme.padding, 460)
        spacing: Theme.spacing * 1.5

        Label {
            Layout.alignment: Qt.AlignHCenter
            text: "⚠"
            font.pixelSize: 44
            color: Theme.warning
            Accessible.role: Accessible.Graphic
            Accessible.name: "Warning"
        }
        Label {
            Layout.alignment: Qt.AlignHCenter
            text: "Something went wrong"
            font.pixelSize: Theme.fontTitle
            font.weight: Font.DemiBold
            color: Theme.text
        }
        Label {
            objectName: "errorMessage"
            Layout.fillWidth: true
            horizontalAlignment: Text.AlignHCenter
            wrapMode: Text.WordWrap
            textFormat: Text.PlainText
            text: root.message
            color: Theme.textMuted
            font.pixelSize: Theme.fontBody
        }
        RowLayout {
            Layout.alignment: Qt.AlignHCenter
            spacing: Theme.spacing
            QmButton {
                objectName: "retryButton"
                text: "Try Again"
                primary: true
                focus: true
                onClicked: root.retry()
            }
            QmButton {
                objectName: "signInAgainButton"
                text: "Sign In Again"
                onClicked: root.signInAgain()
            }
        }
    }
}
