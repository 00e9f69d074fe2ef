// Shown while the stored sign-in is checked and the profile fetched.
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

Rectangle {
    objectName: "loadingScreen"
    color: Theme.background

    ColumnLayout {
        anchors.centerIn: parent
        spacing: Theme.spacing * 1.5

        BusyIndicator {
            Layout.alignment: Qt.AlignHCenter
            running: visible
            Accessible.name: "Loading"
        }
        Label {
            Layout.alignment: Qt.AlignHCenter
            text: "Fetching profile..."
            font.pixelSize: Theme.fontTitle
            font.weight: Font.DemiBold
            color: Theme.text
        }
        Label {
            Layout.alignment: Qt.AlignHCenter
            text: "Please wait while we load your account information"
            font.pixelSize: Theme.fontBody
            color: Theme.textMuted
        }
    }
}
