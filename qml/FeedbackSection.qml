// The feedback form: a type, the message with its counter, and how the submission went.
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

ColumnLayout {
    id: root
    objectName: "feedbackSection"

    // The FeedbackForm (or a stand-in).
    required property var feedbackForm

    readonly property bool submitting: feedbackForm ? feedbackForm.isSubmitting : false

    spacing: Theme.spacing

    RowLayout {
        Layout.fillWidth: true
        spacing: Theme.spacing
        Label {
            text: "Type"
            font.pixelSize: Theme.fontBody
            color: Theme.textMuted
        }
        ComboBox {
            id: typeBox
            objectName: "feedbackTypeBox"
            implicitWidth: 200
            activeFocusOnTab: true
            model: root.feedbackForm ? root.feedbackForm.typeOptions : []
            textRole: "label"
            valueRole: "value"
            currentIndex: root.feedbackForm ? root.feedbackForm.typeIndex : 0
            enabled: !root.submitting
            font.pixelSize: Theme.fontBody
            Accessible.role: Accessible.ComboBox
            Accessible.name: "Feedback type: " + displayText
            onActivated: index => root.feedbackForm.typeIndex = index
            background: Rectangle {
                implicitHeight: 36
                radius: Theme.radius
                color: Theme.surface
                border.width: typeBox.visualFocus ? 2 : 1
                border.color: typeBox.visualFocus ? Theme.focus : Theme.border
            }
            contentItem: Label {
                leftPadding: 10
                text: typeBox.displayText
                font: typeBox.font
                color: Theme.text
                verticalAlignment: Text.AlignVCenter
                elide: Text.ElideRight
            }
        }
        Item { Layout.fillWidth: true }
    }

    ScrollView {
        Layout.fillWidth: true
        Layout.preferredHeight: 140
        TextArea {
            id: textArea
            objectName: "feedbackText"
            text: root.feedbackForm ? root.feedbackForm.text : ""
            placeholderText: root.feedbackForm ? root.feedbackForm.placeholderText : ""
            placeholderTextColor: Theme.textMuted
            color: Theme.text
            wrapMode: TextEdit.Wrap
            textFormat: TextEdit.PlainText
            font.pixelSize: Theme.fontBody
            readOnly: root.submitting
            activeFocusOnTab: true
            // Tab moves on to the next control rather than typing a tab.
            KeyNavigation.priority: KeyNavigation.BeforeItem
            KeyNavigation.tab: submitButton
            KeyNavigation.backtab: typeBox
            Accessible.role: Accessible.EditableText
            Accessible.name: "Feedback message"
            Accessible.description: placeholderText
            onTextChanged: if (root.feedbackForm) root.feedbackForm.text = text
            background: Rectangle {
                radius: Theme.radius
                color: Theme.surface
                border.width: textArea.activeFocus ? 2 : 1
                border.color: textArea.activeFocus ? Theme.focus
                            : overLimit.over ? Theme.danger : Theme.border
            }
        }
    }

    RowLayout {
        Layout.fillWidth: true
        spacing: Theme.spacing
        Label {
            id: overLimit
            objectName: "feedbackCounter"
            readonly property bool over: root.feedbackForm
                                         ? root.feedbackForm.characterCount > root.feedbackForm.maxCharacters
                                         : false
            text: root.feedbackForm
                  ? root.feedbackForm.characterCount + " / " + root.feedbackForm.maxCharacters
                  : ""
            font.pixelSize: Theme.fontSmall
            color: over ? Theme.danger : Theme.textMuted
            Accessible.name: text + " characters"
        }
        Item { Layout.fillWidth: true }
        BusyIndicator {
            visible: root.submitting
            running: root.submitting
            implicitWidth: 24
            implicitHeight: 24
            Accessible.name: "Sending feedback"
        }
        QmButton {
            id: submitButton
            objectName: "feedbackSubmit"
            text: "Submit Feedback"
            primary: true
            enabled: root.feedbackForm !== null && !root.submitting
            onClicked: root.feedbackForm.submit()
        }
    }

    Rectangle {
        id: alert
        objectName: "feedbackAlert"
        readonly property bool isError: root.feedbackForm ? root.feedbackForm.alertIsError : false
        Layout.fillWidth: true
        visible: root.feedbackForm ? root.feedbackForm.alertVisible : false
        implicitHeight: alertColumn.implicitHeight + Theme.padding
        radius: Theme.radius
        color: isError ? Theme.dangerSoft : Theme.successSoft
        Accessible.role: Accessible.AlertMessage
        Accessible.name: alertTitle.text + ". " + alertMessage.text

        RowLayout {
            id: alertColumn
            anchors.fill: parent
            anchors.margins: Theme.padding / 2
            spacing: Theme.spacing
            ColumnLayout {
                Layout.fillWidth: true
                spacing: 2
                Label {
                    id: alertTitle
                    objectName: "feedbackAlertTitle"
                    Layout.fillWidth: true
                    text: root.feedbackForm ? root.feedbackForm.alertTitle : ""
                    textFormat: Text.PlainText
                    wrapMode: Text.Wrap
                    font.pixelSize: Theme.fontBody
                    font.weight: Font.DemiBold
                    color: alert.isError ? Theme.danger : Theme.success
                }
                Label {
                    id: alertMessage
                    objectName: "feedbackAlertMessage"
                    Layout.fillWidth: true
                    text: root.feedbackForm ? root.feedbackForm.alertMessage : ""
                    textFormat: Text.PlainText
                    wrapMode: Text.Wrap
                    font.pixelSize: Theme.fontBody
                    color: Theme.text
                }
            }
            QmButton {
                objectName: "feedbackAlertOk"
                text: "OK"
                onClicked: root.feedbackForm.dismissAlert()
            }
        }
    }
}
