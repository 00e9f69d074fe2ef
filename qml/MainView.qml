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

    // The app's long-lived services (ScreenServices), from the window.
    required property QtObject services

    // A section's page is compiled and built the first time it is opened,
    // with the services it declares.
    component Section: Loader {
        required property url page
        required property var pageServices
        active: StackLayout.isCurrentItem || item !== null
        // Kept until the loader turns active.
        Component.onCompleted: setSource(page, pageServices)
    }

    RowLayout {
        anchors.fill: parent
        spacing: 0

        Sidebar {
            Layout.fillHeight: true
            items: root.services.contentView.sidebarItems
            selectedKey: root.services.contentView.selectedItem
            userName: root.services.authService.currentUser ? root.services.authService.currentUser.displayName : ""
            callLive: root.services.callController.isLive
            miniWindowVisible: root.services.utilityWindowManager.isVisible
            onSelected: key => root.services.contentView.selectedItem = key
            onToggleMiniWindow: root.services.contentView.toggleUtilityWindow("menu")
        }

        StackLayout {
            id: sections
            objectName: "sections"
            Layout.fillWidth: true
            Layout.fillHeight: true
            currentIndex: ["callControl", "callHistory", "integrations", "settings"]
                          .indexOf(root.services.contentView.selectedItem)
            onCurrentIndexChanged: {
                if (currentIndex === 0)
                    root.services.postHogService.capture("Call Control View")
            }
            Component.onCompleted: {
                if (currentIndex === 0)
                    root.services.postHogService.capture("Call Control View")
            }

            Loader {
                objectName: "callControlSection"
                active: true
                sourceComponent: CallControlPage {
                    controller: root.services.callController
                    transcript: root.services.transcriptionViewModel
                    summary: root.services.summaryModel
                    recognitionStatus: root.services.app.recognitionStatus
                    clipboard: root.services.clipboard
                    chat: root.services.chatController
                    markdown: root.services.chatMarkdown
                    analytics: root.services.postHogService
                }
            }
            Section {
                objectName: "callHistorySection"
                page: "HistoryPage.qml"
                pageServices: ({
                    history: root.services.callHistory,
                    historyModel: root.services.callHistoryModel,
                    clipboard: root.services.clipboard
                })
            }
            Section {
                objectName: "integrationsSection"
                page: "IntegrationsPage.qml"
                pageServices: ({
                    configurationManager: root.services.configurationManager,
                    integrationModel: root.services.integrationListModel,
                    apiKeyForm: root.services.apiKeyConfigurationForm,
                    mcpService: root.services.mcpService
                })
            }
            Section {
                objectName: "settingsSection"
                page: "SettingsPage.qml"
                pageServices: ({
                    devices: root.services.audioDevices,
                    modelCatalogue: root.services.modelCatalogue,
                    modelDownloader: root.services.modelDownloader,
                    themeManager: root.services.themeManager,
                    authService: root.services.authService,
                    feedbackForm: root.services.feedbackForm,
                    updateManager: root.services.updateManager,
                    miniWindow: root.services.utilityWindowManager
                })
            }
        }
    }
}
