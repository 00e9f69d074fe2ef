// The remote MCP servers on the integrations screen: the pre-built ones and
// the user's own, each with its state, its last error, connect and disconnect,
// and the tools a connected one offers; a form adds a server by URL.
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

ColumnLayout {
    id: section
    objectName: "remoteMcpSection"

    // MCPRemoteService (or a stand-in).
    required property var mcpService

    readonly property var integrations: mcpService ? mcpService.integrations : []
    // The form's check of the URL as typed.
    readonly property var urlCheck: mcpService && urlField.text !== "" ? mcpService.checkUrl(urlField.text)
                                                                       : ({ error: "", warning: "" })
    property string addError: ""

    function keyOf(name) { return name.replace(/[^A-Za-z0-9]/g, "_") }

    function add() {
        addError = mcpService.addIntegration(nameField.text, urlField.text, authBox.checked, descriptionField.text)
        if (addError !== "")
            return
        nameField.text = ""
        urlField.text = ""
        descriptionField.text = ""
        authBox.checked = false
    }

    spacing: Theme.spacing

    Label {
        objectName: "remoteMcpHeading"
        Layout.topMargin: Theme.padding
        text: "Remote MCP"
        font.pixelSize: Theme.fontTitle
        font.weight: Font.DemiBold
        color: Theme.text
        Accessible.role: Accessible.Heading
        Accessible.name: text
    }
    Label {
        Layout.fillWidth: true
        text: "Connect servers that speak the Model Context Protocol; the assistant may then ask for their tools."
        wrapMode: Text.Wrap
        font.pixelSize: Theme.fontBody
        color: Theme.textMuted
    }

    Repeater {
        model: section.integrations
        delegate: Rectangle {
            id: mcpCard
            required property var modelData
            readonly property string key: section.keyOf(modelData.name)
            readonly property bool connected: modelData.state === "connected"
            readonly property bool connecting: modelData.state === "connecting"
            // The sign-in in the browser, before the connection itself.
            readonly property bool signingIn: modelData.state === "signing in"
            readonly property bool waitingForBrowser: modelData.state === "waiting for browser"
            readonly property bool busy: connecting || signingIn || waitingForBrowser

            objectName: "mcpCard_" + key
            Layout.fillWidth: true
            implicitHeight: cardColumn.implicitHeight + 2 * Theme.padding
            radius: Theme.radius * 1.5
            color: Theme.surface
            border.color: Theme.border
            Accessible.role: Accessible.Grouping
            Accessible.name: modelData.name

            ColumnLayout {
                id: cardColumn
                anchors.fill: parent
                anchors.margins: Theme.padding
                spacing: 4

                RowLayout {
                    spacing: Theme.spacing
                    Label {
                        text: mcpCard.modelData.name
                        textFormat: Text.PlainText
                        font.pixelSize: Theme.fontBody + 1
                        font.weight: Font.DemiBold
                        color: Theme.text
                    }
                    Label {
                        objectName: "mcpState_" + mcpCard.key
                        text: mcpCard.connected ? "Connected"
                              : mcpCard.waitingForBrowser ? "Waiting for the browser…"
                              : mcpCard.signingIn ? "Signing in…"
                              : mcpCard.connecting ? "Connecting…"
                              : mcpCard.modelData.signedIn ? "Signed in, not connected" : "Not connected"
                        font.pixelSize: Theme.fontSmall
                        color: mcpCard.connected ? Theme.success : Theme.textMuted
                        Accessible.role: Accessible.StaticText
                        Accessible.name: mcpCard.modelData.name + ": " + text
                    }
                    Item { Layout.fillWidth: true }
                    QmButton {
                        objectName: "mcpCancelSignInButton_" + mcpCard.key
                        visible: mcpCard.signingIn || mcpCard.waitingForBrowser
                        text: "Cancel"
                        Accessible.name: "Cancel the sign-in to " + mcpCard.modelData.name
                        onClicked: section.mcpService.cancelSignIn()
                    }
                    QmButton {
                        objectName: "mcpSignOutButton_" + mcpCard.key
                        visible: mcpCard.modelData.signedIn && !mcpCard.busy
                        text: "Sign out"
                        Accessible.name: "Sign out of " + mcpCard.modelData.name
                        onClicked: section.mcpService.signOut(mcpCard.modelData.name)
                    }
                    QmButton {
                        objectName: "mcpConnectButton_" + mcpCard.key
                        text: mcpCard.connected ? "Disconnect" : "Connect"
                        enabled: !mcpCard.busy
                        Accessible.name: text + " " + mcpCard.modelData.name
                        onClicked: mcpCard.connected ? section.mcpService.disconnectIntegration(mcpCard.modelData.name)
                                                     : section.mcpService.connectIntegration(mcpCard.modelData.name)
                    }
                    QmButton {
                        objectName: "mcpRemoveButton_" + mcpCard.key
                        visible: mcpCard.modelData.isCustom
                        text: "Remove"
                        destructive: true
                        Accessible.name: "Remove " + mcpCard.modelData.name
                        onClicked: section.mcpService.removeIntegration(mcpCard.modelData.name)
                    }
                }
                Label {
                    Layout.fillWidth: true
                    text: mcpCard.modelData.description
                    visible: text !== ""
                    textFormat: Text.PlainText
                    wrapMode: Text.Wrap
                    font.pixelSize: Theme.fontBody
                    color: Theme.textMuted
                }
                Label {
                    Layout.fillWidth: true
                    text: mcpCard.modelData.url + (mcpCard.modelData.requiresAuth ? " · sign-in required" : "")
                    textFormat: Text.PlainText
                    elide: Text.ElideRight
                    font.pixelSize: Theme.fontSmall
                    color: Theme.textMuted
                }
                Label {
                    objectName: "mcpSignInHint_" + mcpCard.key
                    Layout.fillWidth: true
                    visible: mcpCard.waitingForBrowser
                    text: "Finish signing in to " + mcpCard.modelData.name + " in your browser; Quillmoss continues when the browser comes back."
                    textFormat: Text.PlainText
                    wrapMode: Text.Wrap
                    font.pixelSize: Theme.fontSmall
                    color: Theme.text
                }
                Label {
                    objectName: "mcpError_" + mcpCard.key
                    Layout.fillWidth: true
                    visible: mcpCard.modelData.lastError !== ""
                    text: mcpCard.modelData.lastError
                    textFormat: Text.PlainText
                    wrapMode: Text.Wrap
                    font.pixelSize: Theme.fontSmall
                    color: Theme.danger
                }
                Label {
                    objectName: "mcpTools_" + mcpCard.key
                    Layout.fillWidth: true
                    visible: mcpCard.connected
                    text: mcpCard.modelData.toolCount === 0
                          ? "No tools found"
                          : mcpCard.modelData.toolCount + " tools: " + mcpCard.modelData.toolNames.join(", ")
                    textFormat: Text.PlainText
                    wrapMode: Text.Wrap
                    font.pixelSize: Theme.fontSmall
                    color: Theme.text
                }
            }
        }
    }

    // Adding a server of the user's own.
    Rectangle {
        objectName: "mcpAddForm"
        Layout.fillWidth: true
        Layout.bottomMargin: Theme.padding * 1.5
        implicitHeight: form.implicitHeight + 2 * Theme.padding
        radius: Theme.radius * 1.5
        color: Theme.surface
        border.color: Theme.border

        ColumnLayout {
            id: form
            anchors.fill: parent
            anchors.margins: Theme.padding
            spacing: Theme.spacing

            Label {
                text: "Add a server"
                font.pixelSize: Theme.fontBody + 1
                font.weight: Font.DemiBold
                color: Theme.text
            }
            TextField {
                id: nameField
                objectName: "mcpNameField"
                Layout.fillWidth: true
                placeholderText: "Name"
                Accessible.name: "Server name"
            }
            TextField {
                id: urlField
                objectName: "mcpUrlField"
                Layout.fillWidth: true
                placeholderText: "https://example.com/sse"
                Accessible.name: "Server URL"
            }
            TextField {
                id: descriptionField
                objectName: "mcpDescriptionField"
                Layout.fillWidth: true
                placeholderText: "Description (optional)"
                Accessible.name: "Server description"
            }
            CheckBox {
                id: authBox
                objectName: "mcpRequiresAuthBox"
                text: "Requires sign-in (OAuth)"
            }
            Label {
                objectName: "mcpUrlWarning"
                Layout.fillWidth: true
                visible: section.urlCheck.warning !== ""
                text: section.urlCheck.warning
                wrapMode: Text.Wrap
                font.pixelSize: Theme.fontSmall
                color: Theme.warning
            }
            Label {
                objectName: "mcpAddError"
                Layout.fillWidth: true
                visible: text !== ""
                text: section.addError !== "" ? section.addError : section.urlCheck.error
                wrapMode: Text.Wrap
                font.pixelSize: Theme.fontSmall
                color: Theme.danger
            }
            QmButton {
                objectName: "mcpAddButton"
                text: "Add Server"
                primary: true
                enabled: section.mcpService !== null && nameField.text.trim() !== "" && section.urlCheck.error === ""
                         && urlField.text.trim() !== ""
                onClicked: section.add()
            }
        }
    }
}
