#include "McpReferenceServer.h"

#include "ChildProcess.h"
#include "TestPaths.h"

#include <QDeadlineTimer>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTcpServer>

using namespace Qt::StringLiterals;

namespace {

quint16 freePort()
{
    QTcpServer probe;
    if (!probe.listen(QHostAddress::LocalHost, 0))
        return 0;
    return probe.serverPort();
}

} // namespace

McpReferenceServer::McpReferenceServer()
{
    const QString program =
        TestPaths::sourceDirectory() + u"/local-backend/node_modules/.bin/mcp-server-everything"_s;
    if (!QFileInfo(program).isExecutable()) {
        m_error = program + u" is missing; run scripts/bootstrap"_s;
        return;
    }
    // Another process may take the port between the probe and the start; a
    // second port is tried then.
    for (int attempt = 0; attempt < 3 && !isRunning(); ++attempt) {
        m_port = freePort();
        m_output.clear();
        m_process = std::make_unique<QProcess>();
        m_process->setProgram(program);
        m_process->setArguments({u"sse"_s});
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"PORT"_s, QString::number(m_port));
        m_process->setProcessEnvironment(environment);
        m_process->setProcessChannelMode(QProcess::MergedChannels);
        m_process->start();
        if (!m_process->waitForStarted(10'000)) {
            m_error = u"cannot start the MCP reference server: "_s + m_process->errorString();
            m_process.reset();
            return;
        }
        const QString ready = u"Server is running on port %1"_s.arg(m_port);
        QDeadlineTimer deadline(30'000);
        while (!deadline.hasExpired() && m_process->state() == QProcess::Running &&
               !m_output.contains(ready)) {
            m_process->waitForReadyRead(static_cast<int>(deadline.remainingTime()));
            m_output += QString::fromUtf8(m_process->readAll());
        }
        if (m_output.contains(ready)) {
            m_error.clear();
            return;
        }
        m_error = u"the MCP reference server did not start listening: "_s + m_output;
        stop();
    }
}

McpReferenceServer::~McpReferenceServer()
{
    stop();
}

bool McpReferenceServer::isRunning() const
{
    return m_process && m_process->state() == QProcess::Running && m_error.isEmpty();
}

QUrl McpReferenceServer::sseUrl() const
{
    return QUrl(u"http://127.0.0.1:%1/sse"_s.arg(m_port));
}

QString McpReferenceServer::log() const
{
    if (m_process)
        m_output += QString::fromUtf8(m_process->readAll());
    return m_output;
}

void McpReferenceServer::stop()
{
    stopChildProcess(m_process);
}

QStringList McpReferenceServer::toolNames()
{
    return {
        u"echo"_s,
        u"get-annotated-message"_s,
        u"get-env"_s,
        u"get-resource-links"_s,
        u"get-resource-reference"_s,
        u"get-structured-content"_s,
        u"get-sum"_s,
        u"get-tiny-image"_s,
        u"gzip-file-as-resource"_s,
        u"toggle-simulated-logging"_s,
        u"toggle-subscriber-updates"_s,
        u"trigger-long-running-operation"_s,
        u"simulate-research-query"_s,
    };
}
