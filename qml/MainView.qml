// The signed-in application: the sidebar and the section it selects. Sections
// load the first time they are opened and then stay, so a running call keeps
// its screen while the user looks elsewhere.
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

Rectangle {
    id: root
    objectName: "mainView"
    color: Theme.background

    RowLayout {
        anchors.fill: parent
        spacing: 0

        Sidebar {
            Layout.fillHeight: true
            items: contentView.sidebarItems
            selectedKey: contentView.selectedItem
            userName: authService.currentUser ? authService.currentUser.displayName : ""
            callLive: callController.isLive
            onSelected: key => contentView.selectedItem = key
        }

        StackLayout {
            id: sections
            objectName: "sections"
            Layout.fillWidth: true
            Layout.fillHeight: true
            currentIndex: ["callControl", "callHistory", "integrations", "settings"]
                          .indexOf(contentView.selectedItem)
            onCurrentIndexChanged: {
                if (currentIndex === 0)
                    postHogService.capture("Call Control View")
            }
            Component.onCompleted: {
                if (currentIndex === 0)
                    postHogService.capture("Call Control View")
            }

            Loader {
                objectName: "callControlSection"
                active: true
                sourceComponent: CallControlPage {
                    controller: callController
                    transcript: transcriptionViewModel
                    summary: summaryModel
                    recognitionStatus: app.recognitionStatus
                    clipboard: clipboard
                    analytics: postHogService
                }
            }
            Loader {
                objectName: "callHistorySection"
                active: StackLayout.isCurrentItem || item !== null
                source: "HistoryPage.qml"
                onLoaded: {
                    item.history = callHistory
                    item.historyModel = callHistoryModel
                    item.clipboard = clipboard
                }
            }
            Loader {
                objectName: "integrationsSection"
                active: StackLayout.isCurrentItem || item !== null
                source: "IntegrationsPage.qml"
            }
            Loader {
                objectName: "settingsSection"
                active: StackLayout.isCurrentItem || item !== null
                source: "SettingsPage.qml"
                onLoaded: {
                    item.devices = audioDevices
                    item.modelCatalogue = modelCatalogue
                    item.modelDownloader = modelDownloader
                    item.themeManager = themeManager
                    item.authService = authService
                    item.feedbackForm = feedbackForm
                    item.updateManager = updateManager
                }
            }
        }
    }
}
