#include "session/TranscriptRelay.h"

#include "call/TranscriptionViewModel.h"
#include "session/SessionConnection.h"
#include "session/SessionPayload.h"
#include "session/SummaryModel.h"

using namespace Qt::StringLiterals;

TranscriptRelay::TranscriptRelay(SessionConnection& connection,
                                 TranscriptionViewModel* transcription, QObject* parent)
    : QObject(parent), m_connection(connection), m_transcription(transcription)
{
    const auto transcriptionHandler = [this](const QJsonArray& items) {
        handleTranscription(items);
    };
    const auto summaryHandler = [this](const QJsonArray& items) { handleSummary(items); };
    m_connection.addHandler(u"transcription"_s, transcriptionHandler);
    m_connection.addHandler(u"transcriptionReceived"_s, [this](const QJsonArray& items) {
        handleTranscriptionReceived(items);
    });
    m_connection.addHandler(u"transcriptionSummary"_s, summaryHandler);
    m_connection.addHandler(u"accumulated_summary"_s, summaryHandler);
    m_connection.addHandler(u"clientTranscriptionProcessed"_s, transcriptionHandler);
}

void TranscriptRelay::setSummaryModel(SummaryModel* model)
{
    if (model) {
        model->setSummarySender([guard = QPointer(this)](const QJsonObject& payload) {
            return guard && guard->sendTranscriptionSummary(payload);
        });
        SessionPayload::say(u"🔧 Setting up summary model socket listeners"_s);
    }
    m_summaryModel = model;
}

std::optional<QJsonObject> TranscriptRelay::readyPayload(const QJsonArray& items) const
{
    if (!m_connection.sessionReady()) {
        SessionPayload::warn(u"⚠️ Received transcription before session ready - ignoring"_s);
        return std::nullopt;
    }
    return SessionPayload::firstObject(items);
}

void TranscriptRelay::handleTranscription(const QJsonArray& items)
{
    const std::optional<QJsonObject> data = readyPayload(items);
    if (!data)
        return;
    if (m_transcription)
        m_transcription->addServerSegments(*data);
    if (m_summaryModel)
        m_summaryModel->handleProcessedTranscription(*data);
}

void TranscriptRelay::handleTranscriptionReceived(const QJsonArray& items)
{
    const std::optional<QJsonObject> data = readyPayload(items);
    if (data && m_summaryModel)
        m_summaryModel->handleReceivedTranscription(*data);
}

void TranscriptRelay::handleSummary(const QJsonArray& items)
{
    const std::optional<QJsonObject> data = readyPayload(items);
    if (data && m_summaryModel)
        m_summaryModel->handleSummary(*data);
}

bool TranscriptRelay::sendClientTranscription(const QString& text, bool isPartial,
                                              const std::optional<QString>& speaker,
                                              std::optional<double> confidence,
                                              const std::optional<QJsonArray>& segments)
{
    QJsonObject payload{
        {u"text"_s, text},
        {u"timestamp"_s, SessionPayload::timestampNow()},
        {u"isPartial"_s, isPartial},
    };
    if (speaker)
        payload.insert(u"speaker"_s, *speaker);
    if (confidence)
        payload.insert(u"confidence"_s, *confidence);
    if (segments)
        payload.insert(u"segments"_s, *segments);
    return m_connection.emitWhenReady(
        u"clientTranscription"_s, payload,
        u"📝 Sending client transcription (%1 chars): "_s.arg(text.size()) + text,
        u"⚠️ Cannot send transcription - session not ready"_s);
}

bool TranscriptRelay::sendTranscriptionSummary(const QJsonObject& payload)
{
    return m_connection.emitWhenReady(
        u"transcriptionSummary"_s, payload, u"📡 Emitting transcription summary via websocket"_s,
        u"⚠️ Cannot send transcription summary - session not ready"_s);
}
