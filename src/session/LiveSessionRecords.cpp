#include "session/LiveSessionRecords.h"

#include "core/JsonValues.h"
#include "core/Logging.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <cmath>
#include <limits>

using namespace Qt::StringLiterals;

namespace LiveSession {

namespace {

bool isBlank(const QString& text)
{
    return text.trimmed().isEmpty();
}

// The summarizer's wording of a priority: any case, surrounding blanks ignored.
std::optional<Priority> priorityFromWording(const QString& name)
{
    return priorityFromName(name.trimmed().toCaseFolded());
}

// The lenient readers: a value of another type is no value.

std::optional<QString> textValue(const QJsonValue& value)
{
    return value.isString() ? std::optional<QString>(value.toString()) : std::nullopt;
}

std::optional<QString> nonBlankText(const QJsonValue& value)
{
    std::optional<QString> text = textValue(value);
    return text && !isBlank(*text) ? text : std::nullopt;
}

std::optional<double> numberValue(const QJsonValue& value)
{
    if (!value.isDouble()) {
        return std::nullopt;
    }
    const double number = value.toDouble();
    return std::isfinite(number) ? std::optional<double>(number) : std::nullopt;
}

// A count: whole, not negative, and small enough for an int.
std::optional<int> countValue(const QJsonValue& value)
{
    const std::optional<double> number = numberValue(value);
    if (!number || *number < 0 || *number != std::trunc(*number) ||
        *number > std::numeric_limits<int>::max()) {
        return std::nullopt;
    }
    return static_cast<int>(*number);
}

// Non-blank texts only; anything else in the list is skipped.
QStringList textList(const QJsonValue& value)
{
    QStringList result;
    const QJsonArray array = value.toArray();
    for (const auto& entry : array) {
        if (std::optional<QString> text = nonBlankText(entry)) {
            result.append(*text);
        }
    }
    return result;
}

// Reads a list of records, dropping the malformed entries one by one.
template <typename T>
QList<T> recordList(const QJsonObject& object, const QString& key, const QString& label,
                    Decoded<T> (*decode)(const QJsonValue&), bool acceptsText)
{
    QList<T> result;
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull()) {
        return result;
    }
    if (!value.isArray()) {
        qCWarning(lcSession).noquote() << u"❌ '"_s + key + u"' is not a list: "_s + jsonText(value);
        return result;
    }
    const QJsonArray array = value.toArray();
    for (qsizetype index = 0; index < array.size(); ++index) {
        const QJsonValue entry = array.at(index);
        if (!entry.isObject() && !(acceptsText && entry.isString())) {
            qCWarning(lcSession).noquote() << label + u" at index "_s + QString::number(index) +
                                                  u" is not a dictionary: "_s + jsonText(entry);
            continue;
        }
        if (Decoded<T> decoded = decode(entry); decoded.value) {
            result.append(std::move(*decoded.value));
        }
    }
    return result;
}

// The strict reader of an envelope: every key present, non-null and of its
// type. Keeps the first problem only; the rest would follow from it.
class EnvelopeReader
{
public:
    EnvelopeReader(QJsonObject object, QString path)
        : m_object(std::move(object)), m_path(std::move(path))
    {}

    bool failed() const { return m_error.has_value(); }
    QString error() const { return m_error.value_or(QString()); }

    QString text(const QString& key)
    {
        return read(key, u"a String"_s, &QJsonValue::isString).toString();
    }
    bool boolean(const QString& key)
    {
        return read(key, u"a Bool"_s, &QJsonValue::isBool).toBool();
    }
    QJsonObject object(const QString& key)
    {
        return read(key, u"an object"_s, &QJsonValue::isObject).toObject();
    }
    int count(const QString& key)
    {
        const QJsonValue value = read(key, u"a whole number"_s, &QJsonValue::isDouble);
        if (failed()) {
            return 0;
        }
        const std::optional<int> result = countValue(value);
        if (!result) {
            fail(u"\"%1\" is not a count of segments: %2"_s.arg(pathOf(key), jsonText(value)));
        }
        return result.value_or(0);
    }

    QString pathOf(const QString& key) const
    {
        return m_path.isEmpty() ? key : m_path + u'.' + key;
    }

private:
    QJsonValue read(const QString& key, const QString& expected,
                    bool (QJsonValue::*accepts)() const)
    {
        if (failed()) {
            return {};
        }
        const auto found = m_object.constFind(key);
        if (found == m_object.constEnd()) {
            fail(u"No value for key \"%1\""_s.arg(pathOf(key)));
            return {};
        }
        QJsonValue value = *found;
        if (!(value.*accepts)()) {
            fail(u"\"%1\" is %2, expected %3"_s.arg(pathOf(key), jsonTypeName(value), expected));
            return {};
        }
        return value;
    }

    void fail(const QString& error)
    {
        if (!m_error) {
            m_error = error;
        }
    }

    const QJsonObject m_object;
    const QString m_path;
    std::optional<QString> m_error;
};

Decoded<EnhancedSummaryResponse> decodeEnhancedSummaryAt(const QJsonValue& json,
                                                         const QString& path)
{
    if (!json.isObject()) {
        return {std::nullopt, u"\"%1\" is %2, expected an object"_s.arg(
                                  path.isEmpty() ? u"(top)"_s : path, jsonTypeName(json))};
    }
    EnvelopeReader reader(json.toObject(), path);
    EnhancedSummaryResponse response;
    response.callId = reader.text(u"callId"_s);
    const QJsonObject summary = reader.object(u"summary"_s);
    response.timestamp = reader.text(u"timestamp"_s);
    response.processedSegments = reader.count(u"processedSegments"_s);
    if (reader.failed()) {
        return {std::nullopt, reader.error()};
    }
    // Read only once the envelope holds: a rejected answer reports nothing
    // about its entries.
    response.summary = decodeCallSummary(summary).value.value_or(CallSummary());
    return {std::move(response), {}};
}

} // namespace

QString sentimentName(OverallSentiment sentiment)
{
    switch (sentiment) {
    case OverallSentiment::Positive:
        return u"positive"_s;
    case OverallSentiment::Neutral:
        return u"neutral"_s;
    case OverallSentiment::Negative:
        return u"negative"_s;
    }
    return u"neutral"_s;
}

std::optional<OverallSentiment> sentimentFromName(const QString& name)
{
    const QString folded = name.trimmed().toCaseFolded();
    for (const OverallSentiment sentiment :
         {OverallSentiment::Positive, OverallSentiment::Neutral, OverallSentiment::Negative}) {
        if (sentimentName(sentiment) == folded) {
            return sentiment;
        }
    }
    return std::nullopt;
}

QString ActionItem::normalizedDescription() const
{
    QString text = description.simplified().toCaseFolded();
    while (!text.isEmpty() && (text.back().isPunct() || text.back().isSpace())) {
        text.chop(1);
    }
    return text;
}

QVariantList CallSummary::speakerList() const
{
    return variantList(speakers);
}

QVariantList CallSummary::actionItemList() const
{
    return variantList(actionItems);
}

QVariantList CallSummary::topicList() const
{
    return variantList(topics);
}

bool CallSummary::isEmpty() const
{
    return isBlank(overview) && keyPoints.isEmpty() && speakers.isEmpty() &&
           actionItems.isEmpty() && topics.isEmpty() && sentimentIsDefault && isBlank(duration) &&
           !confidence;
}

QJsonObject TranscriptionSummaryData::toJson() const
{
    QJsonObject json{
        {u"transcriptionText"_s, transcriptionText},
        {u"timestamp"_s, timestamp.toUTC().toString(Qt::ISODateWithMs)},
    };
    if (callDuration) {
        json.insert(u"callDuration"_s, *callDuration);
    }
    if (summary) {
        json.insert(u"summary"_s, *summary);
    }
    return json;
}

SummaryUpdate SummaryUpdate::from(const EnhancedSummaryResponse& response)
{
    return {response.summary, response.callId, response.processedSegments, response.timestamp};
}

Decoded<Speaker> decodeSpeaker(const QJsonValue& json)
{
    if (!json.isObject()) {
        return {std::nullopt, u"A speaker is %1, not a dictionary"_s.arg(jsonTypeName(json))};
    }
    const QJsonObject object = json.toObject();
    const std::optional<QString> name = nonBlankText(object.value("name"_L1));
    if (!name) {
        qCWarning(lcSession).noquote() << u"Speaker missing name: "_s + jsonText(json);
        return {std::nullopt, u"Speaker missing name"_s};
    }
    Speaker speaker;
    speaker.name = *name;
    speaker.role = nonBlankText(object.value("role"_L1));
    speaker.mainContributions = textList(object.value("mainContributions"_L1));
    return {std::move(speaker), {}};
}

Decoded<ActionItem> decodeActionItem(const QJsonValue& json)
{
    ActionItem item;
    if (json.isString()) {
        item.description = json.toString();
    } else if (json.isObject()) {
        const QJsonObject object = json.toObject();
        item.description = textValue(object.value("description"_L1)).value_or(QString());
        item.assignee = nonBlankText(object.value("assignee"_L1));
        item.deadline = nonBlankText(object.value("deadline"_L1));
        const QJsonValue priority = object.value("priority"_L1);
        if (const std::optional<Priority> known = priorityFromWording(priority.toString())) {
            item.priority = *known;
        } else if (!priority.isUndefined() && !priority.isNull()) {
            qCDebug(lcSession).noquote()
                << u"Unknown priority %1 taken as medium"_s.arg(jsonText(priority));
        }
    } else {
        return {std::nullopt, u"An action item is %1, not a dictionary"_s.arg(jsonTypeName(json))};
    }
    if (isBlank(item.description)) {
        qCWarning(lcSession).noquote() << u"❌ Action item missing description: "_s + jsonText(json);
        return {std::nullopt, u"Action item missing description"_s};
    }
    return {std::move(item), {}};
}

Decoded<Topic> decodeTopic(const QJsonValue& json)
{
    if (!json.isObject()) {
        return {std::nullopt, u"A topic is %1, not a dictionary"_s.arg(jsonTypeName(json))};
    }
    const QJsonObject object = json.toObject();
    const QString entry = jsonText(json);
    const std::optional<QString> name = nonBlankText(object.value("topic"_L1));
    const std::optional<double> importance = numberValue(object.value("importance"_L1));
    const std::optional<int> mentions = countValue(object.value("mentions"_L1));
    // Each missing field is reported, so one look at the log shows all that
    // is wrong with the entry.
    QStringList missing;
    const auto check = [&](bool present, const QString& field) {
        if (!present) {
            qCWarning(lcSession).noquote() << u"❌ Topic missing '%1' field: "_s.arg(field) + entry;
            missing.append(field);
        }
    };
    check(name.has_value(), u"topic"_s);
    check(importance.has_value(), u"importance"_s);
    check(mentions.has_value(), u"mentions"_s);
    if (!missing.isEmpty()) {
        return {std::nullopt, u"Topic missing "_s + missing.join(u", "_s)};
    }
    qCDebug(lcSession).noquote() << u"✅ Successfully parsed topic: "_s + entry;
    return {Topic{*name, *importance, *mentions}, {}};
}

std::optional<Sentiment> decodeSentiment(const QJsonValue& json)
{
    if (json.isString()) {
        const std::optional<OverallSentiment> overall = sentimentFromName(json.toString());
        return overall ? std::optional<Sentiment>(Sentiment{*overall, 0.0}) : std::nullopt;
    }
    const QJsonObject object = json.toObject();
    const std::optional<OverallSentiment> overall =
        sentimentFromName(object.value("overall"_L1).toString());
    if (!overall) {
        return std::nullopt;
    }
    return Sentiment{*overall, numberValue(object.value("score"_L1)).value_or(0.0)};
}

Decoded<CallSummary> decodeCallSummary(const QJsonValue& json)
{
    if (!json.isObject()) {
        return {std::nullopt, u"The summary is %1, not a dictionary"_s.arg(jsonTypeName(json))};
    }
    const QJsonObject object = json.toObject();
    CallSummary summary;
    summary.overview = textValue(object.value("overview"_L1)).value_or(QString());
    summary.keyPoints = textList(object.value("keyPoints"_L1));
    summary.speakers =
        recordList<Speaker>(object, u"speakers"_s, u"❌ Speaker"_s, &decodeSpeaker, false);
    summary.actionItems = recordList<ActionItem>(object, u"actionItems"_s, u"❌ Action item"_s,
                                                 &decodeActionItem, true);
    summary.topics = recordList<Topic>(object, u"topics"_s, u"❌ Topic"_s, &decodeTopic, false);
    if (const std::optional<Sentiment> sentiment = decodeSentiment(object.value("sentiment"_L1))) {
        summary.sentiment = *sentiment;
        summary.sentimentIsDefault = false;
    } else {
        qCDebug(lcSession).noquote() << u"😐 Default sentiment: neutral"_s;
    }
    summary.duration = textValue(object.value("duration"_L1)).value_or(QString());
    summary.confidence = numberValue(object.value("confidence"_L1));
    return {std::move(summary), {}};
}

Decoded<EnhancedSummaryResponse> decodeEnhancedSummary(const QJsonValue& json)
{
    return decodeEnhancedSummaryAt(json, QString());
}

Decoded<TranscriptionReceivedResponse> decodeTranscriptionReceived(const QJsonValue& json)
{
    if (!json.isObject()) {
        return {std::nullopt, u"The answer is %1, expected an object"_s.arg(jsonTypeName(json))};
    }
    const QJsonObject object = json.toObject();
    EnvelopeReader reader(object, QString());
    TranscriptionReceivedResponse response;
    response.success = reader.boolean(u"success"_s);
    response.timestamp = reader.text(u"timestamp"_s);
    response.processed = reader.boolean(u"processed"_s);
    const QJsonObject summary = reader.object(u"summary"_s);
    if (reader.failed()) {
        return {std::nullopt, reader.error()};
    }
    Decoded<EnhancedSummaryResponse> inner = decodeEnhancedSummaryAt(summary, u"summary"_s);
    if (!inner.ok()) {
        return {std::nullopt, inner.error};
    }
    response.summary = std::move(*inner.value);
    return {std::move(response), {}};
}

Decoded<SummaryUpdate> decodeSummaryPayload(const QJsonValue& json)
{
    if (!json.isObject()) {
        return {std::nullopt,
                u"The summary payload is %1, expected an object"_s.arg(jsonTypeName(json))};
    }
    const QJsonObject object = json.toObject();
    SummaryUpdate update;
    const QJsonValue nested = object.value("summary"_L1);
    if (nested.isObject()) {
        qCDebug(lcSession).noquote() << u"✅ Using nested summary data"_s;
        update.summary = decodeCallSummary(nested).value.value_or(CallSummary());
    } else {
        qCDebug(lcSession).noquote() << u"Using data as direct summary"_s;
        update.summary = decodeCallSummary(object).value.value_or(CallSummary());
    }
    update.callId = textValue(object.value("callId"_L1));
    update.processedSegments = countValue(object.value("processedSegments"_L1));
    update.timestamp = textValue(object.value("timestamp"_L1));
    return {std::move(update), {}};
}

} // namespace LiveSession
