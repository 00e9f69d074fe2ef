// The live summary's socket payloads: whatever arrives, the record decoders
// and the summary model never fail hard, and the model keeps its rules. An
// array feeds its elements one after another, so that merges get explored.
#include "session/LiveSessionRecords.h"
#include "session/SummaryModel.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QSet>

#include <cstdint>
#include <cstdlib>

using namespace LiveSession;

namespace {

void check(bool condition)
{
    if (!condition)
        std::abort();
}

void decodeAll(const QJsonValue& json)
{
    (void)decodeSpeaker(json);
    (void)decodeActionItem(json);
    (void)decodeTopic(json);
    (void)decodeSentiment(json);
    (void)decodeCallSummary(json);
    (void)decodeEnhancedSummary(json);
    const auto received = decodeTranscriptionReceived(json);
    check(received.ok() == received.error.isEmpty());
    if (received.ok())
        check(received.value->summary.processedSegments >= 0);
    const auto update = decodeSummaryPayload(json);
    check(update.ok() == json.isObject());
    if (update.ok() && update.value->processedSegments)
        check(*update.value->processedSegments >= 0);
}

void checkModel(const SummaryModel& model)
{
    const QList<SummaryHistoryEntry> history = model.history();
    check(history.size() <= SummaryModel::historyLimit);
    for (qsizetype i = 1; i < history.size(); ++i)
        check(!(history.at(i).summary == history.at(i - 1).summary));
    const CallSummary& summary = model.summary();
    check(model.hasSummary() || summary == CallSummary());
    QSet<QString> descriptions;
    for (const ActionItem& item : summary.actionItems) {
        check(!item.id.isEmpty());
        descriptions.insert(item.normalizedDescription());
    }
    check(descriptions.size() == summary.actionItems.size());
    // What the screens read.
    (void)model.speakers();
    (void)model.actionItems();
    (void)model.topics();
    (void)model.historyList();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // The decoders log every dropped entry; the messages are still built, not printed.
    static const bool quiet = [] {
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
        return true;
    }();
    (void)quiet;

    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const QJsonDocument document = QJsonDocument::fromJson(bytes);
    QJsonArray payloads;
    if (document.isArray())
        payloads = document.array();
    else
        payloads.append(document.isObject() ? QJsonValue(document.object()) : QJsonValue());

    SummaryModel::Options options;
    options.clock = [] { return QDateTime(QDate(2026, 3, 4), QTime(10, 0), Qt::UTC); };
    SummaryModel model(options);
    QList<QJsonObject> sent;
    model.setSummarySender([&sent](const QJsonObject& json) {
        sent.append(json);
        return true;
    });
    model.setCallStartedAt(QDateTime(QDate(2026, 3, 4), QTime(9, 0), Qt::UTC));
    model.setTranscriptProvider([&bytes] { return QString::fromUtf8(bytes); });

    decodeAll(document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object()));
    for (const auto& payload : payloads) {
        decodeAll(payload);
        const QJsonObject object = payload.toObject();
        model.handleSummary(object);
        // The same summary straight again adds nothing to the history.
        const qsizetype historySize = model.history().size();
        model.handleSummary(object);
        check(model.history().size() == historySize);
        model.handleProcessedTranscription(object);
        model.handleReceivedTranscription(object);
        checkModel(model);
    }
    model.pushTranscriptIfChanged();
    for (const QJsonObject& json : sent) {
        for (const auto& value : json)
            check(!value.isNull() && !value.isUndefined());
    }
    return 0;
}
