import QtQuick
import QtQuick.Controls
import QtTest
import "../../qml"

Item {
    id: scene
    width: 900
    height: 600

    Component { id: pageComponent; IntegrationsPage { anchors.fill: parent } }

    TestCase {
        name: "IntegrationsPage"
        when: windowShown

        // Any control here would promise something this version cannot do.
        function controlsIn(item) {
            let found = 0
            for (let i = 0; i < item.children.length; ++i) {
                const child = item.children[i]
                if (child instanceof AbstractButton || child instanceof ComboBox || child instanceof TextField)
                    found += 1
                found += controlsIn(child)
            }
            return found
        }

        function test_saysWhatIsNotThereYet() {
            const item = createTemporaryObject(pageComponent, scene)
            verify(item)
            const statement = findChild(item, "integrationsStatement").text
            for (const name of ["Web search", "scraping", "Notion", "e-mail", "MCP"])
                verify(statement.indexOf(name) >= 0, name)
            verify(statement.indexOf("not available") >= 0)
            compare(controlsIn(item), 0)
        }
    }
}
