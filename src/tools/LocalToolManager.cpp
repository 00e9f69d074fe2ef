#include "tools/LocalToolManager.h"

#include "core/HttpClient.h"
#include "core/Logging.h"
#include "store/KeychainManager.h"
#include "tools/ToolConfigurationDocument.h"
#include "tools/ToolParameters.h"

#include <QElapsedTimer>
#include <QPromise>
#include <QTimer>

#include <exception>

using namespace Qt::StringLiterals;

namespace {

// One call's end, whichever comes first: the tool's answer, its time limit,
// or a failure before it ran. Only the first counts.
class CallEnd
{
public:
    explicit CallEnd(std::function<void(const ToolOutcome&)> finish) : m_finish(std::move(finish))
    {}

    void operator()(const ToolOutcome& outcome)
    {
        if (std::exchange(m_ended, true))
            return;
        m_finish(outcome);
    }

private:
    std::function<void(const ToolOutcome&)> m_finish;
    bool m_ended = false; // touched on the worker thread only
};

} // namespace

LocalToolManager::LocalToolManager(const KeychainManager& keychain, QObject* parent)
    : QObject(parent), m_keychain(keychain)
{}

LocalToolManager::~LocalToolManager()
{
    // The client goes on the thread it lives on, stopping its requests without
    // calling back; the worker then joins.
    m_worker.post([this] { m_http.reset(); });
}

bool LocalToolManager::isRemoteIdentifier(const QString& identifier)
{
    return identifier.startsWith(u"mcp_"_s);
}

void LocalToolManager::registerTool(const std::shared_ptr<LocalTool>& tool)
{
    if (!tool)
        return;
    const QString identifier = tool->identifier();
    m_tools.insert(identifier, tool);
    changed();
}

bool LocalToolManager::removeTool(const QString& identifier)
{
    if (m_tools.remove(identifier) == 0)
        return false;
    changed();
    return true;
}

void LocalToolManager::replaceRemoteTools(const QList<std::shared_ptr<LocalTool>>& tools)
{
    m_tools.removeIf([](const auto& entry) { return isRemoteIdentifier(entry.key()); });
    for (const std::shared_ptr<LocalTool>& tool : tools) {
        if (tool && isRemoteIdentifier(tool->identifier()))
            m_tools.insert(tool->identifier(), tool);
    }
    changed();
}

std::shared_ptr<LocalTool> LocalToolManager::tool(const QString& identifier) const
{
    return m_tools.value(identifier);
}

QList<std::shared_ptr<const LocalTool>> LocalToolManager::remoteTools() const
{
    QList<std::shared_ptr<const LocalTool>> remote;
    for (auto it = m_tools.constBegin(); it != m_tools.constEnd(); ++it) {
        if (isRemoteIdentifier(it.key()))
            remote.append(it.value());
    }
    return remote;
}

std::optional<QString> LocalToolManager::credentialItem(const QString& identifier)
{
    if (isRemoteIdentifier(identifier))
        return std::nullopt;
    // The integration that provides the tool holds its credential.
    static const QList<IntegrationItem> catalogue = IntegrationCatalogue::build();
    for (const IntegrationItem& integration : catalogue) {
        if (integration.toolIdentifiers && integration.toolIdentifiers->contains(identifier))
            return IntegrationCatalogue::serviceName(integration.name);
    }
    return std::nullopt;
}

std::optional<QString> LocalToolManager::apiKey(const QString& identifier) const
{
    const std::optional<QString> item = credentialItem(identifier);
    if (!item)
        return std::nullopt;
    std::optional<QString> key = m_keychain.readKey(*item);
    if (key && key->isEmpty())
        return std::nullopt;
    return key;
}

void LocalToolManager::executeTool(const QString& identifier, const QJsonObject& parameters,
                                   Completion done)
{
    auto clock = std::make_shared<QElapsedTimer>();
    clock->start();
    const auto report = [this, identifier, clock,
                         done = std::move(done)](const ToolOutcome& outcome) {
        ToolExecution execution;
        execution.identifier = identifier;
        execution.success = outcome.succeeded();
        execution.text = outcome.text();
        execution.elapsedSeconds = static_cast<double>(clock->nsecsElapsed()) / 1e9;
        if (const std::optional<LocalToolError> error = outcome.error())
            execution.errorKind = error->kind();
        // Back on the GUI thread; dropped when the manager has gone meanwhile.
        QMetaObject::invokeMethod(
            this, [done, execution] { done(execution); }, Qt::QueuedConnection);
    };
    // The registry is read once, when the call starts.
    const std::shared_ptr<LocalTool> tool = m_tools.value(identifier);
    if (!tool) {
        qCWarning(lcTools).noquote() << u"❌ Tool '"_s + identifier + u"' not found"_s;
        report(ToolOutcome::failure(LocalToolError::toolNotFound(identifier)));
        return;
    }
    qCInfo(lcTools).noquote() << u"🔧 Executing tool '"_s + identifier + u"'"_s;
    runOnWorker(tool, parameters, report);
}

QFuture<ToolExecution> LocalToolManager::executeTool(const QString& identifier,
                                                     const QJsonObject& parameters)
{
    auto promise = std::make_shared<QPromise<ToolExecution>>();
    promise->start();
    executeTool(identifier, parameters, [promise](const ToolExecution& execution) {
        promise->addResult(execution);
        promise->finish();
    });
    return promise->future();
}

void LocalToolManager::runOnWorker(const std::shared_ptr<LocalTool>& tool,
                                   const QJsonObject& parameters,
                                   const std::function<void(const ToolOutcome&)>& finish)
{
    const std::chrono::milliseconds limit = m_timeLimit;
    m_worker.post([this, tool, parameters, finish, limit] {
        if (!m_http)
            m_http = std::make_unique<HttpClient>();
        auto end = std::make_shared<CallEnd>(finish);
        const std::optional<QString> key = apiKey(tool->identifier());
        if (tool->requiresAPIKey() && !key) {
            (*end)(ToolOutcome::failure(LocalToolError::missingAPIKey(tool->name())));
            return;
        }
        const auto checked = checkToolParameters(tool->parameterSchema(), parameters);
        if (const auto* error = std::get_if<LocalToolError>(&checked)) {
            (*end)(ToolOutcome::failure(*error));
            return;
        }
        QTimer::singleShot(limit, m_http.get(), [end, name = tool->name(), limit] {
            (*end)(ToolOutcome::failure(LocalToolError::executionFailed(
                u"%1 did not answer within %2 seconds"_s.arg(name).arg(limit.count() / 1000.0))));
        });
        const ToolInvocation call{std::get<QJsonObject>(checked), key, *m_http, m_keychain};
        try {
            tool->execute(call, [end](const ToolOutcome& outcome) { (*end)(outcome); });
        } catch (const std::exception& failure) {
            (*end)(ToolOutcome::failure(
                LocalToolError::executionFailed(QString::fromUtf8(failure.what()))));
        } catch (...) {
            (*end)(ToolOutcome::failure(LocalToolError::executionFailed(u"unknown error"_s)));
        }
    });
}

std::optional<QString>
LocalToolManager::toolConfiguration(const QList<IntegrationItem>& integrations) const
{
    return ToolConfigurationDocument::encode(
        ToolConfigurationDocument::build(integrations, remoteTools()));
}

void LocalToolManager::changed()
{
    ++m_toolsUpdated;
    Q_EMIT toolsUpdatedChanged();
}
