// Integrations: which outside tools the assistant may use, by category, each
// with its switch and the sheet where its credential is entered.
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

Rectangle {
    id: root
    objectName: "integrationsPage"

    // ConfigurationManager, IntegrationListModel and APIKeyConfigurationForm (or stand-ins).
    required property var configurationManager
    required property var integrationModel
    required property var apiKeyForm
    // MCPRemoteService (or a stand-in); without it the remote servers are not shown.
    property var mcpService: null

    // The icons' named tints, in tones that read on every theme.
    readonly property var tints: ({
        "orange": "#e8770e", "black": "#2b3038", "blue": "#2f6fdb",
        "green": "#2e9d5b", "purple": "#8150d8", "red": "#d64541"
    })

    color: Theme.background

    Component.onCompleted: {
        if (mcpService !== null)
            console.info("[IntegrationsPage]: Using global MCP service (setup handled in ContentView)")
    }

    // The objectName suffix of an integration: its name without spaces.
    function keyOf(name) { return name.replace(/ /g, "_") }

    // Keeps the control that has the keyboard focus in view while tabbing through the cards.
    function reveal(item) {
        let inside = false
        for (let at = item; at; at = at.parent) {
            if (at === cards) {
                inside = true
                break
            }
        }
        if (!inside)
            return
        const flick = scroller.contentItem
        const top = item.mapToItem(cards, 0, 0).y
        const margin = Theme.padding
        if (top - margin < flick.contentY)
            flick.contentY = Math.max(0, top - margin)
        else if (top + item.height + margin > flick.contentY + flick.height)
            flick.contentY = Math.min(flick.contentHeight - flick.height, top + item.height + margin - flick.height)
    }

    Connections {
        target: root.Window.window
        function onActiveFocusItemChanged() {
            if (root.visible && root.Window.activeFocusItem)
                root.reveal(root.Window.activeFocusItem)
        }
    }

    ScrollView {
        id: scroller
        anchors.fill: parent
        contentWidth: availableWidth
        clip: true

        ColumnLayout {
            id: cards
            width: Math.min(scroller.availableWidth, 760)
            x: Math.max(0, (scroller.availableWidth - width) / 2)
            spacing: Theme.spacing

            ColumnLayout {
                Layout.topMargin: Theme.padding * 1.5
                Layout.leftMargin: Theme.padding
                Layout.rightMargin: Theme.padding
                spacing: 2
                Label {
                    text: "Integrations"
                    font.pixelSize: Theme.fontHeading
                    font.weight: Font.DemiBold
                    color: Theme.text
                    Accessible.role: Accessible.Heading
                }
                Label {
                    Layout.fillWidth: true
                    text: "Choose which tools the assistant may use. They run on this computer, "
                          + "with your own credentials kept in your desktop's keyring."
                    wrapMode: Text.Wrap
                    font.pixelSize: Theme.fontBody
                    color: Theme.textMuted
                }
            }

            Repeater {
                model: root.integrationModel
                delegate: ColumnLayout {
                    id: entry
                    required property int index
                    required property string name
                    required property string description
                    required property string iconName
                    required property string iconColor
                    required property bool isEnabled
                    required property string category
                    required property bool isComingSoon
                    required property bool requiresAPIKey
                    required property string authType
                    required property bool hasAPIKey

                    readonly property string key: root.keyOf(name)
                    // The catalogue lists each category's entries together.
                    readonly property bool startsCategory: index === 0
                        || root.integrationModel.get(index - 1).category !== category

                    Layout.fillWidth: true
                    Layout.leftMargin: Theme.padding
                    Layout.rightMargin: Theme.padding
                    Layout.bottomMargin: index === root.integrationModel.count - 1 ? Theme.padding * 1.5 : 0
                    spacing: Theme.spacing

                    Label {
                        objectName: "categoryHeading_" + root.keyOf(entry.category)
                        visible: entry.startsCategory
                        Layout.topMargin: Theme.padding
                        text: entry.category
                        font.pixelSize: Theme.fontTitle
                        font.weight: Font.DemiBold
                        color: Theme.text
                        Accessible.role: Accessible.Heading
                        Accessible.name: text
                    }

                    Rectangle {
                        id: card
                        objectName: "integrationCard_" + entry.key
                        Layout.fillWidth: true
                        implicitHeight: cardRow.implicitHeight + 2 * Theme.padding
                        radius: Theme.radius * 1.5
                        color: Theme.surface
                        border.color: Theme.border
                        Accessible.role: Accessible.Grouping
                        Accessible.name: entry.name

                        RowLayout {
                            id: cardRow
                            anchors.fill: parent
                            anchors.margins: Theme.padding
                            spacing: Theme.padding

                            // No symbol font here: a tinted badge with the name's initial.
                            Rectangle {
                                objectName: "integrationIcon_" + entry.key
                                readonly property string iconName: entry.iconName
                                Layout.alignment: Qt.AlignTop
                                implicitWidth: 40
                                implicitHeight: 40
                                radius: 20
                                color: root.tints[entry.iconColor] !== undefined ? root.tints[entry.iconColor]
                                                                                 : entry.iconColor
                                border.color: Theme.border
                                border.width: entry.iconColor === "black" ? 1 : 0
                                Accessible.ignored: true
                                Label {
                                    anchors.centerIn: parent
                                    text: entry.name.charAt(0).toUpperCase()
                                    font.pixelSize: 18
                                    font.weight: Font.Bold
                                    color: "#ffffff"
                                }
                            }

                            ColumnLayout {
                                Layout.fillWidth: true
                                spacing: 4
                                RowLayout {
                                    spacing: Theme.spacing
                                    Label {
                                        text: entry.name
                                        textFormat: Text.PlainText
                                        font.pixelSize: Theme.fontBody + 1
                                        font.weight: Font.DemiBold
                                        color: Theme.text
                                    }
                                    Label {
                                        objectName: "comingSoonBadge_" + entry.key
                                        visible: entry.isComingSoon
                                        text: "Coming soon"
                                        font.pixelSize: Theme.fontSmall
                                        color: Theme.warning
                                        leftPadding: 8
                                        rightPadding: 8
                                        topPadding: 2
                                        bottomPadding: 2
                                        background: Rectangle { radius: height / 2; color: Theme.warningSoft }
                                    }
                                }
                                Label {
                                    Layout.fillWidth: true
                                    text: entry.description
                                    textFormat: Text.PlainText
                                    wrapMode: Text.Wrap
                                    font.pixelSize: Theme.fontBody
                                    color: Theme.textMuted
                                }
                                Label {
                                    objectName: "integrationKeyState_" + entry.key
                                    visible: entry.requiresAPIKey && entry.authType === "apiKey"
                                    text: entry.hasAPIKey ? "API key stored" : "No API key"
                                    font.pixelSize: Theme.fontSmall
                                    color: entry.hasAPIKey ? Theme.success : Theme.textMuted
                                    Accessible.role: Accessible.StaticText
                                    Accessible.name: entry.name + ": " + text
                                }
                            }

                            ColumnLayout {
                                Layout.alignment: Qt.AlignTop
                                spacing: Theme.spacing
                                Switch {
                                    id: enabledSwitch
                                    objectName: "integrationSwitch_" + entry.key
                                    Layout.alignment: Qt.AlignRight
                                    checked: entry.isEnabled
                                    enabled: !entry.isComingSoon && root.configurationManager !== null
                                    focusPolicy: Qt.StrongFocus
                                    Accessible.name: "Use " + entry.name
                                    onToggled: {
                                        root.configurationManager.toggleIntegration(entry.name, checked)
                                        // Shows what the configuration holds now, whether or not the change took.
                                        checked = Qt.binding(() => entry.isEnabled)
                                    }
                                    indicator: Rectangle {
                                        x: enabledSwitch.leftPadding
                                        y: (enabledSwitch.height - height) / 2
                                        implicitWidth: 44
                                        implicitHeight: 24
                                        radius: 12
                                        opacity: enabledSwitch.enabled ? 1.0 : 0.45
                                        color: enabledSwitch.checked ? Theme.accent : Theme.surfaceAlt
                                        border.width: enabledSwitch.visualFocus ? 2 : 1
                                        border.color: enabledSwitch.visualFocus ? Theme.focus
                                                    : enabledSwitch.checked ? Theme.accent : Theme.border
                                        Behavior on color { ColorAnimation { duration: Theme.animationDuration } }
                                        Rectangle {
                                            x: enabledSwitch.checked ? parent.width - width - 3 : 3
                                            anchors.verticalCenter: parent.verticalCenter
                                            width: 18
                                            height: 18
                                            radius: 9
                                            color: enabledSwitch.checked ? Theme.accentText : Theme.textMuted
                                            Behavior on x { NumberAnimation { duration: Theme.animationDuration } }
                                        }
                                    }
                                }
                                QmButton {
                                    objectName: "configureButton_" + entry.key
                                    text: "Configure"
                                    enabled: root.integrationModel !== null
                                    Accessible.name: "Configure " + entry.name
                                    onClicked: sheet.openFor(root.integrationModel.get(entry.index))
                                }
                            }
                        }
                    }
                }
            }

            RemoteMcpSection {
                Layout.fillWidth: true
                Layout.leftMargin: Theme.padding
                Layout.rightMargin: Theme.padding
                visible: root.mcpService !== null
                mcpService: root.mcpService
            }
        }
    }

    APIKeyConfigurationView {
        id: sheet
        configurationManager: root.configurationManager
        apiKeyForm: root.apiKeyForm
    }
}
