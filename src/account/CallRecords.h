// The call-history records exactly as the backend sends them on GET /calls
// (snake_case JSON), decoded strictly at the edge with the first error reported
// by kind and coding path, and encoded back to the same JSON for the local cache.
#pragma once

#include "account/SummaryRecords.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <optional>
#include <variant>

// A moment as the backend wrote it. The text is kept because the wire allows
// microseconds, which QDateTime cannot hold, and the cache must give back
// exactly what arrived.
class RecordDate
{
    Q_GADGET
    Q_PROPERTY(QDateTime moment MEMBER moment)
    Q_PROPERTY(QString text MEMBER text)

public:
    QDateTime moment; // UTC, to the millisecond
    QString text;

    // Reads the three forms the backend uses, tried in order:
    // "yyyy-MM-dd'T'HH:mm:ss.SSSSSSXXXXX", "…ss.SSSXXXXX", "…ssXXXXX", where the
    // zone is "Z" or ±HH:MM. Anything else (no zone, other fraction lengths,
    // impossible dates) is nothing.
    static std::optional<RecordDate> parse(const QString& text);
    // A moment made here rather than received: written with milliseconds and "Z".
    static RecordDate fromMoment(const QDateTime& moment);

    bool operator==(const RecordDate&) const = default;
};

class CallTranscriptionSegment
{
    Q_GADGET
    Q_PROPERTY(double startTime MEMBER startTime)
    Q_PROPERTY(double endTime MEMBER endTime)
    Q_PROPERTY(QString speaker MEMBER speaker)
    Q_PROPERTY(QString text MEMBER text)

public:
    double startTime = 0.0; // seconds from the start of the call
    double endTime = 0.0;
    QString speaker;
    QString text;

    bool operator==(const CallTranscriptionSegment&) const = default;
};

class CallTranscriptionData
{
    Q_GADGET
    Q_PROPERTY(QString id MEMBER id)
    Q_PROPERTY(QString text MEMBER text)
    Q_PROPERTY(double duration MEMBER duration)
    Q_PROPERTY(double confidence MEMBER confidence)
    Q_PROPERTY(QList<CallTranscriptionSegment> segments MEMBER segments)
    Q_PROPERTY(RecordDate createdAt MEMBER createdAt)

public:
    QString id;
    QString text;
    double duration = 0.0; // seconds
    double confidence = 0.0;
    QList<CallTranscriptionSegment> segments;
    RecordDate createdAt;

    bool operator==(const CallTranscriptionData&) const = default;
};

// A task as the history keeps it. The live session has an action item of
// its own (LiveSession::ActionItem) although both come from the same
// summarizer under the same keys: the history keeps what the server stored,
// to write it back to the cache as it came — an item stored as bare text
// stays bare text, and an object without a priority is refused rather than
// given one — while the live one is a display record that always has a
// priority and a local id for its list row.
class ActionItem
{
    Q_GADGET
    Q_PROPERTY(QString description MEMBER description)
    Q_PROPERTY(QString assignee READ assigneeText)
    Q_PROPERTY(QString priority READ priorityText)
    Q_PROPERTY(QString deadline READ deadlineText)

public:
    using Priority = ::Priority;

    QString description;
    std::optional<QString> assignee;
    // Absent only for an item that arrived as plain text.
    std::optional<Priority> priority;
    std::optional<QString> deadline; // as written by the summarizer, not a date
    // Older summaries list items as bare strings; such an item is written back
    // as a bare string, since an object without "priority" would not decode.
    bool isPlainText = false;

    QString assigneeText() const { return assignee.value_or(QString()); }
    QString priorityText() const; // "high", "medium", "low" or empty
    QString deadlineText() const { return deadline.value_or(QString()); }

    bool operator==(const ActionItem&) const = default;
};

class CallSummaryData
{
    Q_GADGET
    Q_PROPERTY(QString content MEMBER content)
    Q_PROPERTY(QStringList keyPoints MEMBER keyPoints)
    Q_PROPERTY(QList<ActionItem> actionItems MEMBER actionItems)
    Q_PROPERTY(QString sentiment MEMBER sentiment)
    Q_PROPERTY(RecordDate createdAt MEMBER createdAt)
    Q_PROPERTY(QVariant sentimentScore READ sentimentScoreValue)
    Q_PROPERTY(QList<Topic> topics READ topicList)
    Q_PROPERTY(QList<Speaker> speakers READ speakerList)

public:
    QString content;
    QStringList keyPoints;
    QList<ActionItem> actionItems;
    QString sentiment;
    RecordDate createdAt;
    // Our backend adds these; other deployments may not.
    std::optional<double> sentimentScore; // −1…1
    std::optional<QList<Topic>> topics;
    std::optional<QList<Speaker>> speakers;

    QVariant sentimentScoreValue() const; // null when absent
    QList<Topic> topicList() const { return topics.value_or(QList<Topic>()); }
    QList<Speaker> speakerList() const { return speakers.value_or(QList<Speaker>()); }

    bool operator==(const CallSummaryData&) const = default;
};

class CallMessageMetadata
{
    Q_GADGET
    Q_PROPERTY(double processingTime MEMBER processingTime)
    Q_PROPERTY(QString type MEMBER type)

public:
    double processingTime = 0.0; // seconds
    QString type;

    bool operator==(const CallMessageMetadata&) const = default;
};

class CallConversationMessage
{
    Q_GADGET
    Q_PROPERTY(QString id MEMBER id)
    Q_PROPERTY(QString content MEMBER content)
    Q_PROPERTY(RecordDate timestamp MEMBER timestamp)
    Q_PROPERTY(QString role READ roleText)
    Q_PROPERTY(QVariant toolCalls READ toolCallsValue)
    Q_PROPERTY(QVariant metadata READ metadataValue)

public:
    QString id;
    QString content;
    RecordDate timestamp;
    std::optional<QString> role; // "user" or "assistant"; our backend sends it
    // Kept as the JSON that arrived: its shape belongs to the assistant's tools,
    // and the history only shows it. Undefined when absent.
    QJsonValue toolCalls = QJsonValue(QJsonValue::Undefined);
    std::optional<CallMessageMetadata> metadata;

    QString roleText() const { return role.value_or(QString()); }
    QVariant toolCallsValue() const;
    QVariant metadataValue() const;

    bool operator==(const CallConversationMessage&) const = default;
};

class UserCallData
{
    Q_GADGET
    Q_PROPERTY(QString id MEMBER id)
    Q_PROPERTY(QString userId MEMBER userId)
    Q_PROPERTY(QString direction MEMBER direction)
    Q_PROPERTY(QString status MEMBER status)
    Q_PROPERTY(RecordDate createdAt MEMBER createdAt)
    Q_PROPERTY(RecordDate updatedAt MEMBER updatedAt)
    Q_PROPERTY(RecordDate lastSaved MEMBER lastSaved)
    Q_PROPERTY(QVariant transcription READ transcriptionValue)
    Q_PROPERTY(QVariant summary READ summaryValue)
    Q_PROPERTY(QList<CallConversationMessage> messages READ messageList)
    Q_PROPERTY(QVariant messageCount READ messageCountValue)
    Q_PROPERTY(QString decryptionError READ decryptionErrorText)
    Q_PROPERTY(QVariant durationSeconds READ durationSecondsValue)
    Q_PROPERTY(QVariant callDuration READ callDurationValue)

public:
    // "call_duration" is display text ("12:05") from some writers and seconds from others.
    using CallDuration = std::variant<QString, double>;

    QString id;
    QString userId;
    QString direction; // "outbound" or "inbound"
    QString status;    // "completed", "active" or "failed"
    RecordDate createdAt;
    RecordDate updatedAt;
    RecordDate lastSaved;
    std::optional<CallTranscriptionData> transcription;
    std::optional<CallSummaryData> summary;
    std::optional<QList<CallConversationMessage>> messages;
    std::optional<int> messageCount;
    // Set by the server when it could not decrypt the stored contents; the
    // transcription, summary and messages are absent then.
    std::optional<QString> decryptionError;
    std::optional<double> durationSeconds;
    std::optional<CallDuration> callDuration;

    // The call's length in seconds from its own duration fields: "duration_seconds",
    // else a numeric "call_duration", else a "call_duration" text of the form
    // "m:ss" or "h:mm:ss". The transcription's length is not used: the list shows
    // the call's duration, and a sort by another number would look wrong there.
    std::optional<double> durationInSeconds() const;

    QVariant transcriptionValue() const;
    QVariant summaryValue() const;
    QList<CallConversationMessage> messageList() const
    {
        return messages.value_or(QList<CallConversationMessage>());
    }
    QVariant messageCountValue() const;
    QString decryptionErrorText() const { return decryptionError.value_or(QString()); }
    QVariant durationSecondsValue() const;
    QVariant callDurationValue() const;

    bool operator==(const UserCallData&) const = default;
};

class CallHistoryResponse
{
    Q_GADGET
    Q_PROPERTY(bool success MEMBER success)
    Q_PROPERTY(QList<UserCallData> data MEMBER data)
    Q_PROPERTY(int count MEMBER count)
    Q_PROPERTY(QString error READ errorText)

public:
    bool success = false;
    QList<UserCallData> data;
    int count = 0;
    std::optional<QString> error;

    QString errorText() const { return error.value_or(QString()); }

    bool operator==(const CallHistoryResponse&) const = default;
};

// Why a document did not decode: the first problem met, in document order.
struct DecodingError
{
    enum class Kind
    {
        KeyNotFound,   // a required key is missing
        TypeMismatch,  // a value of another JSON type
        ValueNotFound, // a required value is null
        DataCorrupted, // the right type but an unusable value, or no JSON at all
        Unknown,
    };

    Kind kind = Kind::Unknown;
    QString key;          // the missing key (KeyNotFound)
    QString expectedType; // TypeMismatch, ValueNotFound: "String", "Int", "UserCallData", …
    // Where: "data[2].summary.key_points[0]"; for a missing key, the object
    // that lacks it. Empty at the top level.
    QString codingPath;
    QString description; // a sentence for logs

    // The analytics name: "key_not_found", "type_mismatch", "value_not_found",
    // "data_corrupted", "unknown".
    QString kindName() const;
};

template <typename T> struct Decoded
{
    std::optional<T> value;
    DecodingError error; // when there is no value

    bool ok() const { return value.has_value(); }
};

namespace CallRecords {

// A GET /calls body.
Decoded<CallHistoryResponse> decodeResponse(const QByteArray& json);
// A list of calls as the cache holds it (the "data" list on its own).
Decoded<QList<UserCallData>> decodeCalls(const QJsonValue& json);

QJsonObject encode(const CallHistoryResponse& response);
QJsonArray encodeCalls(const QList<UserCallData>& calls);

} // namespace CallRecords
