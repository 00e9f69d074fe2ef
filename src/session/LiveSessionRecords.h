// The live summary as it travels on the backend event socket while a call
// runs: what the summarizer sends down (camelCase JSON), and the transcript
// digest the client sends up.
//
// The summary comes from a language model behind the backend, so its content
// is read forgivingly and its envelope strictly:
//  - The envelopes (TranscriptionReceivedResponse, EnhancedSummaryResponse)
//    need every key with its type; anything else is an error naming the key.
//    An envelope that cannot be trusted says nothing about which call or how
//    far the summary got, and the model would merge it wrongly.
//  - A CallSummary never fails once it is an object. A field that is missing,
//    null or of another type is treated as absent: "" for texts, an empty
//    list, no confidence, and the neutral sentiment. Numbers may be written
//    as integers or not. Unknown keys are ignored.
//  - A malformed entry of a list is dropped alone and the well-formed ones
//    are kept, so one broken topic does not empty the chart. Every dropped
//    entry is reported in the log with the entry itself.
//      topics:      not an object, or "topic" (text), "importance" (number) or
//                   "mentions" (whole number) missing or of another type
//      speakers:    not an object, or no non-blank "name"
//      actionItems: not an object nor text, or no non-blank "description"
//      keyPoints, mainContributions: entries that are not non-blank text
//  - An action item given as bare text is kept with medium priority (older
//    summarizer prompts list them so).
//  - An unknown priority ("urgent", "") is medium: the item is still a task
//    worth showing, and medium claims the least. Names are read regardless
//    of case and surrounding blanks.
//  - A blank assignee, deadline or role is absent.
//  - A sentiment may be an object {overall, score} or a bare overall text;
//    an unknown overall, or none, is neutral with score 0.
//
// Each Speaker and ActionItem has a local id made fresh whenever the record
// is created (so each decoding gives new ids); it is never on the wire. It
// only keeps a list row stable, so equality of records compares their
// contents and ignores it.
//
// Speaker, Topic and Priority are the ones the call history uses too (the
// keys are the same); the action item is the live session's own, see
// ActionItem below.
#pragma once

#include "account/SummaryRecords.h"

#include <QDateTime>
#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QMetaType>
#include <QString>
#include <QStringList>
#include <QVariantList>

#include <optional>

namespace LiveSession {

using ::newLocalId;
using ::Priority;
using ::priorityName;
using ::Speaker;
using ::Topic;

enum class OverallSentiment
{
    Positive,
    Neutral,
    Negative
};

// "positive", "neutral", "negative"
QString sentimentName(OverallSentiment sentiment);
std::optional<OverallSentiment> sentimentFromName(const QString& name);

// An AI-extracted task. Not the history's ActionItem, although the keys are
// the same: this one always has a priority (medium when the summarizer gave
// none or an unknown one, or wrote the task as bare text) and a local id for
// its list row, where the history keeps an item as it was stored so that its
// cache gives back what arrived.
class ActionItem
{
    Q_GADGET
    Q_PROPERTY(QString id MEMBER id)
    Q_PROPERTY(QString description MEMBER description)
    Q_PROPERTY(QString assignee READ assigneeText)
    Q_PROPERTY(QString priority READ priorityText)
    Q_PROPERTY(QString deadline READ deadlineText)

public:
    QString id = newLocalId();
    QString description;
    std::optional<QString> assignee;
    Priority priority = Priority::Medium;
    std::optional<QString> deadline; // as the summarizer wrote it, not a date

    QString assigneeText() const { return assignee.value_or(QString()); }
    QString priorityText() const { return priorityName(priority); }
    QString deadlineText() const { return deadline.value_or(QString()); }

    // The description as compared to find the same task worded again: case
    // folded, blanks collapsed, trailing punctuation removed.
    QString normalizedDescription() const;

    friend bool operator==(const ActionItem& a, const ActionItem& b)
    {
        return a.description == b.description && a.assignee == b.assignee &&
               a.priority == b.priority && a.deadline == b.deadline;
    }
};

class Sentiment
{
    Q_GADGET
    Q_PROPERTY(QString overall READ overallText)
    Q_PROPERTY(double score MEMBER score)

public:
    OverallSentiment overall = OverallSentiment::Neutral;
    double score = 0.0;

    QString overallText() const { return sentimentName(overall); }

    friend bool operator==(const Sentiment&, const Sentiment&) = default;
};

class CallSummary
{
    Q_GADGET
    Q_PROPERTY(QString overview MEMBER overview)
    Q_PROPERTY(QStringList keyPoints MEMBER keyPoints)
    Q_PROPERTY(QVariantList speakers READ speakerList)
    Q_PROPERTY(QVariantList actionItems READ actionItemList)
    Q_PROPERTY(QVariantList topics READ topicList)
    Q_PROPERTY(LiveSession::Sentiment sentiment MEMBER sentiment)
    Q_PROPERTY(QString duration MEMBER duration)
    Q_PROPERTY(double confidence READ confidenceValue)

public:
    QString overview;
    QStringList keyPoints;
    QList<Speaker> speakers;
    QList<ActionItem> actionItems;
    QList<Topic> topics;
    Sentiment sentiment;
    // Not on the wire: true while `sentiment` is the neutral stand-in for one
    // that could not be read, so that it never replaces a real one.
    bool sentimentIsDefault = true;
    QString duration; // display text ("12:34")
    std::optional<double> confidence;

    QVariantList speakerList() const;
    QVariantList actionItemList() const;
    QVariantList topicList() const;
    double confidenceValue() const { return confidence.value_or(0.0); }

    // Nothing a screen could show.
    bool isEmpty() const;

    friend bool operator==(const CallSummary&, const CallSummary&) = default;
};

class EnhancedSummaryResponse
{
    Q_GADGET
    Q_PROPERTY(QString callId MEMBER callId)
    Q_PROPERTY(LiveSession::CallSummary summary MEMBER summary)
    Q_PROPERTY(QString timestamp MEMBER timestamp)
    Q_PROPERTY(int processedSegments MEMBER processedSegments)

public:
    QString callId;
    CallSummary summary;
    QString timestamp; // ISO 8601, as the backend wrote it
    int processedSegments = 0;

    friend bool operator==(const EnhancedSummaryResponse&,
                           const EnhancedSummaryResponse&) = default;
};

// The backend's answer to a transcript digest.
class TranscriptionReceivedResponse
{
    Q_GADGET
    Q_PROPERTY(bool success MEMBER success)
    Q_PROPERTY(QString timestamp MEMBER timestamp)
    Q_PROPERTY(bool processed MEMBER processed)
    Q_PROPERTY(LiveSession::EnhancedSummaryResponse summary MEMBER summary)

public:
    bool success = false;
    QString timestamp; // ISO 8601, as the backend wrote it
    bool processed = false;
    EnhancedSummaryResponse summary;

    friend bool operator==(const TranscriptionReceivedResponse&,
                           const TranscriptionReceivedResponse&) = default;
};

// What the client pushes up for the backend to summarize.
struct TranscriptionSummaryData
{
    QString transcriptionText;
    QDateTime timestamp;             // written in UTC, with milliseconds and "Z"
    std::optional<int> callDuration; // seconds since the call started
    std::optional<QString> summary;  // the overview shown so far

    // Absent optional keys are left out, never written as null.
    QJsonObject toJson() const;

    friend bool operator==(const TranscriptionSummaryData&,
                           const TranscriptionSummaryData&) = default;
};

// What one summary event carries, whichever shape it came in: the envelope
// keys are optional here because direct summaries often lack them.
struct SummaryUpdate
{
    CallSummary summary;
    std::optional<QString> callId;
    std::optional<int> processedSegments;
    std::optional<QString> timestamp;

    static SummaryUpdate from(const EnhancedSummaryResponse& response);
};

template <typename T> struct Decoded
{
    std::optional<T> value;
    QString error; // why there is no value, for the log

    bool ok() const { return value.has_value(); }
};

// The list entries on their own. Each reports what is wrong with an object
// it is given ("Speaker missing name: …", "❌ Action item missing
// description: …", "❌ Topic missing '…' field: …" once per field) and a
// good topic ("✅ Successfully parsed topic: …"); the list readers of
// decodeCallSummary() report the entries that are not objects, with their index.
Decoded<Speaker> decodeSpeaker(const QJsonValue& json);
Decoded<ActionItem> decodeActionItem(const QJsonValue& json); // an object or bare text
Decoded<Topic> decodeTopic(const QJsonValue& json);
// Nothing when no sentiment can be read from `json`.
std::optional<Sentiment> decodeSentiment(const QJsonValue& json);

// Fails only when `json` is not an object.
Decoded<CallSummary> decodeCallSummary(const QJsonValue& json);
Decoded<EnhancedSummaryResponse> decodeEnhancedSummary(const QJsonValue& json);
Decoded<TranscriptionReceivedResponse> decodeTranscriptionReceived(const QJsonValue& json);

// A "transcriptionSummary" or "accumulated_summary" payload: the summary
// nested under a "summary" object next to the envelope keys, or the payload
// being the summary itself (with the envelope keys, when any, beside its
// own). Envelope keys of the wrong type are absent. Fails only when `json`
// is not an object.
Decoded<SummaryUpdate> decodeSummaryPayload(const QJsonValue& json);

} // namespace LiveSession
