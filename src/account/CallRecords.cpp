#include "account/CallRecords.h"

#include "core/JsonValues.h"

#include <QJsonDocument>
#include <QRegularExpression>

#include <cmath>
#include <limits>

using namespace Qt::StringLiterals;

namespace {

QString keyPath(const QString& path, const QString& key)
{
    return path.isEmpty() ? key : path + u'.' + key;
}

QString indexPath(const QString& path, qsizetype index)
{
    return path + u'[' + QString::number(index) + u']';
}

// Collects the first error only: once a document is known to be unusable, the
// rest of it is not worth reading, and the first problem is the one to report.
class Decoder
{
public:
    bool failed() const { return m_error.has_value(); }
    DecodingError error() const { return m_error.value_or(DecodingError{}); }

    void keyNotFound(const QString& key, const QString& path)
    {
        fail({DecodingError::Kind::KeyNotFound,
              key,
              {},
              path,
              u"No value associated with key \"%1\" at \"%2\"."_s.arg(key, path)});
    }

    void typeMismatch(const QString& type, const QString& path, const QJsonValue& found)
    {
        fail({DecodingError::Kind::TypeMismatch,
              {},
              type,
              path,
              u"Expected to decode %1 but found %2 instead."_s.arg(type, jsonTypeName(found))});
    }

    void valueNotFound(const QString& type, const QString& path)
    {
        fail({DecodingError::Kind::ValueNotFound,
              {},
              type,
              path,
              u"Expected %1 value but found null instead."_s.arg(type)});
    }

    void corrupted(const QString& path, const QString& description)
    {
        fail({DecodingError::Kind::DataCorrupted, {}, {}, path, description});
    }

private:
    void fail(DecodingError error)
    {
        if (!m_error) {
            m_error = std::move(error);
        }
    }

    std::optional<DecodingError> m_error;
};

// How each type is read from a non-null JSON value and written back. Reading
// a null is handled once, in readValue().
template <typename T> struct Codec;

template <typename T> T readValue(Decoder& decoder, const QJsonValue& value, const QString& path)
{
    if (decoder.failed()) {
        return T{};
    }
    if (value.isNull()) {
        decoder.valueNotFound(Codec<T>::name(), path);
        return T{};
    }
    return Codec<T>::decode(decoder, value, path);
}

template <typename T>
T readRequired(Decoder& decoder, const QJsonObject& object, const QString& path, const QString& key)
{
    if (decoder.failed()) {
        return T{};
    }
    const auto found = object.constFind(key);
    if (found == object.constEnd()) {
        decoder.keyNotFound(key, path);
        return T{};
    }
    return readValue<T>(decoder, *found, keyPath(path, key));
}

// A key that is missing or null is simply absent.
template <typename T>
std::optional<T> readOptional(Decoder& decoder, const QJsonObject& object, const QString& path,
                              const QString& key)
{
    const QJsonValue value = object.value(key);
    if (decoder.failed() || value.isUndefined() || value.isNull()) {
        return std::nullopt;
    }
    T result = readValue<T>(decoder, value, keyPath(path, key));
    if (decoder.failed()) {
        return std::nullopt;
    }
    return result;
}

// A value of one JSON type, anything else being a mismatch; `convert` makes
// the record's value of it.
template <typename T, bool (QJsonValue::*accepts)() const> struct TypedCodec
{
    static T decode(Decoder& decoder, const QJsonValue& value, const QString& path)
    {
        if (!(value.*accepts)()) {
            decoder.typeMismatch(Codec<T>::name(), path, value);
            return T{};
        }
        return Codec<T>::convert(decoder, value, path);
    }
    static QJsonValue encode(const T& value) { return value; }
};

template <> struct Codec<QString> : TypedCodec<QString, &QJsonValue::isString>
{
    static QString name() { return u"String"_s; }
    static QString convert(Decoder&, const QJsonValue& value, const QString&)
    {
        return value.toString();
    }
};

template <> struct Codec<double> : TypedCodec<double, &QJsonValue::isDouble>
{
    static QString name() { return u"Double"_s; }
    static double convert(Decoder&, const QJsonValue& value, const QString&)
    {
        return value.toDouble();
    }
};

template <> struct Codec<int> : TypedCodec<int, &QJsonValue::isDouble>
{
    static QString name() { return u"Int"_s; }
    static int convert(Decoder& decoder, const QJsonValue& value, const QString& path)
    {
        // A count of 2.5 is a number, so not a type mismatch, but no Int either.
        const double number = value.toDouble();
        if (std::trunc(number) != number || number < std::numeric_limits<int>::min() ||
            number > std::numeric_limits<int>::max()) {
            decoder.corrupted(path, u"Parsed JSON number <%1> does not fit in Int."_s.arg(number));
            return 0;
        }
        return static_cast<int>(number);
    }
};

template <> struct Codec<bool> : TypedCodec<bool, &QJsonValue::isBool>
{
    static QString name() { return u"Bool"_s; }
    static bool convert(Decoder&, const QJsonValue& value, const QString&)
    {
        return value.toBool();
    }
};

template <> struct Codec<RecordDate> : TypedCodec<RecordDate, &QJsonValue::isString>
{
    static QString name() { return u"Date"_s; }
    static RecordDate convert(Decoder& decoder, const QJsonValue& value, const QString& path)
    {
        std::optional<RecordDate> date = RecordDate::parse(value.toString());
        if (!date) {
            decoder.corrupted(path, u"Date string \"%1\" does not match any expected format."_s.arg(
                                        value.toString()));
            return {};
        }
        return *date;
    }
    static QJsonValue encode(const RecordDate& value) { return value.text; }
};

// Whatever JSON arrived, kept as it is.
template <> struct Codec<QJsonValue>
{
    static QString name() { return u"JSON"_s; }
    static QJsonValue decode(Decoder&, const QJsonValue& value, const QString&) { return value; }
    static QJsonValue encode(const QJsonValue& value) { return value; }
};

template <typename T> struct Codec<QList<T>>
{
    static QString name() { return u"Array"_s; }
    static QList<T> decode(Decoder& decoder, const QJsonValue& value, const QString& path)
    {
        if (!value.isArray()) {
            decoder.typeMismatch(name(), path, value);
            return {};
        }
        const QJsonArray array = value.toArray();
        QList<T> result;
        result.reserve(array.size());
        for (qsizetype i = 0; i < array.size() && !decoder.failed(); ++i) {
            result.append(readValue<T>(decoder, array.at(i), indexPath(path, i)));
        }
        return result;
    }
    static QJsonValue encode(const QList<T>& values)
    {
        QJsonArray array;
        for (const T& value : values) {
            array.append(Codec<T>::encode(value));
        }
        return array;
    }
};

template <> struct Codec<UserCallData::CallDuration>
{
    static QString name() { return u"String or Double"_s; }
    static UserCallData::CallDuration decode(Decoder& decoder, const QJsonValue& value,
                                             const QString& path)
    {
        if (value.isString()) {
            return value.toString();
        }
        if (value.isDouble()) {
            return value.toDouble();
        }
        decoder.typeMismatch(name(), path, value);
        return {};
    }
    static QJsonValue encode(const UserCallData::CallDuration& value)
    {
        return std::visit([](const auto& v) { return QJsonValue(v); }, value);
    }
};

// Reads a JSON object's keys into a record's fields, in the record's order:
// plain fields are required, std::optional ones may be missing or null.
class FieldReader
{
public:
    FieldReader(Decoder& decoder, QJsonObject object, QString path)
        : m_decoder(decoder), m_object(std::move(object)), m_path(std::move(path))
    {}

    template <typename T> void operator()(const QString& key, T& field)
    {
        field = readRequired<T>(m_decoder, m_object, m_path, key);
    }
    template <typename T> void operator()(const QString& key, std::optional<T>& field)
    {
        field = readOptional<T>(m_decoder, m_object, m_path, key);
    }
    void operator()(const QString& key, QJsonValue& field)
    {
        field = readOptional<QJsonValue>(m_decoder, m_object, m_path, key)
                    .value_or(QJsonValue(QJsonValue::Undefined));
    }
    // Required on the wire, although the record may lack it when it came another way.
    template <typename T> void mandatory(const QString& key, std::optional<T>& field)
    {
        field = readRequired<T>(m_decoder, m_object, m_path, key);
    }

private:
    Decoder& m_decoder;
    const QJsonObject m_object;
    const QString m_path;
};

// Writes a record's fields as a JSON object; absent ones are left out.
class FieldWriter
{
public:
    QJsonObject object;

    template <typename T> void operator()(const QString& key, const T& field)
    {
        object.insert(key, Codec<T>::encode(field));
    }
    template <typename T> void operator()(const QString& key, const std::optional<T>& field)
    {
        if (field) {
            object.insert(key, Codec<T>::encode(*field));
        }
    }
    void operator()(const QString& key, const QJsonValue& field)
    {
        if (!field.isUndefined() && !field.isNull()) {
            object.insert(key, field);
        }
    }
    template <typename T> void mandatory(const QString& key, const std::optional<T>& field)
    {
        (*this)(key, field);
    }
};

// A record is a JSON object whose keys its Codec's fields() lists; anything
// else is a mismatch named after the record.
template <typename T> struct RecordCodec
{
    static T decode(Decoder& decoder, const QJsonValue& value, const QString& path)
    {
        T record;
        if (!value.isObject()) {
            decoder.typeMismatch(Codec<T>::name(), path, value);
            return record;
        }
        FieldReader reader(decoder, value.toObject(), path);
        Codec<T>::fields(reader, record);
        return record;
    }
    static QJsonValue encode(const T& record)
    {
        FieldWriter writer;
        Codec<T>::fields(writer, record);
        return writer.object;
    }
};

template <> struct Codec<CallTranscriptionSegment> : RecordCodec<CallTranscriptionSegment>
{
    static QString name() { return u"CallTranscriptionSegment"_s; }
    static void fields(auto& f, auto& r)
    {
        f(u"start_time"_s, r.startTime);
        f(u"end_time"_s, r.endTime);
        f(u"speaker"_s, r.speaker);
        f(u"text"_s, r.text);
    }
};

template <> struct Codec<CallTranscriptionData> : RecordCodec<CallTranscriptionData>
{
    static QString name() { return u"CallTranscriptionData"_s; }
    static void fields(auto& f, auto& r)
    {
        f(u"id"_s, r.id);
        f(u"text"_s, r.text);
        f(u"duration"_s, r.duration);
        f(u"confidence"_s, r.confidence);
        f(u"segments"_s, r.segments);
        f(u"created_at"_s, r.createdAt);
    }
};

template <> struct Codec<Priority>
{
    static QString name() { return u"Priority"_s; }
    static Priority decode(Decoder& d, const QJsonValue& value, const QString& path)
    {
        const QString text = Codec<QString>::decode(d, value, path);
        const std::optional<Priority> priority = priorityFromName(text);
        if (!d.failed() && !priority) {
            d.corrupted(path, u"Cannot initialize Priority from invalid value \"%1\"."_s.arg(text));
        }
        return priority.value_or(Priority::Medium);
    }
    static QJsonValue encode(Priority priority) { return priorityName(priority); }
};

template <> struct Codec<ActionItem> : RecordCodec<ActionItem>
{
    static QString name() { return u"ActionItem"_s; }
    static void fields(auto& f, auto& r)
    {
        f(u"description"_s, r.description);
        f(u"assignee"_s, r.assignee);
        f.mandatory(u"priority"_s, r.priority);
        f(u"deadline"_s, r.deadline);
    }
    static ActionItem decode(Decoder& d, const QJsonValue& value, const QString& path)
    {
        if (!value.isString()) {
            return RecordCodec::decode(d, value, path);
        }
        ActionItem item;
        item.description = value.toString();
        item.isPlainText = true;
        return item;
    }
    static QJsonValue encode(const ActionItem& item)
    {
        return item.isPlainText ? QJsonValue(item.description) : RecordCodec::encode(item);
    }
};

// Named as the history has always named them in its decoding errors.
template <> struct Codec<Topic> : RecordCodec<Topic>
{
    static QString name() { return u"SummaryTopic"_s; }
    static void fields(auto& f, auto& r)
    {
        f(u"topic"_s, r.topic);
        f(u"importance"_s, r.importance);
        f(u"mentions"_s, r.mentions);
    }
};

template <> struct Codec<Speaker> : RecordCodec<Speaker>
{
    static QString name() { return u"SummarySpeaker"_s; }
    static void fields(auto& f, auto& r)
    {
        f(u"name"_s, r.name);
        f(u"role"_s, r.role);
        f(u"mainContributions"_s, r.mainContributions);
    }
};

template <> struct Codec<CallSummaryData> : RecordCodec<CallSummaryData>
{
    static QString name() { return u"CallSummaryData"_s; }
    static void fields(auto& f, auto& r)
    {
        f(u"content"_s, r.content);
        f(u"key_points"_s, r.keyPoints);
        f(u"action_items"_s, r.actionItems);
        f(u"sentiment"_s, r.sentiment);
        f(u"created_at"_s, r.createdAt);
        f(u"sentiment_score"_s, r.sentimentScore);
        f(u"topics"_s, r.topics);
        f(u"speakers"_s, r.speakers);
    }
};

template <> struct Codec<CallMessageMetadata> : RecordCodec<CallMessageMetadata>
{
    static QString name() { return u"CallMessageMetadata"_s; }
    static void fields(auto& f, auto& r)
    {
        f(u"processing_time"_s, r.processingTime);
        f(u"type"_s, r.type);
    }
};

template <> struct Codec<CallConversationMessage> : RecordCodec<CallConversationMessage>
{
    static QString name() { return u"CallConversationMessage"_s; }
    static void fields(auto& f, auto& r)
    {
        f(u"id"_s, r.id);
        f(u"content"_s, r.content);
        f(u"timestamp"_s, r.timestamp);
        f(u"role"_s, r.role);
        f(u"tool_calls"_s, r.toolCalls);
        f(u"metadata"_s, r.metadata);
    }
};

template <> struct Codec<UserCallData> : RecordCodec<UserCallData>
{
    static QString name() { return u"UserCallData"_s; }
    static void fields(auto& f, auto& r)
    {
        f(u"id"_s, r.id);
        f(u"user_id"_s, r.userId);
        f(u"direction"_s, r.direction);
        f(u"status"_s, r.status);
        f(u"created_at"_s, r.createdAt);
        f(u"updated_at"_s, r.updatedAt);
        f(u"last_saved"_s, r.lastSaved);
        f(u"transcription"_s, r.transcription);
        f(u"summary"_s, r.summary);
        f(u"messages"_s, r.messages);
        f(u"message_count"_s, r.messageCount);
        f(u"decryption_error"_s, r.decryptionError);
        f(u"duration_seconds"_s, r.durationSeconds);
        f(u"call_duration"_s, r.callDuration);
    }
};

template <> struct Codec<CallHistoryResponse> : RecordCodec<CallHistoryResponse>
{
    static QString name() { return u"CallHistoryResponse"_s; }
    static void fields(auto& f, auto& r)
    {
        f(u"success"_s, r.success);
        f(u"data"_s, r.data);
        f(u"count"_s, r.count);
        f(u"error"_s, r.error);
    }
};

template <typename T> Decoded<T> decodeTop(const QJsonValue& value)
{
    Decoder decoder;
    T result = readValue<T>(decoder, value, QString());
    if (decoder.failed()) {
        return {std::nullopt, decoder.error()};
    }
    return {std::move(result), {}};
}

// "m:ss" or "h:mm:ss"; the leading part may have any number of digits.
std::optional<double> secondsFromClockText(const QString& text)
{
    static const QRegularExpression pattern(
        u"^(?:(\\d+):([0-5]\\d)|(\\d+):([0-5]\\d):([0-5]\\d))$"_s);
    const QRegularExpressionMatch match = pattern.match(text.trimmed());
    if (!match.hasMatch()) {
        return std::nullopt;
    }
    if (match.hasCaptured(1)) {
        return match.captured(1).toDouble() * 60 + match.captured(2).toDouble();
    }
    return match.captured(3).toDouble() * 3600 + match.captured(4).toDouble() * 60 +
           match.captured(5).toDouble();
}

template <typename T> QVariant variantOf(const std::optional<T>& value)
{
    return value ? QVariant::fromValue(*value) : QVariant();
}

} // namespace

std::optional<RecordDate> RecordDate::parse(const QString& text)
{
    // PCRE's \d without Unicode properties matches ASCII digits only, so no
    // other script's digits slip into a date.
    static const QRegularExpression pattern(
        u"^(\\d{4})-(\\d{2})-(\\d{2})T(\\d{2}):(\\d{2}):(\\d{2})(?:\\.(\\d{6}|\\d{3}))?"
        "(?:Z|([+-])(\\d{2}):(\\d{2}))$"_s);
    const QRegularExpressionMatch match = pattern.match(text);
    if (!match.hasMatch()) {
        return std::nullopt;
    }
    const auto number = [&](int group) { return match.captured(group).toInt(); };
    const QDate date(number(1), number(2), number(3));
    const int milliseconds = match.hasCaptured(7) ? match.captured(7).left(3).toInt() : 0;
    const QTime time(number(4), number(5), number(6), milliseconds);
    if (!date.isValid() || !time.isValid()) {
        return std::nullopt;
    }
    qint64 offsetSeconds = 0;
    if (match.hasCaptured(8)) {
        if (number(9) > 23 || number(10) > 59) {
            return std::nullopt;
        }
        offsetSeconds =
            (number(9) * 3600 + number(10) * 60) * (match.captured(8) == u"-"_s ? -1 : 1);
    }
    return RecordDate{QDateTime(date, time, Qt::UTC).addSecs(-offsetSeconds), text};
}

RecordDate RecordDate::fromMoment(const QDateTime& moment)
{
    const QDateTime utc = moment.toUTC();
    return RecordDate{utc, utc.toString(Qt::ISODateWithMs)};
}

QString ActionItem::priorityText() const
{
    return priority ? priorityName(*priority) : QString();
}

QVariant CallSummaryData::sentimentScoreValue() const
{
    return variantOf(sentimentScore);
}

QVariant CallConversationMessage::toolCallsValue() const
{
    return toolCalls.isUndefined() ? QVariant() : toolCalls.toVariant();
}

QVariant CallConversationMessage::metadataValue() const
{
    return variantOf(metadata);
}

std::optional<double> UserCallData::durationInSeconds() const
{
    if (durationSeconds) {
        return durationSeconds;
    }
    if (!callDuration) {
        return std::nullopt;
    }
    if (const double* seconds = std::get_if<double>(&*callDuration)) {
        return *seconds;
    }
    return secondsFromClockText(std::get<QString>(*callDuration));
}

QVariant UserCallData::transcriptionValue() const
{
    return variantOf(transcription);
}

QVariant UserCallData::summaryValue() const
{
    return variantOf(summary);
}

QVariant UserCallData::messageCountValue() const
{
    return variantOf(messageCount);
}

QVariant UserCallData::durationSecondsValue() const
{
    return variantOf(durationSeconds);
}

QVariant UserCallData::callDurationValue() const
{
    if (!callDuration) {
        return {};
    }
    return std::visit([](const auto& v) { return QVariant::fromValue(v); }, *callDuration);
}

QString DecodingError::kindName() const
{
    switch (kind) {
    case Kind::KeyNotFound:
        return u"key_not_found"_s;
    case Kind::TypeMismatch:
        return u"type_mismatch"_s;
    case Kind::ValueNotFound:
        return u"value_not_found"_s;
    case Kind::DataCorrupted:
        return u"data_corrupted"_s;
    case Kind::Unknown:
        break;
    }
    return u"unknown"_s;
}

namespace CallRecords {

Decoded<CallHistoryResponse> decodeResponse(const QByteArray& json)
{
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(json, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        DecodingError error;
        error.kind = DecodingError::Kind::DataCorrupted;
        error.description = u"The given data was not valid JSON: %1 at offset %2."_s.arg(
            parseError.errorString(), QString::number(parseError.offset));
        return {std::nullopt, error};
    }
    const QJsonValue root =
        document.isObject() ? QJsonValue(document.object()) : QJsonValue(document.array());
    return decodeTop<CallHistoryResponse>(root);
}

Decoded<QList<UserCallData>> decodeCalls(const QJsonValue& json)
{
    return decodeTop<QList<UserCallData>>(json);
}

QJsonObject encode(const CallHistoryResponse& response)
{
    return Codec<CallHistoryResponse>::encode(response).toObject();
}

QJsonArray encodeCalls(const QList<UserCallData>& calls)
{
    return Codec<QList<UserCallData>>::encode(calls).toArray();
}

} // namespace CallRecords
