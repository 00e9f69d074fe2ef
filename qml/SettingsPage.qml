// Settings: the microphone, the speech models, the look, the account, feedback and updates.
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

Rectangle {
    id: root
    objectName: "settingsPage"

    // AudioDeviceManager, ModelCatalogueModel, ModelDownloader, ThemeManager,
    // AuthenticationService, FeedbackForm and UpdateManager (or stand-ins).
    required property var devices
    required property var modelCatalogue
    required property var modelDownloader
    required property var themeManager
    required property var authService
    required property var feedbackForm
    required property var updateManager
    // The UtilityWindowManager, for "Auto Show Mini Window"; null hides the section.
    property var miniWindow: null

    readonly property var deviceList: devices && devices.availableInputDevices ? devices.availableInputDevices : []
    readonly property var user: authService && authService.currentUser ? authService.currentUser : null

    color: Theme.background

    component Section: Rectangle {
        id: section
        property string title
        property string subtitle
        default property alias content: body.data

        Layout.fillWidth: true
        implicitHeight: sectionColumn.implicitHeight + 2 * Theme.padding
        radius: Theme.radius * 1.5
        color: Theme.surface
        border.color: Theme.border
        Accessible.role: Accessible.Grouping
        Accessible.name: title

        ColumnLayout {
            id: sectionColumn
            anchors.fill: parent
            anchors.margins: Theme.padding
            spacing: Theme.spacing
            Label {
                visible: section.title !== ""
                text: section.title
                font.pixelSize: Theme.fontTitle
                font.weight: Font.DemiBold
                color: Theme.text
                Accessible.role: Accessible.Heading
            }
            Label {
                Layout.fillWidth: true
                visible: section.subtitle !== ""
                text: section.subtitle
                wrapMode: Text.Wrap
                font.pixelSize: Theme.fontBody
                color: Theme.textMuted
            }
            ColumnLayout {
                id: body
                Layout.fillWidth: true
                spacing: Theme.spacing
            }
        }
    }
    component Muted: Label {
        Layout.fillWidth: true
        wrapMode: Text.Wrap
        textFormat: Text.PlainText
        font.pixelSize: Theme.fontSmall
        color: Theme.textMuted
    }

    ScrollView {
        id: scroller
        anchors.fill: parent
        contentWidth: availableWidth
        clip: true

        ColumnLayout {
            width: Math.min(scroller.availableWidth, 760)
            x: Math.max(0, (scroller.availableWidth - width) / 2)
            spacing: Theme.padding

            Label {
                Layout.topMargin: Theme.padding * 1.5
                Layout.leftMargin: Theme.padding
                text: "Settings"
                font.pixelSize: Theme.fontHeading
                font.weight: Font.DemiBold
                color: Theme.text
                Accessible.role: Accessible.Heading
            }

            Section {
                objectName: "audioSection"
                title: "Audio input"
                subtitle: "Select your preferred microphone input device"

                Muted {
                    objectName: "devicesLoading"
                    visible: root.devices !== null && root.devices.isLoading
                    text: "Looking for input devices…"
                }
                Label {
                    objectName: "devicesError"
                    Layout.fillWidth: true
                    visible: text !== ""
                    text: root.devices && root.devices.lastError ? root.devices.lastError : ""
                    textFormat: Text.PlainText
                    wrapMode: Text.Wrap
                    font.pixelSize: Theme.fontBody
                    color: Theme.danger
                    Accessible.role: Accessible.AlertMessage
                    Accessible.name: text
                }
                Muted {
                    objectName: "devicesEmpty"
                    visible: root.deviceList.length === 0 && !(root.devices && root.devices.isLoading)
                             && !(root.devices && root.devices.lastError)
                    text: "No microphones found. Connect one and it appears here."
                }

                ColumnLayout {
                    objectName: "deviceList"
                    Layout.fillWidth: true
                    spacing: 4
                    Accessible.role: Accessible.List
                    Accessible.name: "Microphones"

                    Repeater {
                        model: root.deviceList
                        delegate: ItemDelegate {
                            id: deviceRow
                            required property var modelData
                            readonly property bool selected: root.devices !== null
                                                             && modelData.id === root.devices.selectedDeviceId

                            objectName: "deviceRow_" + modelData.id
                            Layout.fillWidth: true
                            activeFocusOnTab: true
                            padding: 10
                            Accessible.role: Accessible.RadioButton
                            Accessible.checkable: true
                            Accessible.checked: selected
                            Accessible.name: modelData.name + (modelData.isDefault ? ", system default" : "")
                            onClicked: root.devices.selectDeviceById(modelData.id)

                            background: Rectangle {
                                radius: Theme.radius
                                color: deviceRow.selected ? Theme.selection
                                     : deviceRow.hovered ? Theme.surfaceAlt : Theme.surface
                                border.width: deviceRow.visualFocus ? 2 : 1
                                border.color: deviceRow.visualFocus ? Theme.focus
                                            : deviceRow.selected ? Theme.accent : Theme.border
                                Behavior on color { ColorAnimation { duration: Theme.animationDuration } }
                            }
                            contentItem: RowLayout {
                                spacing: Theme.spacing
                                Rectangle {
                                    implicitWidth: 16
                                    implicitHeight: 16
                                    radius: 8
                                    color: Theme.surface
                                    border.width: 2
                                    border.color: deviceRow.selected ? Theme.accent : Theme.border
                                    Rectangle {
                                        anchors.centerIn: parent
                                        width: 8
                                        height: 8
                                        radius: 4
                                        color: Theme.accent
                                        visible: deviceRow.selected
                                    }
                                }
                                ColumnLayout {
                                    Layout.fillWidth: true
                                    spacing: 0
                                    Label {
                                        Layout.fillWidth: true
                                        text: deviceRow.modelData.name
                                        textFormat: Text.PlainText
                                        elide: Text.ElideRight
                                        font.pixelSize: Theme.fontBody
                                        color: Theme.text
                                    }
                                    Label {
                                        Layout.fillWidth: true
                                        visible: text !== "" && text !== "Unknown"
                                        text: deviceRow.modelData.manufacturer
                                        textFormat: Text.PlainText
                                        elide: Text.ElideRight
                                        font.pixelSize: Theme.fontSmall
                                        color: Theme.textMuted
                                    }
                                }
                                Label {
                                    objectName: "defaultTag"
                                    visible: deviceRow.modelData.isDefault
                                    text: "Default"
                                    font.pixelSize: Theme.fontSmall
                                    color: Theme.accent
                                    leftPadding: 8
                                    rightPadding: 8
                                    topPadding: 2
                                    bottomPadding: 2
                                    background: Rectangle { radius: height / 2; color: Theme.accentSoft }
                                }
                            }
                        }
                    }
                }

                QmButton {
                    objectName: "refreshDevicesButton"
                    text: "Refresh"
                    enabled: root.devices !== null && !root.devices.isLoading
                    Accessible.name: "Look for input devices again"
                    onClicked: root.devices.discoverInputDevices()
                }
            }

            Section {
                objectName: "modelsSection"
                ModelManagement {
                    Layout.fillWidth: true
                    modelCatalogue: root.modelCatalogue
                    modelDownloader: root.modelDownloader
                }
            }

            Section {
                objectName: "appearanceSection"
                title: "Appearance"
                subtitle: "System follows your desktop's light or dark setting."

                RowLayout {
                    spacing: Theme.spacing
                    Label {
                        text: "Theme"
                        font.pixelSize: Theme.fontBody
                        color: Theme.text
                    }
                    ComboBox {
                        id: themeBox
                        objectName: "themeBox"
                        implicitWidth: 180
                        activeFocusOnTab: true
                        model: root.themeManager ? root.themeManager.themeOptions : []
                        textRole: "label"
                        valueRole: "value"
                        currentIndex: {
                            const options = root.themeManager ? root.themeManager.themeOptions : []
                            for (let i = 0; i < options.length; ++i) {
                                if (options[i].value === root.themeManager.currentTheme)
                                    return i
                            }
                            return -1
                        }
                        font.pixelSize: Theme.fontBody
                        Accessible.role: Accessible.ComboBox
                        Accessible.name: "Theme: " + displayText
                        onActivated: index => root.themeManager.currentTheme = valueAt(index)
                        background: Rectangle {
                            implicitHeight: 36
                            radius: Theme.radius
                            color: Theme.surface
                            border.width: themeBox.visualFocus ? 2 : 1
                            border.color: themeBox.visualFocus ? Theme.focus : Theme.border
                        }
                        contentItem: Label {
                            leftPadding: 10
                            text: themeBox.displayText
                            font: themeBox.font
                            color: Theme.text
                            verticalAlignment: Text.AlignVCenter
                            elide: Text.ElideRight
                        }
                    }
                }
            }

            Section {
                objectName: "accountSection"
                title: "Account"

                GridLayout {
                    columns: 2
                    columnSpacing: Theme.padding
                    rowSpacing: 4
                    Label {
                        text: "Name"
                        font.pixelSize: Theme.fontBody
                        color: Theme.textMuted
                    }
                    Label {
                        objectName: "accountName"
                        Layout.fillWidth: true
                        text: root.user && root.user.fullName ? root.user.fullName : "—"
                        textFormat: Text.PlainText
                        elide: Text.ElideRight
                        font.pixelSize: Theme.fontBody
                        color: Theme.text
                    }
                    Label {
                        text: "E-mail"
                        font.pixelSize: Theme.fontBody
                        color: Theme.textMuted
                    }
                    Label {
                        objectName: "accountEmail"
                        Layout.fillWidth: true
                        text: root.user && root.user.email ? root.user.email : "—"
                        textFormat: Text.PlainText
                        elide: Text.ElideRight
                        font.pixelSize: Theme.fontBody
                        color: Theme.text
                    }
                }
                QmButton {
                    objectName: "signOutButton"
                    text: "Sign out"
                    destructive: true
                    enabled: root.authService !== null
                    onClicked: root.authService.requestSignOut()
                }
            }

            Section {
                objectName: "miniWindowSection"
                visible: root.miniWindow !== null
                title: "Mini window"
                subtitle: "A small window that floats over your other applications during a call."
                Switch {
                    objectName: "autoShowMiniWindowSwitch"
                    Layout.fillWidth: true
                    text: "Auto Show Mini Window"
                    checked: root.miniWindow ? root.miniWindow.autoShow : false
                    onToggled: root.miniWindow.autoShow = checked
                    Accessible.name: text
                }
                Muted {
                    text: "Shown when a call starts, hidden when it ends. Ctrl+Shift+M shows or hides it in the app; bind \"quillmoss-app --toggle-mini-window\" to a key in your desktop's keyboard settings to do so from anywhere."
                }
            }

            Section {
                objectName: "feedbackSectionCard"
                title: "Feedback"
                subtitle: "Tell us what works, what doesn't, and what you'd like next."
                FeedbackSection {
                    Layout.fillWidth: true
                    feedbackForm: root.feedbackForm
                }
            }

            Section {
                objectName: "updatesSection"
                title: "Updates"
                Layout.bottomMargin: Theme.padding * 1.5

                Muted {
                    objectName: "installedVersion"
                    visible: root.updateManager !== null && !!root.updateManager.currentVersion
                    text: visible ? "Installed: Quillmoss " + root.updateManager.currentVersion : ""
                }
                RowLayout {
                    Layout.fillWidth: true
                    spacing: Theme.spacing
                    QmButton {
                        objectName: "checkUpdatesButton"
                        text: "Check for Updates"
                        enabled: root.updateManager !== null && root.updateManager.canCheckForUpdates
                        onClicked: root.updateManager.checkForUpdates()
                    }
                    BusyIndicator {
                        visible: running
                        running: root.updateManager !== null && !!root.updateManager.isChecking
                        implicitWidth: 24
                        implicitHeight: 24
                        Accessible.name: "Checking for updates"
                    }
                    QmButton {
                        objectName: "downloadUpdateButton"
                        visible: root.updateManager !== null && !!root.updateManager.availableVersion
                        primary: true
                        text: "Download"
                        Accessible.name: visible ? "Download Quillmoss " + root.updateManager.availableVersion : ""
                        onClicked: Qt.openUrlExternally(root.updateManager.downloadUrl)
                    }
                }
                Label {
                    objectName: "updateStatus"
                    Layout.fillWidth: true
                    visible: text !== ""
                    text: root.updateManager && root.updateManager.statusText ? root.updateManager.statusText : ""
                    textFormat: Text.PlainText
                    wrapMode: Text.Wrap
                    font.pixelSize: Theme.fontBody
                    color: Theme.textMuted
                    Accessible.role: Accessible.StaticText
                    Accessible.name: text
                }
                Muted {
                    objectName: "releaseNotes"
                    visible: text !== ""
                    text: root.updateManager && root.updateManager.availableVersion
                          && root.updateManager.releaseNotes ? root.updateManager.releaseNotes : ""
                }
            }
        }
    }
}
