// The local-tool configuration document as the backend session carries it:
// the document sent with every "initializeSession" (the initial one, until an
// update replaces it), updates sent as "update_local_tools", and the tools the
// backend reports as enabled and available for the session.
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

    // Sends the document; refused (false, with its warning) until the session
    // is ready. Either way the next "initializeSession" carries it. A document
    // the backend already has is not sent again.
    bool updateLocalToolsConfiguration(const QJsonObject& payload);
    // Replaces what the next "initializeSession" carries, sending nothing: for
    // changes made while there is no connection.
    void setConfigJson(const QString& json) { m_configJson = json; }
    // What the next "initializeSession" carries.
    std::optional<QString> configJson() const { return m_configJson; }

Q_SIGNALS:
    void toolsChanged();

private:
    void addInitialConfig(QJsonObject& sessionPayload);
    void takeReportedTools(const QJsonObject& sessionData);

    SessionConnection& m_connection;
    std::optional<QString> m_configJson;
    // The document the backend was last given on this connection.
    std::optional<QJsonObject> m_backendDocument;
    QStringList m_enabledTools;
    QStringList m_availableTools;
};
