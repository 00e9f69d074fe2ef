// The call history: past calls in the chosen order, and one call's details on demand.
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

Rectangle {
    id: root
    objectName: "historyPage"

    // CallHistoryService, CallHistoryListModel and Clipboard (or stand-ins).
    required property var history
    required property var historyModel
    required property var clipboard

    // The call whose details are open; empty for the list.
    property string selectedCallId: ""
    property var selectedDetail: ({})

    readonly property bool loading: history ? history.isLoading : false
    readonly property string errorMessage: history && history.errorMessage ? history.errorMessage : ""
    readonly property int callCount: historyModel ? historyModel.count : 0

    color: Theme.background

    function openCall(callId) {
        if (!historyModel)
            return
        selectedDetail = historyModel.detail(callId)
        selectedCallId = callId
    }
    function closeCall() {
        selectedCallId = ""
        selectedDetail = ({})
        callList.forceActiveFocus()
    }
    // The history refreshes (from its five-minute cache) whenever it is shown.
    function load() {
        if (visible && history)
            history.loadCalls()
    }

    onVisibleChanged: load()
    onHistoryChanged: load()
    Component.onCompleted: load()

    StackLayout {
        anchors.fill: parent
        currentIndex: root.selectedCallId === "" ? 0 : 1

        ColumnLayout {
            spacing: Theme.spacing * 1.5

            RowLayout {
                Layout.fillWidth: true
                Layout.topMargin: Theme.padding * 1.5
                Layout.leftMargin: Theme.padding * 1.5
                Layout.rightMargin: Theme.padding * 1.5
                spacing: Theme.spacing

                ColumnLayout {
                    Layout.fillWidth: true
                    spacing: 2
                    Label {
                        text: "Call History"
                        font.pixelSize: Theme.fontHeading
                        font.weight: Font.DemiBold
                        color: Theme.text
                        Accessible.role: Accessible.Heading
                    }
                    Label {
                        objectName: "encryptionNote"
                        text: "All calls are AES-256 encrypted at rest"
                        font.pixelSize: Theme.fontSmall
                        color: Theme.textMuted
                    }
                }

                Label {
                    text: "Sort by"
                    font.pixelSize: Theme.fontSmall
                    color: Theme.textMuted
                }
                ComboBox {
                    id: sortBox
                    objectName: "sortOrderBox"
                    implicitWidth: 170
                    activeFocusOnTab: true
                    model: root.historyModel ? root.historyModel.sortOrderNames : []
                    currentIndex: root.historyModel ? root.historyModel.sortOrderIndex : 0
                    font.pixelSize: Theme.fontBody
                    Accessible.role: Accessible.ComboBox
                    Accessible.name: "Sort calls by " + displayText
                    onActivated: index => {
                        if (root.historyModel)
                            root.historyModel.sortOrderIndex = index
                    }
                    background: Rectangle {
                        implicitHeight: 36
                        radius: Theme.radius
                        color: Theme.surface
                        border.width: sortBox.visualFocus ? 2 : 1
                        border.color: sortBox.visualFocus ? Theme.focus : Theme.border
                    }
                    contentItem: Label {
                        leftPadding: 10
                        text: sortBox.displayText
                        font: sortBox.font
                        color: Theme.text
                        verticalAlignment: Text.AlignVCenter
                        elide: Text.ElideRight
                    }
                }
                QmButton {
                    objectName: "clearCacheButton"
                    text: "Clear Cache & Refresh"
                    enabled: root.history !== null && !root.loading
                    onClicked: root.history.clearCacheAndRefresh()
                }
            }

            Rectangle {
                objectName: "historyError"
                Layout.fillWidth: true
                Layout.leftMargin: Theme.padding * 1.5
                Layout.rightMargin: Theme.padding * 1.5
                visible: root.errorMessage !== ""
                implicitHeight: errorLabel.implicitHeight + Theme.padding
                radius: Theme.radius
                color: Theme.dangerSoft
                Label {
                    id: errorLabel
                    anchors.fill: parent
                    anchors.margins: Theme.padding / 2
                    text: root.errorMessage
                    textFormat: Text.PlainText
                    wrapMode: Text.Wrap
                    color: Theme.danger
                    font.pixelSize: Theme.fontBody
                    Accessible.role: Accessible.AlertMessage
                    Accessible.name: text
                }
            }

            RowLayout {
                objectName: "historyLoading"
                Layout.leftMargin: Theme.padding * 1.5
                visible: root.loading
                spacing: Theme.spacing
                BusyIndicator {
                    running: root.loading
                    implicitWidth: 24
                    implicitHeight: 24
                    Accessible.name: "Loading calls"
                }
                Label {
                    text: "Loading calls…"
                    font.pixelSize: Theme.fontBody
                    color: Theme.textMuted
                }
            }

            ColumnLayout {
                objectName: "emptyState"
                Layout.fillWidth: true
                Layout.fillHeight: true
                visible: root.callCount === 0 && !root.loading
                spacing: Theme.spacing
                Item { Layout.fillHeight: true }
                Label {
                    Layout.alignment: Qt.AlignHCenter
                    text: "No calls yet"
                    font.pixelSize: Theme.fontTitle
                    font.weight: Font.DemiBold
                    color: Theme.text
                }
                Label {
                    Layout.alignment: Qt.AlignHCenter
                    text: "Calls you hold with Quillmoss appear here once they end."
                    font.pixelSize: Theme.fontBody
                    color: Theme.textMuted
                }
                Item { Layout.fillHeight: true }
            }

            ListView {
                id: callList
                objectName: "callList"
                Layout.fillWidth: true
                Layout.fillHeight: true
                Layout.leftMargin: Theme.padding * 1.5
                Layout.rightMargin: Theme.padding * 1.5
                Layout.bottomMargin: Theme.padding
                visible: root.callCount > 0
                clip: true
                spacing: Theme.spacing
                activeFocusOnTab: true
                keyNavigationEnabled: true
                model: root.historyModel
                Accessible.role: Accessible.List
                Accessible.name: "Calls"
                ScrollBar.vertical: ScrollBar {}

                Keys.onReturnPressed: if (currentItem) root.openCall(currentItem.callId)
                Keys.onEnterPressed: if (currentItem) root.openCall(currentItem.callId)
                Keys.onSpacePressed: if (currentItem) root.openCall(currentItem.callId)

                delegate: ItemDelegate {
                    id: row
                    readonly property string callId: model.id
                    readonly property string decryptionError: model.decryptionError ? model.decryptionError : ""
                    readonly property bool keyboardCurrent: ListView.isCurrentItem && ListView.view.activeFocus

                    objectName: "callRow_" + callId
                    width: ListView.view.width
                    focusPolicy: Qt.NoFocus
                    padding: Theme.padding * 0.75
                    Accessible.role: Accessible.ListItem
                    Accessible.name: model.title + ", " + model.dateText
                                     + (model.durationText ? ", " + model.durationText : "")
                                     + ", " + model.status
                                     + (decryptionError !== "" ? ", " + decryptionError : "")
                    onClicked: {
                        ListView.view.currentIndex = index
                        root.openCall(callId)
                    }

                    background: Rectangle {
                        radius: Theme.radius
                        color: row.hovered ? Theme.surfaceAlt : Theme.surface
                        border.width: row.keyboardCurrent ? 2 : 1
                        border.color: row.keyboardCurrent ? Theme.focus
                                    : row.decryptionError !== "" ? Theme.danger : Theme.border
                        Behavior on color { ColorAnimation { duration: Theme.animationDuration } }
                    }

                    contentItem: ColumnLayout {
                        spacing: 4
                        RowLayout {
                            Layout.fillWidth: true
                            spacing: Theme.spacing
                            Label {
                                objectName: "callTitle"
                                Layout.fillWidth: true
                                text: model.title
                                textFormat: Text.PlainText
                                elide: Text.ElideRight
                                font.pixelSize: Theme.fontBody
                                font.weight: Font.DemiBold
                                color: Theme.text
                            }
                            Label {
                                objectName: "callStatus"
                                text: model.status
                                textFormat: Text.PlainText
                                font.pixelSize: Theme.fontSmall
                                color: model.status === "failed" ? Theme.danger
                                     : model.status === "active" ? Theme.warning : Theme.success
                                leftPadding: 8
                                rightPadding: 8
                                topPadding: 2
                                bottomPadding: 2
                                background: Rectangle {
                                    radius: height / 2
                                    color: model.status === "failed" ? Theme.dangerSoft
                                         : model.status === "active" ? Theme.warningSoft
                                         : Theme.successSoft
                                }
                            }
                        }
                        Label {
                            objectName: "callWhen"
                            Layout.fillWidth: true
                            text: model.dateText + (model.durationText ? "  ·  " + model.durationText : "")
                            textFormat: Text.PlainText
                            font.pixelSize: Theme.fontSmall
                            color: Theme.textMuted
                        }
                        Label {
                            objectName: "callDecryptionError"
                            Layout.fillWidth: true
                            visible: row.decryptionError !== ""
                            text: "⚠ " + row.decryptionError
                            textFormat: Text.PlainText
                            wrapMode: Text.Wrap
                            font.pixelSize: Theme.fontSmall
                            color: Theme.danger
                        }
                    }
                }
            }
        }

        CallDetailView {
            objectName: "callDetail"
            detail: root.selectedDetail
            historyModel: root.historyModel
            clipboard: root.clipboard
            onBack: root.closeCall()
        }
    }
}
