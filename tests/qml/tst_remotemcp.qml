import QtQuick
import QtQuick.Controls
import QtTest
import "../../qml"

Item {
    id: scene
    width: 800
    height: 1400

    // Stands for MCPRemoteService: the integrations as the service lists
    // them, the form's URL check, and the calls the section makes.
    Component {
        id: serviceStandIn
        QtObject {
            property var integrations: []
            property var calls: []
            function connectIntegration(name) { calls = calls.concat(["connect " + name]) }
            function disconnectIntegration(name) { calls = calls.concat(["disconnect " + name]) }
            function removeIntegration(name) { calls = calls.concat(["remove " + name]); return true }
            function addIntegration(name, url, requiresAuth, description) {
                calls = calls.concat(["add " + name + " " + url + " " + requiresAuth + " " + description])
                return integrations.some(i => i.name === name)
                        ? "An integration with the name '" + name + "' already exists" : ""
            }
            function checkUrl(url) {
                if (url.startsWith("ftp:"))
                    return { error: "URL scheme must be one of: https, http, wss, ws", warning: "" }
                if (url.startsWith("http:"))
                    return { error: "", warning: "Warning: Using non-secure connection. Consider HTTPS/WSS for production." }
                return { error: "", warning: "" }
            }
        }
    }
    Component {
        id: sectionComponent
        RemoteMcpSection { width: scene.width }
    }

    function integration(name, state, extra) {
        return Object.assign({ name: name, url: "https://" + name.toLowerCase() + ".example/sse",
                               description: name + " server", requiresAuth: true, isCustom: false,
                               state: state, lastError: "", toolNames: [], toolCount: 0 }, extra)
    }

    TestCase {
        name: "RemoteMcpSection"
        when: windowShown

        property var service
        property var section

        function init() {
            service = createTemporaryObject(serviceStandIn, scene)
            service.integrations = [
                scene.integration("Linear", "not connected",
                                  { lastError: "Authentication failed. Please try connecting again to re-authenticate." }),
                scene.integration("Sentry", "connecting"),
                scene.integration("Demo Server", "connected",
                                  { isCustom: true, requiresAuth: false, toolNames: ["echo", "get-sum"], toolCount: 2 }),
                scene.integration("Empty", "connected", { isCustom: true })
            ]
            section = createTemporaryObject(sectionComponent, scene, { mcpService: service })
            verify(section)
        }

        function find(name) { return findChild(section, name) }

        function test_cardsShowStateErrorsAndTools_data() {
            return [
                { tag: "not connected", key: "Linear", state: "Not connected", button: "Connect", tools: false },
                { tag: "connecting", key: "Sentry", state: "Connecting…", button: "Connect", tools: false },
                { tag: "connected", key: "Demo_Server", state: "Connected", button: "Disconnect", tools: true },
            ]
        }
        function test_cardsShowStateErrorsAndTools(data) {
            compare(find("mcpState_" + data.key).text, data.state)
            compare(find("mcpConnectButton_" + data.key).text, data.button)
            compare(find("mcpConnectButton_" + data.key).enabled, data.tag !== "connecting")
            compare(find("mcpTools_" + data.key).visible, data.tools)
        }

        function test_errorsAndToolLists() {
            verify(find("mcpError_Linear").visible)
            compare(find("mcpError_Linear").text,
                    "Authentication failed. Please try connecting again to re-authenticate.")
            verify(!find("mcpError_Sentry").visible)
            compare(find("mcpTools_Demo_Server").text, "2 tools: echo, get-sum")
            compare(find("mcpTools_Empty").text, "No tools found")
        }

        function test_connectDisconnectRemove() {
            mouseClick(find("mcpConnectButton_Linear"))
            mouseClick(find("mcpConnectButton_Demo_Server"))
            verify(!find("mcpRemoveButton_Linear").visible, "pre-built servers stay")
            mouseClick(find("mcpRemoveButton_Demo_Server"))
            compare(service.calls, ["connect Linear", "disconnect Demo Server", "remove Demo Server"])
        }

        function test_addForm_data() {
            return [
                { tag: "ftp refused", name: "Files", url: "ftp://x/sse", error: "URL scheme must be one of: https, http, wss, ws",
                  warning: false, enabled: false },
                { tag: "http warned", name: "Local", url: "http://127.0.0.1:1/sse", error: "", warning: true, enabled: true },
                { tag: "https", name: "Remote", url: "https://r.example/sse", error: "", warning: false, enabled: true },
                { tag: "no name", name: "", url: "https://r.example/sse", error: "", warning: false, enabled: false },
            ]
        }
        function test_addForm(data) {
            find("mcpNameField").text = data.name
            find("mcpUrlField").text = data.url
            compare(find("mcpAddError").visible, data.error !== "")
            compare(find("mcpAddError").text, data.error)
            compare(find("mcpUrlWarning").visible, data.warning)
            compare(find("mcpAddButton").enabled, data.enabled)
        }

        function test_addingClearsTheFormOrShowsTheRefusal() {
            find("mcpNameField").text = "Demo Server"
            find("mcpUrlField").text = "https://d.example/sse"
            mouseClick(find("mcpAddButton"))
            compare(find("mcpAddError").text, "An integration with the name 'Demo Server' already exists")
            compare(find("mcpNameField").text, "Demo Server", "a refused entry stays to be corrected")

            find("mcpNameField").text = "Fresh"
            find("mcpDescriptionField").text = "Mine"
            mouseClick(find("mcpRequiresAuthBox"))
            mouseClick(find("mcpAddButton"))
            compare(service.calls[service.calls.length - 1], "add Fresh https://d.example/sse true Mine")
            compare(find("mcpNameField").text, "")
            verify(!find("mcpAddError").visible)
        }
    }
}
