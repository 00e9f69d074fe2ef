#include "core/JsonValues.h"

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
