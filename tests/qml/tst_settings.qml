import QtQuick
import QtQuick.Controls
import QtTest
import "../../qml"

Item {
    id: scene
    width: 1000
    height: 2600

    Component {
        id: devicesStandIn
        QtObject {
            property var availableInputDevices: []
            property string selectedDeviceId: ""
            property bool isLoading: false
            property string lastError: ""
            property var selections: []
            function selectDeviceById(id) { selections = selections.concat([id]); selectedDeviceId = id; return true }
        }
    }
    Component {
        id: catalogueStandIn
        ListModel {
            property string lastError: ""
            property var calls: []
            function download(name) { calls = calls.concat(["download " + name]) }
            function cancel() { calls = calls.concat(["cancel"]) }
            function remove(name) { calls = calls.concat(["remove " + name]); return true }
        }
    }
    Component { id: downloaderStandIn; QtObject { property bool isDownloading; property string downloadStatus } }
    Component {
        id: themesStandIn
        QtObject {
            property string currentTheme: "system"
            property var themeOptions: [{ value: "light", label: "Light" }, { value: "dark", label: "Dark" },
                                        { value: "sepia", label: "Sepia" }, { value: "system", label: "System" }]
        }
    }
    Component {
        id: authStandIn
        QtObject {
            property var currentUser: ({ fullName: "Demo Seller", email: "demo@quillmoss.local" })
            property int signOuts: 0
            function requestSignOut() { signOuts += 1 }
        }
    }
    Component {
        id: feedbackStandIn
        QtObject {
            property var typeOptions: [{ value: "feature-request", label: "Feature Request" },
                                       { value: "bug-report", label: "Bug Report" }]
            property int typeIndex: 0
            property string text: ""
            property int characterCount: text.length
            property int maxCharacters: 5000
            property string placeholderText: "Share your thoughts, suggestions, or report issues..."
            property bool isSubmitting: false
            property bool alertVisible: false
            property string alertTitle
            property string alertMessage
            property bool alertIsError: true
            property int submits: 0
            function submit() { submits += 1 }
            function dismissAlert() { alertVisible = false }
        }
    }
    Component {
        id: updatesStandIn
        QtObject {
            property bool isConfigured: false
            property bool canCheckForUpdates: false
            property string statusText: "Update checks are off in this build."
            property string availableVersion
        }
    }
    Component { id: pageComponent; SettingsPage { anchors.fill: parent } }

    TestCase {
        name: "SettingsPage"
        when: windowShown

        property var devices
        property var catalogue
        property var downloader
        property var themes
        property var auth
        property var feedback
        property var updates

        function init() {
            devices = createTemporaryObject(devicesStandIn, scene)
            catalogue = createTemporaryObject(catalogueStandIn, scene)
            downloader = createTemporaryObject(downloaderStandIn, scene)
            themes = createTemporaryObject(themesStandIn, scene)
            auth = createTemporaryObject(authStandIn, scene)
            feedback = createTemporaryObject(feedbackStandIn, scene)
            updates = createTemporaryObject(updatesStandIn, scene)
            const names = ["tiny.en", "tiny.en-q8", "small.en", "small.en-q8", "base.en", "base.en-q8",
                           "medium.en", "medium.en-q8", "large-v3", "large-v3-q5", "large-v3-turbo",
                           "large-v3-turbo-q5", "large-v3-turbo-q8"]
            for (const name of names) {
                catalogue.append({ name: name, fileName: "ggml-" + name + ".bin", sizeText: "about 75 MB",
                                   downloaded: false, downloading: false, progress: 0 })
            }
        }

        function page() {
            const item = createTemporaryObject(pageComponent, scene, {
                devices: devices, modelCatalogue: catalogue, modelDownloader: downloader,
                themeManager: themes, authService: auth, feedbackForm: feedback, updateManager: updates
            })
            verify(item)
            return item
        }

        function rowOf(name) { for (let i = 0; i < catalogue.count; ++i) if (catalogue.get(i).name === name) return i; return -1 }

        function test_devicesFollowTheList() {
            const item = page()
            verify(findChild(item, "devicesEmpty").visible)
            devices.availableInputDevices = [
                { id: "alsa_input.usb", name: "USB Headset", manufacturer: "Acme", isDefault: false },
                { id: "alsa_input.pci", name: "Built-in Microphone", manufacturer: "Unknown", isDefault: true }
            ]
            devices.selectedDeviceId = "alsa_input.usb"
            tryVerify(() => findChild(item, "deviceRow_alsa_input.pci") !== null)
            verify(!findChild(item, "devicesEmpty").visible)
            const usb = findChild(item, "deviceRow_alsa_input.usb")
            const builtIn = findChild(item, "deviceRow_alsa_input.pci")
            verify(usb.selected)
            verify(!builtIn.selected)
            verify(findChild(builtIn, "defaultTag").visible, "the system default is marked")
            verify(!findChild(usb, "defaultTag").visible)
            compare(usb.Accessible.role, Accessible.RadioButton)

            builtIn.clicked()
            compare(devices.selections, ["alsa_input.pci"])
            verify(builtIn.selected)
            verify(!usb.selected)

            // A device unplugged goes from the list.
            devices.availableInputDevices = [devices.availableInputDevices[1]]
            tryVerify(() => findChild(item, "deviceRow_alsa_input.usb") === null)

            devices.isLoading = true
            verify(findChild(item, "devicesLoading").visible)
            devices.lastError = "The sound server cannot be reached"
            compare(findChild(item, "devicesError").text, "The sound server cannot be reached")
        }

        function test_modelRows() {
            const item = page()
            for (let i = 0; i < catalogue.count; ++i) {
                const name = catalogue.get(i).name
                const row = findChild(item, "modelRow_" + name)
                verify(findChild(row, "downloadButton_" + name).visible, name)
                verify(!findChild(row, "deleteButton_" + name).visible, name)
            }
            findChild(item, "downloadButton_base.en").clicked()

            catalogue.setProperty(rowOf("small.en"), "downloading", true)
            catalogue.setProperty(rowOf("small.en"), "progress", 0.42)
            downloader.isDownloading = true
            downloader.downloadStatus = "Now downloading model: small.en"
            const row = findChild(item, "modelRow_small.en")
            verify(findChild(row, "downloadProgress").visible)
            fuzzyCompare(findChild(row, "downloadProgressBar").value, 0.42, 0.001)
            compare(findChild(row, "downloadStatus").text, "Now downloading model: small.en  ·  42%")
            verify(!findChild(row, "downloadButton_small.en").visible)
            verify(!findChild(item, "downloadButton_tiny.en").enabled, "one download at a time")
            findChild(row, "cancelDownloadButton").clicked()
            compare(catalogue.calls, ["download base.en", "cancel"])

            verify(!findChild(item, "modelError").visible)
            catalogue.lastError = "The model host answered 404 Not Found for https://models/ggml-tiny.en.bin"
            verify(findChild(item, "modelError").visible)
        }

        function test_deleteAsksFirst() {
            catalogue.setProperty(rowOf("medium.en"), "downloaded", true)
            const item = page()
            const row = findChild(item, "modelRow_medium.en")
            verify(findChild(row, "downloadedTag").visible)
            const dialog = findChild(item, "deleteConfirmDialog")
            verify(!dialog.opened)
            findChild(row, "deleteButton_medium.en").clicked()
            tryVerify(() => dialog.opened)
            compare(dialog.title, "Delete medium.en?")
            dialog.reject()
            tryVerify(() => !dialog.visible)
            compare(catalogue.calls, [], "nothing is deleted before the user confirms")

            findChild(row, "deleteButton_medium.en").clicked()
            tryVerify(() => dialog.opened)
            dialog.accept()
            compare(catalogue.calls, ["remove medium.en"])
        }

        function test_themeChoices() {
            const item = page()
            const box = findChild(item, "themeBox")
            compare(box.count, 4)
            compare([box.textAt(0), box.textAt(1), box.textAt(2), box.textAt(3)], ["Light", "Dark", "Sepia", "System"])
            compare(box.currentIndex, 3)
            box.activated(2)
            compare(themes.currentTheme, "sepia")
            compare(box.currentIndex, 2)
        }

        function test_feedbackForm() {
            const item = page()
            const area = findChild(item, "feedbackText")
            compare(area.placeholderText, "Share your thoughts, suggestions, or report issues...")
            compare(findChild(item, "feedbackTypeBox").textAt(1), "Bug Report")
            compare(findChild(item, "feedbackCounter").text, "0 / 5000")
            // As typing does: the area keeps its binding to the form.
            area.insert(0, "Great")
            compare(feedback.text, "Great")
            compare(findChild(item, "feedbackCounter").text, "5 / 5000")

            const submit = findChild(item, "feedbackSubmit")
            submit.clicked()
            compare(feedback.submits, 1)
            feedback.isSubmitting = true
            verify(!submit.enabled, "no second submission while one runs")
            feedback.isSubmitting = false

            const alert = findChild(item, "feedbackAlert")
            verify(!alert.visible)
            feedback.alertTitle = "Feedback Submitted"
            feedback.alertMessage = "Thank you for your feedback! We appreciate your input."
            feedback.alertVisible = true
            verify(alert.visible)
            compare(findChild(item, "feedbackAlertTitle").text, "Feedback Submitted")
            compare(findChild(item, "feedbackAlertMessage").text,
                    "Thank you for your feedback! We appreciate your input.")
            findChild(item, "feedbackAlertOk").clicked()
            verify(!alert.visible)

            // The form clears its text after a success; the area follows.
            feedback.text = ""
            compare(area.text, "")
        }

        function test_accountAndUpdatesOff() {
            const item = page()
            compare(findChild(item, "accountName").text, "Demo Seller")
            compare(findChild(item, "accountEmail").text, "demo@quillmoss.local")
            findChild(item, "signOutButton").clicked()
            compare(auth.signOuts, 1)

            const button = findChild(item, "checkUpdatesButton")
            compare(button.text, "Check for Updates")
            verify(!button.enabled)
            compare(findChild(item, "updateStatus").text, "Update checks are off in this build.")
            verify(!findChild(item, "downloadUpdateButton").visible)
            updates.canCheckForUpdates = true
            verify(button.enabled)
        }
    }
}
