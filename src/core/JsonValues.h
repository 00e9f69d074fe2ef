// Small helpers for JSON that came from elsewhere: naming a value's type in an
// error text, writing a value into a log line, and handing lists of records
// to QML.
#pragma once

#include <QJsonValue>
#include <QList>
#include <QString>
#include <QVariant>
#include <QVariantList>

enum class JsonTypeWording
{
    // As an error text says what it found: "null", "a boolean", "a number",
    // "a string", "an array", "an object", or "nothing" for a missing value.
    Sentence,
    // As a label in a report: "null", "bool", "number", "string", "array",
    // "object", or "missing".
    Label,
};

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
