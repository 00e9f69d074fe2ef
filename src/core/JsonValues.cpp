#include "core/JsonValues.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

QString jsonTypeName(const QJsonValue& value, JsonTypeWording wording)
{
    const bool sentence = wording == JsonTypeWording::Sentence;
    switch (value.type()) {
    case QJsonValue::Null:
        return u"null"_s;
    case QJsonValue::Bool:
        return sentence ? u"a boolean"_s : u"bool"_s;
    case QJsonValue::Double:
        return sentence ? u"a number"_s : u"number"_s;
    case QJsonValue::String:
        return sentence ? u"a string"_s : u"string"_s;
    case QJsonValue::Array:
        return sentence ? u"an array"_s : u"array"_s;
    case QJsonValue::Object:
        return sentence ? u"an object"_s : u"object"_s;
    case QJsonValue::Undefined:
        break;
    }
    return sentence ? u"nothing"_s : u"missing"_s;
}

std::optional<QJsonValue> parseJson(const QByteArray& text, QString* error)
{
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(text, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        if (error != nullptr)
            *error = u"%1 at offset %2"_s.arg(parseError.errorString()).arg(parseError.offset);
        return std::nullopt;
    }
    return document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object());
}

std::optional<QJsonObject> parseJsonObject(const QByteArray& text, QString* error)
{
    const std::optional<QJsonValue> json = parseJson(text, error);
    if (!json)
        return std::nullopt;
    if (!json->isObject()) {
        if (error != nullptr)
            *error = u"the answer is not a JSON object"_s;
        return std::nullopt;
    }
    return json->toObject();
}

std::optional<QString> optionalString(const QJsonObject& object, const QString& key)
{
    const QJsonValue value = object.value(key);
    return value.isString() ? std::optional(value.toString()) : std::nullopt;
}

QString jsonText(const QJsonValue& json)
{
    if (json.isObject()) {
        return QString::fromUtf8(QJsonDocument(json.toObject()).toJson(QJsonDocument::Compact));
    }
    if (json.isArray()) {
        return QString::fromUtf8(QJsonDocument(json.toArray()).toJson(QJsonDocument::Compact));
    }
    // A scalar is written as the only element of a list, without the brackets.
    const QByteArray wrapped = QJsonDocument(QJsonArray{json}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(wrapped.mid(1, wrapped.size() - 2));
}
