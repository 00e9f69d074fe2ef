// The sign-in screen: signing in happens on the web login page in the browser,
// which hands the tokens back through a "quillmoss://" link.
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

Rectangle {
    id: root
    objectName: "loginScreen"
    color: Theme.background

    signal continueWithGoogle()
    signal openTerms()

    Rectangle {
        anchors.centerIn: parent
        width: Math.min(parent.width - 2 * Theme.padding, 440)
        height: card.implicitHeight + 2 * 32
        radius: Theme.radius * 2
        color: Theme.surface
        border.color: Theme.border

        ColumnLayout {
            id: card
            anchors.fill: parent
            anchors.margins: 32
            spacing: Theme.spacing * 1.5

            Image {
                Layout.alignment: Qt.AlignHCenter
                source: "images/quillmoss.svg"
                sourceSize.width: 64
                sourceSize.height: 64
                Accessible.role: Accessible.Graphic
                Accessible.name: "Quillmoss"
            }
            Label {
                Layout.alignment: Qt.AlignHCenter
                text: "Quillmoss"
                font.pixelSize: Theme.fontHeading
                font.weight: Font.Bold
                color: Theme.text
            }
            Label {
                Layout.alignment: Qt.AlignHCenter
                text: "AI-Powered Sales Assistant"
                font.pixelSize: Theme.fontTitle
                color: Theme.accent
            }
            Label {
                Layout.fillWidth: true
                horizontalAlignment: Text.AlignHCenter
                wrapMode: Text.WordWrap
                text: "Sign in to access your AI sales assistant and start improving your call performance"
                font.pixelSize: Theme.fontBody
                color: Theme.textMuted
            }
            QmButton {
                objectName: "continueWithGoogleButton"
                Layout.fillWidth: true
                Layout.topMargin: Theme.spacing
                text: "Continue with Google"
                primary: true
                focus: true
                onClicked: root.continueWithGoogle()
            }
            Label {
                Layout.fillWidth: true
                horizontalAlignment: Text.AlignHCenter
                wrapMode: Text.WordWrap
                text: "Sign-in opens in your browser and returns here when it is done."
                font.pixelSize: Theme.fontSmall
                color: Theme.textMuted
            }
            RowLayout {
                Layout.alignment: Qt.AlignHCenter
                spacing: 4
                Label {
                    text: "By continuing you agree to our"
                    font.pixelSize: Theme.fontSmall
                    color: Theme.textMuted
                }
                Label {
                    id: termsLink
                    objectName: "termsLink"
                    text: "Terms of Service"
                    font.pixelSize: Theme.fontSmall
                    font.underline: true
                    color: Theme.accent
                    activeFocusOnTab: true
                    Accessible.role: Accessible.Link
                    Accessible.name: text
                    Accessible.onPressAction: root.openTerms()
                    Keys.onReturnPressed: root.openTerms()
                    Keys.onSpacePressed: root.openTerms()
                    Rectangle {
                        anchors.fill: parent
                        anchors.margins: -2
                        color: "transparent"
                        radius: 3
                        border.width: termsLink.activeFocus ? 2 : 0
                        border.color: Theme.focus
                    }
                    MouseArea {
                        anchors.fill: parent
                        cursorShape: Qt.PointingHandCursor
                        onClicked: root.openTerms()
                    }
                }
            }
        }
    }
}
