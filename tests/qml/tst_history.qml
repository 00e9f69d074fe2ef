import QtQuick
import QtQuick.Controls
import QtTest
import "../../qml"

Item {
    id: scene
    width: 1000
    height: 760

    // What the service and the list model publish, and what was asked of them.
    component HistoryStandIn: QtObject {
        property bool isLoading: false
        property string errorMessage: ""
        property int loads: 0
        property int refreshes: 0
        function loadCalls() { loads += 1 }
        function clearCacheAndRefresh() { refreshes += 1 }
    }
    component ClipboardStandIn: QtObject {
        property string copied: ""
        function setText(text) { copied = text }
    }
    component ModelStandIn: ListModel {
        property var sortOrderNames: ["Date (Newest)", "Date (Oldest)", "Duration", "Status"]
        property int sortOrderIndex: 0
        property var detailTabNames: ["Summary", "Transcript", "Actions", "Comments", "Topics", "Insights"]
        property var details: ({})
        property string savedTo: ""
        property string saveError: ""
        function detail(id) { return details[id] !== undefined ? details[id] : ({}) }
        function actionItemsMarkdown(id) { return "# Action Items from Call\n\n- [ ] item of " + id + "\n" }
        function saveActionItems(id, url) { savedTo = url.toString(); return saveError }
    }

    Component { id: historyStandIn; HistoryStandIn {} }
    Component { id: clipboardStandIn; ClipboardStandIn {} }
    Component { id: modelStandIn; ModelStandIn {} }
    Component { id: pageComponent; HistoryPage { anchors.fill: parent } }

    TestCase {
        name: "HistoryPage"
        when: windowShown

        property var history
        property var model
        property var clipboard

        function init() {
            history = createTemporaryObject(historyStandIn, scene)
            model = createTemporaryObject(modelStandIn, scene)
            clipboard = createTemporaryObject(clipboardStandIn, scene)
        }

        function addCall(id, extra) {
            const row = {
                id: id, title: "Pricing call " + id, dateText: "Today 3:05 PM",
                durationText: "41:06", status: "completed", direction: "outbound",
                decryptionError: "", hasSummary: true
            }
            for (const key in extra)
                row[key] = extra[key]
            model.append(row)
        }

        function page() {
            const item = createTemporaryObject(pageComponent, scene,
                                               { history: history, historyModel: model, clipboard: clipboard })
            verify(item)
            return item
        }

        function test_listStates() {
            const item = page()
            verify(history.loads >= 1, "the page loads the calls when shown")
            compare(findChild(item, "encryptionNote").text, "All calls are AES-256 encrypted at rest")
            verify(findChild(item, "emptyState").visible)
            verify(!findChild(item, "callList").visible)
            verify(!findChild(item, "historyError").visible)

            const box = findChild(item, "sortOrderBox")
            compare([box.textAt(0), box.textAt(1), box.textAt(2), box.textAt(3)],
                    ["Date (Newest)", "Date (Oldest)", "Duration", "Status"])
            box.activated(2)
            compare(model.sortOrderIndex, 2)

            const refresh = findChild(item, "clearCacheButton")
            compare(refresh.text, "Clear Cache & Refresh")
            refresh.clicked()
            compare(history.refreshes, 1)

            history.isLoading = true
            verify(!refresh.enabled)
            verify(findChild(item, "historyLoading").visible)
            verify(!findChild(item, "emptyState").visible, "no empty state while loading")
            history.errorMessage = "Unable to load call history. Please try again."
            verify(findChild(item, "historyError").visible)
        }

        function test_rowsAndDecryptionError() {
            addCall("c1", {})
            addCall("c2", { title: "Outbound call", decryptionError: "Unable to decrypt call contents",
                            hasSummary: false, durationText: "" })
            const item = page()
            verify(!findChild(item, "emptyState").visible)
            tryVerify(() => findChild(item, "callRow_c2") !== null)
            const good = findChild(item, "callRow_c1")
            const damaged = findChild(item, "callRow_c2")
            compare(findChild(good, "callTitle").text, "Pricing call c1")
            compare(findChild(good, "callWhen").text, "Today 3:05 PM  ·  41:06")
            compare(findChild(good, "callStatus").text, "completed")
            verify(!findChild(good, "callDecryptionError").visible)
            const marked = findChild(damaged, "callDecryptionError")
            verify(marked.visible, "a record the server could not open is marked, not hidden")
            verify(marked.text.indexOf("Unable to decrypt call contents") >= 0)
            verify(damaged.Accessible.name.indexOf("Unable to decrypt call contents") >= 0)
            compare(findChild(damaged, "callWhen").text, "Today 3:05 PM")
        }

        function test_detailTabsCopyAndExport() {
            addCall("c1", {})
            model.details = {
                "c1": {
                    id: "c1", title: "Pricing call c1", dateText: "Today 3:05 PM", durationText: "41:06",
                    status: "completed", decryptionError: "", hasSummary: true,
                    summary: { content: "Agreed on a two-year term.", keyPoints: ["Two years", "Net 45"], sentiment: "positive" },
                    transcript: { segments: [{ speaker: "Ana", time: "0:12", text: "Hello there" }], text: "Hello there" },
                    actions: [{ description: "Send the quote", assignee: "Demo Seller", priority: "high", deadline: "Today" }],
                    comments: [{ role: "user", author: "You", content: "What next?", time: "Today 3:10 PM" }],
                    topics: [{ topic: "Pricing", importance: 0.9, importanceText: "90%", mentions: 4 }],
                    insights: { sentiment: "positive", sentimentScoreText: "+0.55",
                                speakers: [{ name: "Ana", role: "CFO", contributions: ["Asked for terms"] }],
                                processing: [{ label: "Transcription confidence", value: "92%" }] }
                }
            }
            const item = page()
            tryVerify(() => findChild(item, "callRow_c1") !== null)
            findChild(item, "callRow_c1").clicked()
            const detail = findChild(item, "callDetail")
            tryVerify(() => detail.visible)
            compare(findChild(detail, "detailTitle").text, "Pricing call c1")

            const tabs = findChild(detail, "detailTabs")
            compare(tabs.count, 6)
            const names = []
            for (let i = 0; i < tabs.count; ++i)
                names.push(tabs.itemAt(i).text)
            compare(names, ["Summary", "Transcript", "Actions", "Comments", "Topics", "Insights"])
            compare(findChild(detail, "summaryContent").text, "Agreed on a two-year term.")
            tabs.currentIndex = 2
            compare(findChild(detail, "detailPages").currentIndex, 2)
            for (const name of ["actionItems", "commentMessages", "topicRows", "transcriptSegments"])
                compare(findChild(detail, name).count, 1, name)
            compare(findChild(detail, "insightsSentiment").text, "positive (+0.55)")

            const copiedLabel = findChild(detail, "actionsCopiedLabel")
            verify(!copiedLabel.visible)
            findChild(detail, "copyActionsButton").clicked()
            compare(clipboard.copied, "# Action Items from Call\n\n- [ ] item of c1\n")
            tryVerify(() => copiedLabel.visible)
            compare(copiedLabel.text, "Copied!")

            const exportDialog = findChild(detail, "exportDialog")
            compare(findChild(detail, "exportActionsButton").text, "Export Action Items…")
            model.saveError = "The action items could not be saved: the folder /nowhere does not exist."
            exportDialog.selectedFile = "file:///nowhere/actions.md"
            exportDialog.accepted()
            compare(model.savedTo, "file:///nowhere/actions.md")
            const message = findChild(detail, "exportMessage")
            verify(message.visible)
            compare(message.text, "The action items could not be saved: the folder /nowhere does not exist.")

            findChild(detail, "backButton").clicked()
            tryVerify(() => findChild(item, "callList").visible)
            compare(item.selectedCallId, "")
        }

        function test_detailOfDamagedCall() {
            addCall("c2", { decryptionError: "Unable to decrypt call contents", hasSummary: false })
            model.details = { "c2": { id: "c2", title: "Outbound call", status: "completed",
                                      decryptionError: "Unable to decrypt call contents",
                                      summary: { content: "", keyPoints: [] }, transcript: { segments: [], text: "" },
                                      actions: [], comments: [], topics: [], insights: {} } }
            const item = page()
            item.openCall("c2")
            const detail = findChild(item, "callDetail")
            const banner = findChild(detail, "detailDecryptionError")
            verify(banner.visible)
            verify(banner.children[0].text.indexOf("Unable to decrypt call contents") >= 0)
            compare(findChild(detail, "actionItems").count, 0)
        }
    }
}
