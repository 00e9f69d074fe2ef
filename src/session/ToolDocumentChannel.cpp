#include "session/ToolDocumentChannel.h"

#include "session/SessionConnection.h"
#include "session/SessionPayload.h"

using namespace Qt::StringLiterals;

ToolDocumentChannel::ToolDocumentChannel(SessionConnection& connection,
                                         std::optional<QString> initialConfigJson, QObject* parent)
    : QObject(parent), m_connection(connection), m_initialConfigJson(std::move(initialConfigJson))
{
    m_connection.setSessionPayloadExtension(
        [this](QJsonObject& payload) { addInitialConfig(payload); });
    connect(&m_connection, &SessionConnection::sessionInitialized, this,
            &ToolDocumentChannel::takeReportedTools);
}

bool ToolDocumentChannel::updateLocalToolsConfiguration(const QJsonObject& payload)
{
    return m_connection.emitWhenReady(
        u"update_local_tools"_s, payload,
        u"🔧 Sending local tools configuration update event 'update_local_tools'"_s,
        u"⚠️ Cannot update WebSocket configuration: Session not ready"_s);
}

void ToolDocumentChannel::addInitialConfig(QJsonObject& sessionPayload) const
{
    if (m_initialConfigJson) {
        sessionPayload.insert(u"localTools"_s, *m_initialConfigJson);
        SessionPayload::say(u"📡 Using initial localTools config for session initialization"_s);
    } else {
        SessionPayload::say(
            u"📡 Initializing session without localTools config (backend will use defaults)"_s);
    }
}

void ToolDocumentChannel::takeReportedTools(const QJsonObject& sessionData)
{
    bool changed = false;
    if (sessionData.value(u"enabledTools"_s).isArray()) {
        m_enabledTools = SessionPayload::stringList(sessionData.value(u"enabledTools"_s));
        changed = true;
    }
    if (sessionData.value(u"availableTools"_s).isArray()) {
        m_availableTools = SessionPayload::stringList(sessionData.value(u"availableTools"_s));
        changed = true;
    }
    if (changed)
        Q_EMIT toolsChanged();
}
