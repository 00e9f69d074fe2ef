// The local-tool configuration document as the backend session carries it:
// the initial document sent with every "initializeSession", updates sent as
// "update_local_tools", and the tools the backend reports as enabled and
// available for the session.
#pragma once

#include <QJsonObject>
#include <QObject>
#include <QString>
#include <QStringList>

#include <optional>

class SessionConnection;

// Lives on the GUI thread with its connection, which must outlive it.
class ToolDocumentChannel : public QObject
{
    Q_OBJECT

public:
    ToolDocumentChannel(SessionConnection& connection, std::optional<QString> initialConfigJson,
                        QObject* parent = nullptr);

    QStringList enabledTools() const { return m_enabledTools; }
    QStringList availableTools() const { return m_availableTools; }

    // Refused (false, with its warning) until the session is ready.
    bool updateLocalToolsConfiguration(const QJsonObject& payload);

Q_SIGNALS:
    void toolsChanged();

private:
    void addInitialConfig(QJsonObject& sessionPayload) const;
    void takeReportedTools(const QJsonObject& sessionData);

    SessionConnection& m_connection;
    const std::optional<QString> m_initialConfigJson;
    QStringList m_enabledTools;
    QStringList m_availableTools;
};
