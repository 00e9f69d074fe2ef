// The live summary of the running call, as the call screens show it (summary,
// actions, topics and insights tabs), fed by the backend session's summary
// events; and the periodic push of the transcript digest the backend
// summarizes from.
//
// Merge rules, applied to every summary that arrives:
//  1. A summary with nothing to show (no overview, lists, sentiment,
//     duration or confidence) is ignored: the backend sends such before the
//     call has said anything, and it must not count as "a summary".
//  2. A summary for another call (a non-empty callId that differs from the
//     current non-empty one) drops the current summary and the history and
//     starts over. A summary without a callId belongs to the current call.
//  3. Every other summary enters the history, in order of arrival, unless its
//     contents equal those of the newest entry (the backend repeats itself
//     when nothing new was said). The history keeps the newest
//     `historyLimit` entries.
//  4. A summary covering fewer processedSegments than the current one is
//     stale (it overtook a newer one on the way) and does not change the
//     current summary. Equal counts, or a count missing on either side, are
//     not stale.
//  5. Otherwise it is merged into the current summary, field by field:
//       overview, duration:      replaced unless blank
//       keyPoints, speakers, topics: replaced unless empty (the summarizer
//                                sends them whole; an empty list is a
//                                summarizer that forgot them, not a call
//                                without them)
//       speakers:                one that has the name (any case) of a
//                                current one keeps its local id
//       actionItems:             accumulated over the call: an item whose
//                                normalized description is already listed
//                                keeps the first one's place, local id and
//                                wording, and takes the newer priority and
//                                the newer assignee and deadline where given;
//                                others are appended. Items never disappear
//                                while the call runs.
//       sentiment:               replaced unless it is the neutral stand-in
//       confidence:              replaced when given
//       processedSegments:       the highest seen
//       lastUpdated:             the time of this merge, even when nothing
//                                changed (the screens show how fresh it is)
//
// The periodic push: once started, every `pushInterval` the model sends a
// TranscriptionSummaryData {live transcript, now, seconds since the call
// started (when set), current overview (when any)} through the sender, but
// only when the transcript is not blank and differs from the last one the
// session accepted. A refused send is tried again on the next tick.
//
// Lives on the GUI thread, like everything that calls it.
#pragma once

#include "session/LiveSessionRecords.h"
#include "session/SummaryModelError.h"

#include <QDateTime>
#include <QJsonObject>
#include <QObject>
#include <QStringList>
#include <QTimer>
#include <QVariant>
#include <QVariantList>

#include <chrono>
#include <functional>
#include <optional>

class SummaryHistoryEntry
{
    Q_GADGET
    Q_PROPERTY(QDateTime receivedAt MEMBER receivedAt)
    Q_PROPERTY(QVariant processedSegments READ processedSegmentsValue)
    Q_PROPERTY(QString timestamp READ timestampText)
    Q_PROPERTY(bool stale MEMBER stale)
    Q_PROPERTY(QString overview READ overview)
    Q_PROPERTY(LiveSession::CallSummary summary MEMBER summary)

public:
    QDateTime receivedAt; // by the model's clock
    std::optional<int> processedSegments;
    std::optional<QString> timestamp; // the backend's, as written
    bool stale = false;               // arrived after a summary covering more
    LiveSession::CallSummary summary; // as received, not merged

    QVariant processedSegmentsValue() const;
    QString timestampText() const { return timestamp.value_or(QString()); }
    QString overview() const { return summary.overview; }
};

class SummaryModel : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool hasSummary READ hasSummary NOTIFY summaryChanged)
    Q_PROPERTY(QString overview READ overview NOTIFY summaryChanged)
    Q_PROPERTY(QStringList keyPoints READ keyPoints NOTIFY summaryChanged)
    Q_PROPERTY(QVariantList speakers READ speakers NOTIFY summaryChanged)
    Q_PROPERTY(QVariantList actionItems READ actionItems NOTIFY summaryChanged)
    Q_PROPERTY(QVariantList topics READ topics NOTIFY summaryChanged)
    Q_PROPERTY(QString sentimentOverall READ sentimentOverall NOTIFY summaryChanged)
    Q_PROPERTY(double sentimentScore READ sentimentScore NOTIFY summaryChanged)
    Q_PROPERTY(double confidence READ confidence NOTIFY summaryChanged)
    Q_PROPERTY(QString duration READ duration NOTIFY summaryChanged)
    Q_PROPERTY(QString callId READ callId NOTIFY summaryChanged)
    Q_PROPERTY(int processedSegments READ processedSegments NOTIFY summaryChanged)
    Q_PROPERTY(QDateTime lastUpdated READ lastUpdated NOTIFY summaryChanged)
    Q_PROPERTY(QVariantList history READ historyList NOTIFY historyChanged)
    Q_PROPERTY(QString lastError READ lastError NOTIFY lastErrorChanged)
    Q_PROPERTY(bool isPushing READ isPushing NOTIFY isPushingChanged)

public:
    using Clock = std::function<QDateTime()>;
    // Sends one digest upstream; false when the session refused it (not ready).
    using SummarySender = std::function<bool(const QJsonObject&)>;
    // The live transcript's text as it stands.
    using TranscriptProvider = std::function<QString()>;

    // Often enough that the summary follows the call, seldom enough that the
    // summarizer is not asked again for every sentence.
    static constexpr std::chrono::milliseconds summaryPushInterval = std::chrono::seconds(30);
    // An hour of summaries at one per push.
    static constexpr qsizetype historyLimit = 120;

    struct Options
    {
        Clock clock = [] { return QDateTime::currentDateTimeUtc(); };
        std::chrono::milliseconds pushInterval = summaryPushInterval;
    };

    explicit SummaryModel(QObject* parent = nullptr);
    SummaryModel(Options options, QObject* parent = nullptr);

    // "transcription" / "clientTranscriptionProcessed": merged when it carries
    // the summary so far under a "summary" object; otherwise nothing changes.
    void handleProcessedTranscription(const QJsonObject& payload);
    // "transcriptionReceived": a TranscriptionReceivedResponse. One that does
    // not decode sets the decoding error; one with success false sets the
    // invalid-response error; otherwise its summary is merged.
    void handleReceivedTranscription(const QJsonObject& payload);
    // "transcriptionSummary" / "accumulated_summary", nested or direct.
    void handleSummary(const QJsonObject& payload);

    void setSummarySender(SummarySender sender);
    void setTranscriptProvider(TranscriptProvider provider);
    // Invalid when unknown: the digest then leaves out the call's duration.
    void setCallStartedAt(const QDateTime& startedAt);

    // Start and stop the periodic push; the first push is one interval after start().
    void start();
    void stop();
    bool isPushing() const { return m_pushTimer.isActive(); }

    // One push now, by the rules of the periodic one; true when the session
    // took it. The timer calls this; so may the call's end, for a last digest.
    bool pushTranscriptIfChanged();

    // For the session: a failure the screens should show. The last error
    // stands until clear(), the next merged summary, or (a refused push only)
    // the next push the session takes.
    void reportError(const SummaryModelError& error);

    // For a new call: empties the summary, the history, the error, the call's
    // start and what was pushed. The sender, the transcript provider and the
    // push timer stay as they are.
    Q_INVOKABLE void clear();

    const LiveSession::CallSummary& summary() const { return m_summary; }
    QList<SummaryHistoryEntry> history() const { return m_history; }
    std::optional<SummaryModelError> error() const { return m_error; }

    bool hasSummary() const { return m_hasSummary; }
    QString overview() const { return m_summary.overview; }
    QStringList keyPoints() const { return m_summary.keyPoints; }
    QVariantList speakers() const { return m_summary.speakerList(); }
    QVariantList actionItems() const { return m_summary.actionItemList(); }
    QVariantList topics() const { return m_summary.topicList(); }
    QString sentimentOverall() const { return m_summary.sentiment.overallText(); }
    double sentimentScore() const { return m_summary.sentiment.score; }
    double confidence() const { return m_summary.confidenceValue(); }
    QString duration() const { return m_summary.duration; }
    QString callId() const { return m_callId; }
    int processedSegments() const { return m_processedSegments.value_or(0); }
    QDateTime lastUpdated() const { return m_lastUpdated; }
    QVariantList historyList() const;
    QString lastError() const { return m_error ? m_error->message() : QString(); }

Q_SIGNALS:
    void summaryChanged();
    void historyChanged();
    void lastErrorChanged();
    void isPushingChanged();

private:
    void apply(const LiveSession::SummaryUpdate& update);
    void addToHistory(const LiveSession::SummaryUpdate& update, bool stale);
    void merge(const LiveSession::CallSummary& incoming);
    void resetSummary();
    void setError(std::optional<SummaryModelError> error);

    const Clock m_clock;
    SummarySender m_sender;
    TranscriptProvider m_transcript;
    QTimer m_pushTimer;
    QDateTime m_callStartedAt;
    std::optional<QString> m_lastPushedTranscript;

    LiveSession::CallSummary m_summary;
    bool m_hasSummary = false;
    QString m_callId;
    std::optional<int> m_processedSegments;
    QDateTime m_lastUpdated;
    QList<SummaryHistoryEntry> m_history;
    std::optional<SummaryModelError> m_error;
};
