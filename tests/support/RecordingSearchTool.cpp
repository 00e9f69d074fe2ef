#include "RecordingSearchTool.h"

#include <QJsonArray>

using namespace Qt::StringLiterals;

QString RecordingSearchTool::identifier() const
{
    return u"brave_web_search"_s;
}

QString RecordingSearchTool::name() const
{
    return u"Brave Web Search"_s;
}

QString RecordingSearchTool::description() const
{
    return u"Searches the web."_s;
}

QJsonObject RecordingSearchTool::parameterSchema() const
{
    return {{u"type"_s, u"object"_s},
            {u"properties"_s, QJsonObject{{u"query"_s, QJsonObject{{u"type"_s, u"string"_s}}}}},
            {u"required"_s, QJsonArray{u"query"_s}}};
}

void RecordingSearchTool::execute(const ToolInvocation& call, Done done)
{
    {
        const QMutexLocker lock(&m_mutex);
        m_queries.append(call.parameters.value(u"query"_s).toString());
    }
    done(ToolOutcome::success(m_answer));
}

QStringList RecordingSearchTool::seen() const
{
    const QMutexLocker lock(&m_mutex);
    return m_queries;
}
