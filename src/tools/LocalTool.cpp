#include "tools/LocalTool.h"

#include <QJsonArray>

using namespace Qt::StringLiterals;

QString ToolOutcome::text() const
{
    if (const auto* text = std::get_if<QString>(&m_value))
        return *text;
    return std::get<LocalToolError>(m_value).text();
}

std::optional<LocalToolError> ToolOutcome::error() const
{
    if (const auto* error = std::get_if<LocalToolError>(&m_value))
        return *error;
    return std::nullopt;
}

QStringList LocalTool::requiredParameters() const
{
    QStringList names;
    for (const QJsonValue name : parameterSchema().value(u"required"_s).toArray()) {
        if (name.isString())
            names.append(name.toString());
    }
    return names;
}

QStringList LocalTool::optionalParameters() const
{
    const QStringList required = requiredParameters();
    QStringList names;
    for (const QString& name : parameterSchema().value(u"properties"_s).toObject().keys()) {
        if (!required.contains(name))
            names.append(name);
    }
    return names;
}
