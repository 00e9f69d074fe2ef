// The speech models: which are on disk, fetching one with its progress, and deleting one.
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

ColumnLayout {
    id: root
    objectName: "modelManagement"

    // ModelCatalogueModel and ModelDownloader (or stand-ins).
    required property var modelCatalogue
    required property var modelDownloader

    readonly property bool anyDownloading: modelDownloader ? modelDownloader.isDownloading : false
    readonly property string lastError: modelCatalogue && modelCatalogue.lastError ? modelCatalogue.lastError : ""

    spacing: Theme.spacing

    Label {
        text: "Whisper Model Management"
        font.pixelSize: Theme.fontTitle
        font.weight: Font.DemiBold
        color: Theme.text
        Accessible.role: Accessible.Heading
    }
    Label {
        Layout.fillWidth: true
        text: "Manage Whisper models for speech recognition"
        wrapMode: Text.Wrap
        font.pixelSize: Theme.fontBody
        color: Theme.textMuted
    }

    Rectangle {
        objectName: "modelError"
        Layout.fillWidth: true
        visible: root.lastError !== ""
        implicitHeight: errorRow.implicitHeight + Theme.padding
        radius: Theme.radius
        color: Theme.dangerSoft
        RowLayout {
            id: errorRow
            anchors.fill: parent
            anchors.margins: Theme.padding / 2
            Label {
                Layout.fillWidth: true
                text: root.lastError
                textFormat: Text.PlainText
                wrapMode: Text.Wrap
                color: Theme.danger
                font.pixelSize: Theme.fontBody
                Accessible.role: Accessible.AlertMessage
                Accessible.name: text
            }
            QmButton {
                objectName: "dismissModelError"
                text: "Dismiss"
                onClicked: root.modelCatalogue.clearError()
            }
        }
    }

    Repeater {
        objectName: "modelRows"
        model: root.modelCatalogue

        delegate: Rectangle {
            id: row
            required property string name
            required property string sizeText
            required property bool downloaded
            required property bool downloading
            required property real progress
            readonly property string modelName: name

            objectName: "modelRow_" + modelName
            Layout.fillWidth: true
            implicitHeight: rowColumn.implicitHeight + Theme.padding
            radius: Theme.radius
            color: Theme.surface
            border.color: downloading ? Theme.accent : Theme.border
            Accessible.role: Accessible.ListItem
            Accessible.name: modelName + ", " + sizeText
                             + (downloaded ? ", downloaded" : downloading ? ", downloading" : ", not downloaded")

            ColumnLayout {
                id: rowColumn
                anchors.fill: parent
                anchors.margins: Theme.padding / 2
                spacing: 6

                RowLayout {
                    Layout.fillWidth: true
                    spacing: Theme.spacing
                    ColumnLayout {
                        Layout.fillWidth: true
                        spacing: 2
                        // Filling, so the column (and not the buttons) takes the spare width.
                        Label {
                            Layout.fillWidth: true
                            text: row.modelName
                            font.pixelSize: Theme.fontBody
                            font.weight: Font.DemiBold
                            color: Theme.text
                        }
                        Label {
                            objectName: "modelSize"
                            Layout.fillWidth: true
                            text: row.sizeText
                            font.pixelSize: Theme.fontSmall
                            color: Theme.textMuted
                        }
                    }
                    Label {
                        objectName: "downloadedTag"
                        visible: row.downloaded
                        text: "✓ Downloaded"
                        font.pixelSize: Theme.fontSmall
                        color: Theme.success
                        leftPadding: 8
                        rightPadding: 8
                        topPadding: 2
                        bottomPadding: 2
                        background: Rectangle { radius: height / 2; color: Theme.successSoft }
                    }
                    QmButton {
                        objectName: "downloadButton_" + row.modelName
                        visible: !row.downloaded && !row.downloading
                        enabled: !root.anyDownloading
                        primary: true
                        text: "Download"
                        Accessible.name: "Download " + row.modelName
                        onClicked: root.modelCatalogue.download(row.modelName)
                    }
                    QmButton {
                        objectName: "cancelDownloadButton"
                        visible: row.downloading
                        text: "Cancel"
                        Accessible.name: "Cancel the download of " + row.modelName
                        onClicked: root.modelCatalogue.cancel()
                    }
                    QmButton {
                        objectName: "deleteButton_" + row.modelName
                        visible: row.downloaded && !row.downloading
                        destructive: true
                        text: "Delete"
                        Accessible.name: "Delete " + row.modelName
                        onClicked: {
                            deleteConfirmDialog.modelName = row.modelName
                            deleteConfirmDialog.open()
                        }
                    }
                }

                ColumnLayout {
                    objectName: "downloadProgress"
                    Layout.fillWidth: true
                    visible: row.downloading
                    spacing: 4
                    ProgressBar {
                        id: progressBar
                        objectName: "downloadProgressBar"
                        Layout.fillWidth: true
                        from: 0
                        to: 1
                        value: row.progress
                        Accessible.role: Accessible.ProgressBar
                        Accessible.name: "Download of " + row.modelName + ", "
                                         + Math.round(value * 100) + " percent"
                        background: Rectangle {
                            implicitHeight: 6
                            radius: 3
                            color: Theme.surfaceAlt
                        }
                        contentItem: Item {
                            implicitHeight: 6
                            Rectangle {
                                width: progressBar.visualPosition * parent.width
                                height: parent.height
                                radius: 3
                                color: Theme.accent
                                Behavior on width { NumberAnimation { duration: Theme.animationDuration } }
                            }
                        }
                    }
                    Label {
                        objectName: "downloadStatus"
                        Layout.fillWidth: true
                        text: (root.modelDownloader ? root.modelDownloader.downloadStatus : "")
                              + "  ·  " + Math.round(row.progress * 100) + "%"
                        textFormat: Text.PlainText
                        elide: Text.ElideRight
                        font.pixelSize: Theme.fontSmall
                        color: Theme.textMuted
                    }
                }
            }
        }
    }

    Dialog {
        id: deleteConfirmDialog
        objectName: "deleteConfirmDialog"
        property string modelName: ""

        parent: Overlay.overlay
        anchors.centerIn: parent
        modal: true
        focus: true
        title: "Delete " + modelName + "?"
        width: 420
        standardButtons: Dialog.Cancel | Dialog.Ok

        contentItem: Label {
            text: "The model file is removed from your computer. You can download it again at any time."
            wrapMode: Text.Wrap
            font.pixelSize: Theme.fontBody
            color: Theme.text
        }

        Component.onCompleted: {
            const ok = standardButton(Dialog.Ok)
            if (ok) {
                ok.text = "Delete"
                ok.objectName = "confirmDeleteButton"
            }
        }
        onAccepted: root.modelCatalogue.remove(modelName)
    }
}
