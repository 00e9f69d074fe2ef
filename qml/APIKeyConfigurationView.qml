// One integration's configuration sheet. What it asks for follows how the
// integration signs in; a key typed here lives in its input field alone and
// goes from there to the form, and a stored key is never shown.
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

Dialog {
    id: sheet
    objectName: "apiKeyConfigurationView"

    // ConfigurationManager and APIKeyConfigurationForm (or stand-ins).
    required property var configurationManager
    required property var apiKeyForm

    // The integration's row as the list shows it: no credential in it.
    property var integration: ({})
    property bool keyShown: false

    readonly property string name: integration.name !== undefined ? integration.name : ""
    readonly property string authType: integration.authType !== undefined ? integration.authType : "none"
    readonly property var additionalFields: integration.additionalFields ? integration.additionalFields : []
    // Read again with every change of the configuration: a key saved or removed.
    readonly property bool hasStoredKey: configurationManager !== null && name !== ""
                                         && configurationManager.revision >= 0
                                         && configurationManager.hasAPIKey(name)
    readonly property string errorMessage: apiKeyForm && apiKeyForm.errorMessage ? apiKeyForm.errorMessage : ""

    function openFor(row) {
        integration = row
        if (apiKeyForm)
            apiKeyForm.clearError()
        const stored = apiKeyForm ? apiKeyForm.storedFields(name) : ({})
        for (let i = 0; i < fieldRepeater.count; ++i) {
            const field = fieldRepeater.itemAt(i)
            field.text = stored[field.fieldKey] !== undefined ? stored[field.fieldKey] : ""
        }
        open()
    }

    function save() {
        const fields = {}
        for (let i = 0; i < fieldRepeater.count; ++i) {
            const field = fieldRepeater.itemAt(i)
            fields[field.fieldKey] = field.text
        }
        if (apiKeyForm.save(name, keyField.text, fields))
            close()
    }

    title: name
    modal: true
    focus: true
    anchors.centerIn: Overlay.overlay
    width: Math.min(520, (Overlay.overlay ? Overlay.overlay.width : 520) - 2 * Theme.padding)
    padding: Theme.padding

    onOpened: {
        if (authType === "apiKey")
            keyField.forceActiveFocus()
    }
    // Nothing typed outlives the sheet.
    onClosed: {
        keyField.text = ""
        keyShown = false
        usernameField.text = ""
        passwordField.text = ""
        for (let i = 0; i < fieldRepeater.count; ++i)
            fieldRepeater.itemAt(i).text = ""
    }

    component Heading: Label {
        font.pixelSize: Theme.fontBody
        font.weight: Font.DemiBold
        color: Theme.text
        Accessible.role: Accessible.Heading
    }
    component Note: Label {
        Layout.fillWidth: true
        wrapMode: Text.Wrap
        textFormat: Text.PlainText
        font.pixelSize: Theme.fontSmall
        color: Theme.textMuted
        Accessible.role: Accessible.StaticText
        Accessible.name: text
    }
    component Field: TextField {
        id: field
        Layout.fillWidth: true
        activeFocusOnTab: true
        selectByMouse: true
        font.pixelSize: Theme.fontBody
        color: Theme.text
        placeholderTextColor: Theme.textMuted
        Accessible.role: Accessible.EditableText
        Accessible.description: placeholderText
        background: Rectangle {
            implicitHeight: 36
            radius: Theme.radius
            color: Theme.surface
            border.width: field.activeFocus ? 2 : 1
            border.color: field.activeFocus ? Theme.focus : Theme.border
        }
    }

    background: Rectangle {
        radius: Theme.radius * 1.5
        color: Theme.surface
        border.color: Theme.border
    }
    header: ColumnLayout {
        spacing: 2
        Label {
            Layout.fillWidth: true
            Layout.margins: Theme.padding
            Layout.bottomMargin: 0
            text: sheet.title
            textFormat: Text.PlainText
            font.pixelSize: Theme.fontTitle
            font.weight: Font.DemiBold
            color: Theme.text
            Accessible.role: Accessible.Heading
        }
        Label {
            Layout.fillWidth: true
            Layout.leftMargin: Theme.padding
            Layout.rightMargin: Theme.padding
            text: sheet.integration.description !== undefined ? sheet.integration.description : ""
            textFormat: Text.PlainText
            wrapMode: Text.Wrap
            font.pixelSize: Theme.fontSmall
            color: Theme.textMuted
        }
    }

    contentItem: ColumnLayout {
        spacing: Theme.padding
        Accessible.role: Accessible.Dialog
        Accessible.name: "Configure " + sheet.name

        ColumnLayout {
            objectName: "apiKeySection"
            Layout.fillWidth: true
            visible: sheet.authType === "apiKey"
            spacing: Theme.spacing

            Heading { text: "API Key" }
            RowLayout {
                Layout.fillWidth: true
                spacing: Theme.spacing
                Field {
                    id: keyField
                    objectName: "apiKeyField"
                    placeholderText: sheet.integration.apiKeyPlaceholder !== undefined
                                     ? sheet.integration.apiKeyPlaceholder : ""
                    echoMode: sheet.keyShown ? TextInput.Normal : TextInput.Password
                    inputMethodHints: Qt.ImhSensitiveData | Qt.ImhNoPredictiveText | Qt.ImhNoAutoUppercase
                    Accessible.name: "API key"
                    onAccepted: sheet.save()
                }
                QmButton {
                    objectName: "apiKeyVisibilityToggle"
                    text: sheet.keyShown ? "Hide" : "Show"
                    Accessible.name: sheet.keyShown ? "Hide API key" : "Show API key"
                    onClicked: sheet.keyShown = !sheet.keyShown
                }
            }
            RowLayout {
                objectName: "storedKeyLine"
                visible: sheet.hasStoredKey
                spacing: 6
                Rectangle {
                    implicitWidth: 16
                    implicitHeight: 16
                    radius: 8
                    color: Theme.success
                    Accessible.ignored: true
                    Label {
                        anchors.centerIn: parent
                        text: "✓"
                        font.pixelSize: 11
                        font.weight: Font.Bold
                        color: Theme.surface
                    }
                }
                Label {
                    objectName: "storedKeyText"
                    text: "API key is already stored securely"
                    font.pixelSize: Theme.fontSmall
                    color: Theme.success
                    Accessible.role: Accessible.StaticText
                    Accessible.name: text
                }
                Label {
                    text: "••••••••"
                    font.pixelSize: Theme.fontSmall
                    color: Theme.textMuted
                    Accessible.ignored: true
                }
            }

            Repeater {
                id: fieldRepeater
                model: sheet.additionalFields
                delegate: ColumnLayout {
                    required property var modelData
                    readonly property string fieldKey: modelData.key
                    property alias text: extraField.text

                    Layout.fillWidth: true
                    Layout.topMargin: Theme.spacing
                    spacing: 4
                    Heading { text: modelData.label }
                    Field {
                        id: extraField
                        objectName: "integrationField_" + modelData.key
                        placeholderText: modelData.placeholder
                        echoMode: modelData.fieldType === "password" ? TextInput.Password : TextInput.Normal
                        inputMethodHints: modelData.fieldType === "email"
                                          ? Qt.ImhEmailCharactersOnly | Qt.ImhNoAutoUppercase
                                          : modelData.fieldType === "password"
                                            ? Qt.ImhSensitiveData | Qt.ImhNoPredictiveText | Qt.ImhNoAutoUppercase
                                            : Qt.ImhNone
                        Accessible.name: modelData.label
                    }
                    Note {
                        text: "Optional: This will be used as the default when not specified in individual requests."
                    }
                }
            }
        }

        ColumnLayout {
            objectName: "oauthSection"
            Layout.fillWidth: true
            visible: sheet.authType === "oauth"
            spacing: Theme.spacing
            Heading { text: "OAuth Authentication" }
            Label {
                objectName: "oauthText"
                Layout.fillWidth: true
                text: "Click 'Authorize' to securely connect your " + sheet.name + " account using OAuth."
                textFormat: Text.PlainText
                wrapMode: Text.Wrap
                font.pixelSize: Theme.fontBody
                color: Theme.text
            }
            QmButton {
                objectName: "authorizeButton"
                text: "Authorize"
                // The integrations that sign in with OAuth are all still to come.
                enabled: false
            }
        }

        ColumnLayout {
            objectName: "basicAuthSection"
            Layout.fillWidth: true
            visible: sheet.authType === "basicAuth"
            spacing: Theme.spacing
            Heading { text: "Username & Password" }
            Field {
                id: usernameField
                objectName: "usernameField"
                placeholderText: "Username"
                inputMethodHints: Qt.ImhNoAutoUppercase | Qt.ImhNoPredictiveText
                Accessible.name: "Username"
            }
            Field {
                id: passwordField
                objectName: "passwordField"
                placeholderText: "Password"
                echoMode: TextInput.Password
                inputMethodHints: Qt.ImhSensitiveData | Qt.ImhNoPredictiveText | Qt.ImhNoAutoUppercase
                Accessible.name: "Password"
            }
        }

        ColumnLayout {
            objectName: "noAuthSection"
            Layout.fillWidth: true
            visible: sheet.authType === "none"
            spacing: Theme.spacing
            Heading { text: "No Authentication Required" }
            Note { text: "This integration doesn't require any authentication." }
        }

        Label {
            objectName: "configurationError"
            Layout.fillWidth: true
            visible: text !== ""
            text: sheet.errorMessage
            textFormat: Text.PlainText
            wrapMode: Text.Wrap
            font.pixelSize: Theme.fontBody
            color: Theme.danger
            Accessible.role: Accessible.AlertMessage
            Accessible.name: text
        }

        Note {
            objectName: "securityNote"
            text: "Your credentials are securely stored in your desktop's keyring and are never transmitted "
                  + "in plain text. They remain encrypted and accessible only to this application."
        }

        RowLayout {
            Layout.fillWidth: true
            spacing: Theme.spacing
            QmButton {
                objectName: "removeApiKeyButton"
                visible: sheet.authType === "apiKey" && sheet.hasStoredKey
                text: "Remove API key"
                destructive: true
                Accessible.name: "Remove the API key of " + sheet.name
                onClicked: sheet.configurationManager.removeAPIKey(sheet.name)
            }
            Item { Layout.fillWidth: true }
            QmButton {
                objectName: "cancelConfigurationButton"
                text: "Cancel"
                onClicked: sheet.close()
            }
            QmButton {
                objectName: "saveConfigurationButton"
                visible: sheet.authType === "apiKey"
                enabled: sheet.apiKeyForm !== null
                text: "Save"
                primary: true
                onClicked: sheet.save()
            }
        }
    }
}
