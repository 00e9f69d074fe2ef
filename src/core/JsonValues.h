// Small helpers for JSON that came from elsewhere: reading a body, naming a
// value's type in an error text, writing a value into a log line, and handing
// lists of records to QML.
#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>
#include <QVariant>
#include <QVariantList>

#include <optional>

enum class JsonTypeWording
{
    // As an error text says what it found: "null", "a boolean", "a number",
    // "a string", "an array", "an object", or "nothing" for a missing value.
    Sentence,
    // As a label in a report: "null", "bool", "number", "string", "array",
    // "object", or "missing".
    Label,
};

// `text` as a JSON object or array; nothing, with `error` saying where the
// text broke ("… at offset N"), otherwise.
std::optional<QJsonValue> parseJson(const QByteArray& text, QString* error = nullptr);
// `text` as a JSON object; nothing, with `error` saying why, otherwise.
std::optional<QJsonObject> parseJsonObject(const QByteArray& text, QString* error = nullptr);
// The text under `key`; nothing when it is missing or not a string.
std::optional<QString> optionalString(const QJsonObject& object, const QString& key);

QString jsonTypeName(const QJsonValue& value, JsonTypeWording wording = JsonTypeWording::Sentence);

// A JSON value as compact text, as a log line shows it: a string with its
// quotes, a number as JSON writes it.
QString jsonText(const QJsonValue& json);

// Each value wrapped in a QVariant, in order (records are Q_GADGETs QML can read).
template <typename T> QVariantList variantList(const QList<T>& values)
{
    QVariantList list;
    list.reserve(values.size());
    for (const T& value : values) {
        list.append(QVariant::fromValue(value));
    }
    return list;
}
