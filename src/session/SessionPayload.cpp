#include "session/SessionPayload.h"

#include "core/Logging.h"

#include <QDateTime>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace SessionPayload {

void say(const QString& line)
{
    qCInfo(lcSession).noquote() << line;
}

void warn(const QString& line)
{
    qCWarning(lcSession).noquote() << line;
}

QString compact(const QJsonValue& value)
{
    constexpr qsizetype logLimit = 2000;
    QString text;
    if (value.isString())
        text = value.toString();
    else
        text = QString::fromUtf8(QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact))
                   .mid(1)
                   .chopped(1);
    if (text.size() > logLimit)
        text = text.left(logLimit) + u"… (%1 characters)"_s.arg(text.size());
    return text;
}

std::optional<QJsonObject> firstObject(const QJsonArray& items)
{
    if (items.isEmpty() || !items.first().isObject())
        return std::nullopt;
    return items.first().toObject();
}

QStringList stringList(const QJsonValue& value)
{
    QStringList list;
    for (const auto& item : value.toArray()) {
        if (item.isString())
            list << item.toString();
    }
    return list;
}

QString timestampNow()
{
    return QDateTime::currentDateTimeUtc().toString(Qt::ISODate);
}

} // namespace SessionPayload
