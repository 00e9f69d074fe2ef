#include "session/AgentMode.h"

#include "session/SessionConnection.h"
#include "session/SessionPayload.h"

using namespace Qt::StringLiterals;
using SessionPayload::say;
using SessionPayload::timestampNow;
using SessionPayload::warn;

AgentMode::AgentMode(SessionConnection& connection, std::chrono::milliseconds statusDelay,
                     QObject* parent)
    : QObject(parent), m_connection(connection)
{
    m_statusTimer.setSingleShot(true);
    m_statusTimer.setInterval(statusDelay);
    connect(&m_statusTimer, &QTimer::timeout, this, [this] { getAgentModeStatus(); });
    connect(&m_connection, &SessionConnection::sessionStarted, &m_statusTimer,
            qOverload<>(&QTimer::start));
    connect(&m_connection, &SessionConnection::sessionReadyChanged, this, [this] {
        if (!m_connection.sessionReady())
            m_statusTimer.stop();
    });
    m_connection.addHandler(u"agentModeUpdated"_s, [this](const QJsonArray& items) {
        handleResponse(u"🤖 Agent mode update response: "_s, items);
    });
    m_connection.addHandler(u"agentModeStatus"_s, [this](const QJsonArray& items) {
        handleResponse(u"🤖 Agent mode status response: "_s, items);
    });
}

AgentMode::~AgentMode()
{
    m_statusTimer.stop();
}

bool AgentMode::updateAgentMode(bool enabled, int suggestionIntervalMs)
{
    const QJsonObject payload{
        {u"enabled"_s, enabled},
        {u"suggestionIntervalMs"_s, suggestionIntervalMs},
        {u"timestamp"_s, timestampNow()},
    };
    return m_connection.emitWhenReady(
        u"updateAgentMode"_s, payload,
        u"🤖 Updating agent mode: %1 (interval: %2ms)"_s.arg(
            enabled ? u"enabled"_s : u"disabled"_s, QString::number(suggestionIntervalMs)),
        u"⚠️ Cannot update agent mode - session not ready"_s);
}

bool AgentMode::getAgentModeStatus()
{
    return m_connection.emitWhenReady(u"getAgentModeStatus"_s,
                                      QJsonObject{{u"timestamp"_s, timestampNow()}},
                                      u"🤖 Requesting agent mode status"_s,
                                      u"⚠️ Cannot get agent mode status - session not ready"_s);
}

void AgentMode::handleResponse(const QString& label, const QJsonArray& items)
{
    const QJsonObject data = SessionPayload::firstObject(items).value_or(QJsonObject());
    say(label + SessionPayload::compact(data));
    parseResponse(data);
}

void AgentMode::parseResponse(const QJsonObject& payload)
{
    const QJsonValue success = payload.value(u"success"_s);
    if (!success.isBool()) {
        warn(u"Invalid agent mode response format"_s);
        return;
    }
    if (!success.toBool()) {
        const QJsonValue message = payload.value(u"message"_s);
        warn(u"❌ Agent mode operation failed: "_s +
             (message.isString() ? message.toString() : u"Unknown error"_s));
        return;
    }
    const QJsonValue enabled = payload.value(u"enabled"_s);
    const QJsonValue interval = payload.value(u"suggestionIntervalMs"_s);
    // Without both values there is nothing to store.
    if (!enabled.isBool() || !interval.isDouble()) {
        warn(u"Invalid agent mode response format"_s);
        return;
    }
    const int intervalMs = interval.toInt();
    say(u"✅ Agent mode response: enabled=%1, interval=%2"_s.arg(
        enabled.toBool() ? u"true"_s : u"false"_s, QString::number(intervalMs)));
    if (payload.value(u"message"_s).isString())
        say(u"📝 Agent mode message: "_s + payload.value(u"message"_s).toString());
    m_enabled = enabled.toBool();
    m_suggestionIntervalMs = intervalMs;
    Q_EMIT agentModeReported(m_enabled, m_suggestionIntervalMs);
    say(u"📱 Updated CallController with agent mode state from backend"_s);
}
