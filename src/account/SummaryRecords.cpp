#include "account/SummaryRecords.h"

#include <QUuid>

using namespace Qt::StringLiterals;

QString newLocalId()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

QString priorityName(Priority priority)
{
    switch (priority) {
    case Priority::High:
        return u"high"_s;
    case Priority::Medium:
        return u"medium"_s;
    case Priority::Low:
        return u"low"_s;
    }
    return u"medium"_s;
}

std::optional<Priority> priorityFromName(const QString& name)
{
    for (const Priority priority : {Priority::High, Priority::Medium, Priority::Low}) {
        if (priorityName(priority) == name) {
            return priority;
        }
    }
    return std::nullopt;
}
