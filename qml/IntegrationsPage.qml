// Integrations: where the assistant's outside tools will be set up. None ships yet.
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

Rectangle {
    id: root
    objectName: "integrationsPage"
    color: Theme.background

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: Theme.padding * 1.5
        spacing: Theme.padding

        Label {
            text: "Integrations"
            font.pixelSize: Theme.fontHeading
            font.weight: Font.DemiBold
            color: Theme.text
            Accessible.role: Accessible.Heading
        }

        Rectangle {
            objectName: "integrationsNotice"
            Layout.fillWidth: true
            Layout.maximumWidth: 680
            implicitHeight: notice.implicitHeight + 2 * Theme.padding
            radius: Theme.radius * 1.5
            color: Theme.surface
            border.color: Theme.border

            ColumnLayout {
                id: notice
                anchors.fill: parent
                anchors.margins: Theme.padding
                spacing: Theme.spacing

                Label {
                    text: "Not available in this version yet"
                    font.pixelSize: Theme.fontTitle
                    font.weight: Font.DemiBold
                    color: Theme.text
                    Accessible.role: Accessible.Heading
                }
                Label {
                    objectName: "integrationsStatement"
                    Layout.fillWidth: true
                    text: "This version of Quillmoss has no integrations. Web search, web scraping, "
                          + "Notion, e-mail and remote MCP servers are not available yet; when they are, "
                          + "you will connect and manage them here."
                    wrapMode: Text.Wrap
                    font.pixelSize: Theme.fontBody
                    color: Theme.text
                    Accessible.role: Accessible.StaticText
                    Accessible.name: text
                }
            }
        }

        Item { Layout.fillHeight: true }
    }
}
