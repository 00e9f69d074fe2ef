// The transcript and summary traffic of the backend session: recognized text
// and the live summary go up ("clientTranscription", "transcriptionSummary");
// the backend's processed transcription, its received-transcription records and
// its summaries come down to the live transcript and the summary model.
#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QObject>
#include <QPointer>
#include <QString>

#include <optional>

class SessionConnection;
class SummaryModel;
class TranscriptionViewModel;

// Lives on the GUI thread with its connection, which must outlive it.
class TranscriptRelay : public QObject
{
    Q_OBJECT

public:
    TranscriptRelay(SessionConnection& connection, TranscriptionViewModel* transcription,
                    QObject* parent = nullptr);

    // The summary model sends its summary through this relay and is fed from
    // then on by the backend's transcription and summary events.
    void setSummaryModel(SummaryModel* model);

    // Refused (false, with its warning) until the session is ready; optional
    // values are left out of the payload when absent.
    bool sendClientTranscription(const QString& text, bool isPartial,
                                 const std::optional<QString>& speaker,
                                 std::optional<double> confidence,
                                 const std::optional<QJsonArray>& segments);
    bool sendTranscriptionSummary(const QJsonObject& payload);

private:
    // The first item of a transcription or summary event, once the session is ready.
    std::optional<QJsonObject> readyPayload(const QJsonArray& items) const;
    void handleTranscription(const QJsonArray& items);
    void handleTranscriptionReceived(const QJsonArray& items);
    void handleSummary(const QJsonArray& items);

    SessionConnection& m_connection;
    QPointer<TranscriptionViewModel> m_transcription;
    QPointer<SummaryModel> m_summaryModel;
};
