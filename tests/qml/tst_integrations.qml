import QtQuick
import QtQuick.Controls
import QtTest
import "../../qml"

Item {
    id: scene
    width: 900
    height: 1600


    // The list's rows as the real model gives them: flat roles for the cards,
    // and get(row) with the extra fields as a plain list for the sheet.
    Component {
        id: modelStandIn
        ListModel {
            property var rows: []
            function load(items) {
                rows = items
                clear()
                for (const row of items) {
                    const flat = Object.assign({}, row)
                    delete flat.additionalFields
                    append(flat)
                }
            }
            function update(name, changes) {
                for (let i = 0; i < rows.length; ++i) {
                    if (rows[i].name === name) {
                        rows[i] = Object.assign({}, rows[i], changes)
                        set(i, changes)
                    }
                }
            }
            function get(row) { return rows[row] }
        }
    }
    Component {
        id: configurationStandIn
        QtObject {
            property var model
            property int revision: 0
            property var calls: []
            // Stands for settings that cannot be written.
            property bool refuses: false
            function toggleIntegration(name, enabled) {
                calls = calls.concat(["toggle " + name + " " + enabled])
                const row = model.rows.find(r => r.name === name)
                if (refuses || !row || (enabled && row.isComingSoon))
                    return false
                model.update(name, { isEnabled: enabled })
                revision += 1
                return true
            }
            function hasAPIKey(name) {
                const row = model.rows.find(r => r.name === name)
                return row ? row.hasAPIKey : false
            }
            function removeAPIKey(name) {
                calls = calls.concat(["remove " + name])
                model.update(name, { hasAPIKey: false })
                revision += 1
                return true
            }
        }
    }
    Component {
        id: formStandIn
        QtObject {
            property string errorMessage: ""
            property string failure: ""
            property var saves: []
            property var stored: ({})
            function save(name, key, fields) {
                saves = saves.concat([{ name: name, key: key, fields: fields }])
                errorMessage = failure
                return failure === ""
            }
            function storedFields(name) { return stored[name] !== undefined ? stored[name] : ({}) }
            function clearError() { errorMessage = "" }
        }
    }
    Component {
        id: pageComponent
        IntegrationsPage { anchors.fill: parent }
    }

    function entry(name, category, authType, extra) {
        return Object.assign({
            name: name, description: name + " does things.", iconName: "circle.fill", iconColor: "orange",
            isEnabled: false, category: category, isComingSoon: false, requiresAPIKey: authType === "apiKey",
            authType: authType, apiKeyPlaceholder: "Enter your " + name + " API key", hasAPIKey: false,
            additionalFields: []
        }, extra)
    }

    TestCase {
        name: "IntegrationsPage"
        when: windowShown

        property var model
        property var configuration
        property var form
        property var page

        // The page is deep; the sheet's items are found through their popup.
        function find(name) {
            const found = findChild(page, name)
            if (found)
                return found
            const sheet = findChild(page, "apiKeyConfigurationView")
            return sheet ? findChild(sheet.contentItem, name) : null
        }
        function shown(name) {
            const item = find(name)
            if (!item)
                return false
            for (let at = item; at; at = at.parent)
                if (!at.visible)
                    return false
            return true
        }

        function init() {
            model = createTemporaryObject(modelStandIn, scene)
            model.load([
                scene.entry("Brave Search", "Search & AI Tools", "apiKey"),
                scene.entry("Notion", "Search & AI Tools", "apiKey", { additionalFields: [
                    { key: "database_id", label: "Default Database ID", placeholder: "Enter database ID",
                      isRequired: false, fieldType: "text" }] }),
                scene.entry("Resend", "Search & AI Tools", "apiKey", { hasAPIKey: true, additionalFields: [
                    { key: "sender_email", label: "Default Sender Email", placeholder: "Enter sender",
                      isRequired: false, fieldType: "email" },
                    { key: "signing_secret", label: "Signing Secret", placeholder: "Enter secret",
                      isRequired: false, fieldType: "password" }] }),
                scene.entry("HubSpot", "Sales & Marketing Tools", "apiKey", { isComingSoon: true, isEnabled: true }),
                scene.entry("Slack", "Communication & Collaboration", "oauth", { isComingSoon: true }),
                scene.entry("Team Wiki", "Communication & Collaboration", "basicAuth"),
                scene.entry("Clock", "Communication & Collaboration", "none")
            ])
            configuration = createTemporaryObject(configurationStandIn, scene, { model: model })
            form = createTemporaryObject(formStandIn, scene)
            page = createTemporaryObject(pageComponent, scene, {
                configurationManager: configuration, integrationModel: model, apiKeyForm: form
            })
            verify(page)
        }

        function openSheet(name) {
            mouseClick(find("configureButton_" + name.replace(/ /g, "_")))
            const sheet = find("apiKeyConfigurationView")
            tryCompare(sheet, "opened", true)
            // Clicks land where the sheet's laid-out controls are.
            waitForRendering(sheet.contentItem)
            return sheet
        }

        function test_headingsStartEachCategory() {
            const headings = ["Search_&_AI_Tools", "Sales_&_Marketing_Tools", "Communication_&_Collaboration"]
            let lastY = -1
            for (const heading of headings) {
                verify(shown("categoryHeading_" + heading), heading)
                const y = find("categoryHeading_" + heading).mapToItem(page, 0, 0).y
                verify(y > lastY, heading + " follows the catalogue's order")
                lastY = y
            }
            // One heading a category: the later entries of a category show none.
            let visibleHeadings = 0
            for (let i = 0; i < model.count; ++i) {
                const card = find("integrationCard_" + model.get(i).name.replace(/ /g, "_"))
                verify(card, model.get(i).name)
                const siblings = card.parent.children
                for (let j = 0; j < siblings.length; ++j)
                    if (siblings[j].objectName.startsWith("categoryHeading_") && siblings[j].visible)
                        visibleHeadings += 1
            }
            compare(visibleHeadings, 3)
        }

        function test_comingSoonCannotBeSwitchedOn() {
            verify(shown("comingSoonBadge_HubSpot"))
            verify(!shown("comingSoonBadge_Brave_Search"))
            const hubSpot = find("integrationSwitch_HubSpot")
            verify(!hubSpot.enabled)
            verify(hubSpot.checked, "a stored choice still shows")
            verify(!find("integrationSwitch_Slack").enabled)
            verify(find("integrationSwitch_Brave_Search").enabled)
        }

        function test_switchShowsWhatTheConfigurationHolds() {
            const brave = find("integrationSwitch_Brave_Search")
            verify(!brave.checked)
            mouseClick(brave)
            compare(configuration.calls, ["toggle Brave Search true"])
            verify(brave.checked)
            mouseClick(brave)
            verify(!brave.checked)

            // A change the configuration refuses leaves the switch as it was.
            configuration.refuses = true
            mouseClick(brave)
            compare(configuration.calls.length, 3)
            verify(!brave.checked)
        }

        function test_keyStateLine() {
            compare(find("integrationKeyState_Brave_Search").text, "No API key")
            compare(find("integrationKeyState_Resend").text, "API key stored")
            verify(!shown("integrationKeyState_Slack"), "an OAuth entry has no key")
            model.update("Brave Search", { hasAPIKey: true })
            compare(find("integrationKeyState_Brave_Search").text, "API key stored")
        }

        function test_sheetSectionsFollowAuthType_data() {
            return [
                { tag: "apiKey", name: "Brave Search", section: "apiKeySection", save: true },
                { tag: "oauth", name: "Slack", section: "oauthSection", save: false },
                { tag: "basicAuth", name: "Team Wiki", section: "basicAuthSection", save: false },
                { tag: "none", name: "Clock", section: "noAuthSection", save: false }
            ]
        }
        function test_sheetSectionsFollowAuthType(data) {
            const sheet = openSheet(data.name)
            for (const section of ["apiKeySection", "oauthSection", "basicAuthSection", "noAuthSection"])
                compare(shown(section), section === data.section, section)
            compare(shown("saveConfigurationButton"), data.save)
            verify(shown("securityNote"))
            verify(find("securityNote").text.indexOf("keyring") >= 0)
            verify(shown("cancelConfigurationButton"))
            if (data.tag === "oauth") {
                compare(find("oauthText").text,
                        "Click 'Authorize' to securely connect your Slack account using OAuth.")
                verify(!find("authorizeButton").enabled)
            }
            mouseClick(find("cancelConfigurationButton"))
            tryCompare(sheet, "visible", false)
        }

        function test_savingHandsTheKeyAndFieldsToTheForm() {
            form.stored = { "Notion": { database_id: "db-123" } }
            const sheet = openSheet("Notion")
            const key = find("apiKeyField")
            compare(key.placeholderText, "Enter your Notion API key")
            compare(key.echoMode, TextInput.Password)
            compare(find("integrationField_database_id").text, "db-123", "stored fields are filled in")
            verify(!shown("storedKeyLine"))
            verify(!shown("removeApiKeyButton"))

            // A refused key keeps the sheet open with the form's sentence.
            form.failure = "Please enter a valid API key"
            key.text = "   "
            mouseClick(find("saveConfigurationButton"))
            verify(sheet.opened)
            verify(shown("configurationError"))
            compare(find("configurationError").text, "Please enter a valid API key")

            form.failure = ""
            key.text = "secret-token"
            find("integrationField_database_id").text = "db-456"
            mouseClick(find("saveConfigurationButton"))
            tryCompare(sheet, "visible", false)
            compare(form.saves[1].name, "Notion")
            compare(form.saves[1].key, "secret-token")
            compare(form.saves[1].fields, { database_id: "db-456" })
            compare(key.text, "", "the key leaves the field with the sheet")

            // The next opening starts without the last failure.
            form.errorMessage = "Failed to store API key securely"
            openSheet("Brave Search")
            verify(!shown("configurationError"))
        }

        function test_storedKeyIsNeverShown() {
            openSheet("Resend")
            verify(shown("storedKeyLine"))
            compare(find("storedKeyText").text, "API key is already stored securely")
            compare(find("apiKeyField").text, "")
            const toggle = find("apiKeyVisibilityToggle")
            mouseClick(toggle)
            compare(find("apiKeyField").echoMode, TextInput.Normal)
            mouseClick(toggle)
            compare(find("apiKeyField").echoMode, TextInput.Password)

            mouseClick(find("removeApiKeyButton"))
            compare(configuration.calls, ["remove Resend"])
            verify(!shown("storedKeyLine"))
            verify(!shown("removeApiKeyButton"))
        }

        function test_fieldKinds() {
            openSheet("Resend")
            const email = find("integrationField_sender_email")
            verify(email.inputMethodHints & Qt.ImhEmailCharactersOnly)
            compare(email.echoMode, TextInput.Normal)
            compare(find("integrationField_signing_secret").echoMode, TextInput.Password)
            compare(find("integrationField_sender_email").placeholderText, "Enter sender")
        }
    }
}
