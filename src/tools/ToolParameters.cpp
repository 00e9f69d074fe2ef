#include "tools/ToolParameters.h"

#include <QJsonArray>
#include <QStringList>

#include <cmath>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

// Integers beyond this lose precision as JSON numbers.
constexpr double largestExactInteger = 9007199254740992.0;

bool hasType(const QJsonValue& value, const QString& type)
{
    if (type == u"string"_s)
        return value.isString();
    if (type == u"integer"_s) {
        const double number = value.toDouble();
        return value.isDouble() && std::isfinite(number) && std::floor(number) == number &&
               std::fabs(number) <= largestExactInteger;
    }
    if (type == u"number"_s)
        return value.isDouble() && std::isfinite(value.toDouble());
    if (type == u"boolean"_s)
        return value.isBool();
    if (type == u"array"_s)
        return value.isArray();
    if (type == u"object"_s)
        return value.isObject();
    if (type == u"null"_s)
        return value.isNull();
    return true; // a type this check does not know is the tool's own business
}

QString expectation(const QString& type)
{
    if (type == u"string"_s)
        return u"a string"_s;
    if (type == u"integer"_s)
        return u"an integer"_s;
    if (type == u"number"_s)
        return u"a number"_s;
    if (type == u"boolean"_s)
        return u"true or false"_s;
    if (type == u"array"_s)
        return u"a list"_s;
    if (type == u"object"_s)
        return u"an object"_s;
    return type;
}

QString shown(const QJsonValue& value)
{
    if (value.isString())
        return value.toString();
    if (value.isDouble())
        return QString::number(value.toDouble());
    if (value.isBool())
        return value.toBool() ? u"true"_s : u"false"_s;
    return u"null"_s;
}

// Why `value` does not fit `schema`; nothing when it does.
std::optional<QString> fault(const QJsonObject& schema, const QJsonValue& value)
{
    const QJsonValue type = schema.value(u"type"_s);
    QStringList types;
    if (type.isString())
        types.append(type.toString());
    for (const QJsonValue each : type.toArray())
        types.append(each.toString());
    if (!types.isEmpty() &&
        std::none_of(types.cbegin(), types.cend(),
                     [&value](const QString& each) { return hasType(value, each); })) {
        QStringList expected;
        for (const QString& each : types)
            expected.append(expectation(each));
        return u"expected "_s + expected.join(u" or "_s);
    }
    const QJsonArray choices = schema.value(u"enum"_s).toArray();
    if (!choices.isEmpty() && !choices.contains(value)) {
        QStringList names;
        for (const QJsonValue choice : choices)
            names.append(shown(choice));
        return u"must be one of: "_s + names.join(u", "_s);
    }
    if (value.isDouble()) {
        const QJsonValue minimum = schema.value(u"minimum"_s);
        const QJsonValue maximum = schema.value(u"maximum"_s);
        if (minimum.isDouble() && value.toDouble() < minimum.toDouble())
            return u"must be at least "_s + shown(minimum);
        if (maximum.isDouble() && value.toDouble() > maximum.toDouble())
            return u"must be at most "_s + shown(maximum);
    }
    if (value.isArray() && schema.value(u"items"_s).isObject()) {
        const QJsonObject items = schema.value(u"items"_s).toObject();
        const QJsonArray list = value.toArray();
        for (qsizetype i = 0; i < list.size(); ++i) {
            if (const std::optional<QString> itemFault = fault(items, list.at(i)))
                return u"item %1: "_s.arg(i + 1) + *itemFault;
        }
    }
    return std::nullopt;
}

} // namespace

std::variant<QJsonObject, LocalToolError> checkToolParameters(const QJsonObject& schema,
                                                              const QJsonObject& parameters)
{
    for (const QJsonValue name : schema.value(u"required"_s).toArray()) {
        const QJsonValue given = parameters.value(name.toString());
        if (given.isUndefined() || given.isNull())
            return LocalToolError::missingParameter(name.toString());
    }
    const QJsonObject properties = schema.value(u"properties"_s).toObject();
    const bool closed = schema.value(u"additionalProperties"_s) == QJsonValue(false);
    QJsonObject checked;
    for (auto it = parameters.constBegin(); it != parameters.constEnd(); ++it) {
        if (it.value().isNull())
            continue; // "not given", as models often say it
        const QJsonValue declared = properties.value(it.key());
        if (declared.isUndefined()) {
            if (closed)
                return LocalToolError::invalidParameter(it.key(),
                                                        u"not a parameter of this tool"_s);
        } else if (const std::optional<QString> why = fault(declared.toObject(), it.value())) {
            return LocalToolError::invalidParameter(it.key(), *why);
        }
        checked.insert(it.key(), it.value());
    }
    return checked;
}
