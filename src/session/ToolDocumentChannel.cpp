#include "session/ToolDocumentChannel.h"

#include "session/SessionConnection.h"
#include "session/SessionPayload.h"

#include <QJsonDocument>

using namespace Qt::StringLiterals;

ToolDocumentChannel::ToolDocumentChannel(SessionConnection& connection,
                                         std::optional<QString> initialConfigJson, QObject* parent)
    : QObject(parent), m_connection(connection), m_configJson(std::move(initialConfigJson))
{
    m_connection.setSessionPayloadExtension(
        [this](QJsonObject& payload) { addInitialConfig(payload); });
    connect(&m_connection, &SessionConnection::sessionInitialized, this,
            &ToolDocumentChannel::takeReportedTools);
    // A new connection's backend knows nothing of earlier updates until its
    // "initializeSession".
    connect(&m_connection, &SessionConnection::isConnectedChanged, this, [this] {
        if (!m_connection.isConnected())
            m_backendDocument.reset();
    });
}

bool ToolDocumentChannel::updateLocalToolsConfiguration(const QJsonObject& payload)
{
    m_configJson = QString::fromUtf8(QJsonDocument(payload).toJson(QJsonDocument::Indented));
    if (m_connection.sessionReady() && m_backendDocument == payload)
        return true;
    const bool sent = m_connection.emitWhenReady(
        u"update_local_tools"_s, payload,
        u"🔧 Sending local tools configuration update event 'update_local_tools'"_s,
        u"⚠️ Cannot update WebSocket configuration: Session not ready"_s);
    if (sent)
        m_backendDocument = payload;
    return sent;
}

void ToolDocumentChannel::addInitialConfig(QJsonObject& sessionPayload)
{
    m_backendDocument.reset();
    if (m_configJson) {
        sessionPayload.insert(u"localTools"_s, *m_configJson);
        const QJsonDocument sent = QJsonDocument::fromJson(m_configJson->toUtf8());
        if (sent.isObject())
            m_backendDocument = sent.object();
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
