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
