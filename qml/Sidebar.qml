// The main window's section list.
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

Rectangle {
    id: root
    objectName: "sidebar"
    color: Theme.sidebar

    property var items: []
    property string selectedKey
    property string userName
    property bool callLive: false
    property bool miniWindowVisible: false
    signal selected(string key)
    signal toggleMiniWindow()

    implicitWidth: 220

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: Theme.spacing * 1.5
        spacing: Theme.spacing

        RowLayout {
            Layout.bottomMargin: Theme.spacing * 2
            spacing: Theme.spacing
            Image {
                source: "images/quillmoss.svg"
                sourceSize.width: 28
                sourceSize.height: 28
                Accessible.ignored: true
            }
            Label {
                text: "Quillmoss"
                font.pixelSize: Theme.fontTitle
                font.weight: Font.Bold
                color: Theme.text
            }
        }

        ListView {
            id: list
            objectName: "sidebarList"
            Layout.fillWidth: true
            Layout.preferredHeight: contentHeight
            interactive: false
            model: root.items
            spacing: 2
            activeFocusOnTab: true
            keyNavigationEnabled: true
            currentIndex: {
                for (let i = 0; i < root.items.length; ++i)
                    if (root.items[i].key === root.selectedKey)
                        return i
                return 0
            }
            Accessible.role: Accessible.List
            Accessible.name: "Sections"
            Keys.onUpPressed: if (currentIndex > 0) root.selected(root.items[currentIndex - 1].key)
            Keys.onDownPressed: if (currentIndex < count - 1) root.selected(root.items[currentIndex + 1].key)

            delegate: Rectangle {
                id: row
                required property var modelData
                required property int index
                readonly property bool current: modelData.key === root.selectedKey
                objectName: "sidebarItem_" + modelData.key
                width: ListView.view.width
                height: 38
                radius: Theme.radius
                color: current ? Theme.selection : (mouse.containsMouse ? Theme.surfaceAlt : "transparent")
                border.width: list.activeFocus && current ? 2 : 0
                border.color: Theme.focus
                Accessible.role: Accessible.PageTab
                Accessible.name: modelData.label
                Accessible.selected: current
                Accessible.onPressAction: root.selected(modelData.key)

                RowLayout {
                    anchors.fill: parent
                    anchors.leftMargin: Theme.spacing * 1.5
                    anchors.rightMargin: Theme.spacing
                    Label {
                        Layout.fillWidth: true
                        text: row.modelData.label
                        font.pixelSize: Theme.fontBody
                        font.weight: row.current ? Font.DemiBold : Font.Normal
                        color: row.current ? Theme.accent : Theme.text
                    }
                    Rectangle {
                        visible: row.modelData.key === "callControl" && root.callLive
                        width: 8; height: 8; radius: 4
                        color: Theme.danger
                        Accessible.role: Accessible.Indicator
                        Accessible.name: "Call is live"
                    }
                }
                MouseArea {
                    id: mouse
                    anchors.fill: parent
                    hoverEnabled: true
                    cursorShape: Qt.PointingHandCursor
                    onClicked: root.selected(row.modelData.key)
                }
            }
        }

        Item { Layout.fillHeight: true }

        QmButton {
            objectName: "miniWindowMenuItem"
            Layout.fillWidth: true
            text: root.miniWindowVisible ? "Hide Mini Window" : "Show Mini Window"
            font.pixelSize: Theme.fontSmall
            ToolTip.visible: hovered
            ToolTip.text: "Ctrl+Shift+M"
            onClicked: root.toggleMiniWindow()
        }

        Label {
            objectName: "sidebarUser"
            Layout.fillWidth: true
            text: root.userName
            elide: Text.ElideRight
            textFormat: Text.PlainText
            font.pixelSize: Theme.fontSmall
            color: Theme.textMuted
        }
    }

    Rectangle {
        anchors.right: parent.right
        width: 1
        height: parent.height
        color: Theme.border
    }
}
