// The registry of the tools the assistant may ask for, and the one way they
// run: by identifier, after the user approved the call, off the GUI thread,
// with the integration's credential read for that call only.
#pragma once

#include "core/SerialWorker.h"
#include "tools/IntegrationCatalogue.h"
#include "tools/LocalTool.h"

#include <QFuture>
#include <QJsonObject>
#include <QMap>
#include <QObject>
#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class HttpClient;
class KeychainManager;

// How one call went, handed back on the GUI thread.
struct ToolExecution
{
    QString identifier;
    bool success = false;
    // The tool's text, or the error's text in its place.
    QString text;
    // From the start of the call to its end, also for a call that failed at once.
    double elapsedSeconds = 0.0;
    std::optional<LocalToolError::Kind> errorKind;
};

// Lives on the GUI thread; the registry is touched there only. Calls run on
// the manager's own worker thread, several at a time when their tools wait on
// the network.
class LocalToolManager : public QObject
{
    Q_OBJECT
    // Changes whenever a tool comes or goes, so that lists re-read the registry.
    Q_PROPERTY(int toolsUpdated READ toolsUpdated NOTIFY toolsUpdatedChanged)
    Q_PROPERTY(QStringList toolIdentifiers READ toolIdentifiers NOTIFY toolsUpdatedChanged)

public:
    using Completion = std::function<void(const ToolExecution&)>;

    // `keychain` outlives the manager.
    explicit LocalToolManager(const KeychainManager& keychain, QObject* parent = nullptr);
    // Calls still running are abandoned: their completions never run.
    ~LocalToolManager() override;
    LocalToolManager(const LocalToolManager&) = delete;
    LocalToolManager& operator=(const LocalToolManager&) = delete;

    // Stores the tool under its identifier, replacing one registered before.
    void registerTool(const std::shared_ptr<LocalTool>& tool);
    // False when no tool had that identifier.
    bool removeTool(const QString& identifier);
    // Replaces every remote ("mcp_") tool with `tools`, in one update.
    void replaceRemoteTools(const QList<std::shared_ptr<LocalTool>>& tools);

    std::shared_ptr<LocalTool> tool(const QString& identifier) const;
    QStringList toolIdentifiers() const { return m_tools.keys(); }
    QList<std::shared_ptr<const LocalTool>> remoteTools() const;
    int toolsUpdated() const { return m_toolsUpdated; }

    // The secure-store item holding a tool's credential; nothing for remote
    // tools (they carry their own authorisation) and for unknown identifiers.
    static std::optional<QString> credentialItem(const QString& identifier);
    // The tool's credential, read from the secure store (blocking).
    std::optional<QString> apiKey(const QString& identifier) const;

    // Runs one approved call. `done` is called once, on the GUI thread, unless
    // the manager goes first.
    void executeTool(const QString& identifier, const QJsonObject& parameters, Completion done);
    QFuture<ToolExecution> executeTool(const QString& identifier, const QJsonObject& parameters);

    // The tool-configuration document for `integrations` and the registered
    // remote tools, as JSON text; nothing when it cannot be encoded.
    std::optional<QString> toolConfiguration(const QList<IntegrationItem>& integrations) const;

    // A tool that has not answered by then fails ("… did not answer within …").
    void setExecutionTimeLimit(std::chrono::milliseconds limit) { m_timeLimit = limit; }

    static bool isRemoteIdentifier(const QString& identifier);

Q_SIGNALS:
    void toolsUpdatedChanged();

private:
    void changed();
    void runOnWorker(const std::shared_ptr<LocalTool>& tool, const QJsonObject& parameters,
                     const std::function<void(const ToolOutcome&)>& finish);

    const KeychainManager& m_keychain;
    QMap<QString, std::shared_ptr<LocalTool>> m_tools;
    int m_toolsUpdated = 0;
    std::chrono::milliseconds m_timeLimit{120'000};
    // Made on the worker thread by the first call, and deleted there.
    std::unique_ptr<HttpClient> m_http;
    SerialWorker m_worker{QStringLiteral("ToolWorker")};
};
