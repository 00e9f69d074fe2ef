#include "SocketIoTestServer.h"

#include "ChildProcess.h"
#include "TestPaths.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QRegularExpression>

#include <csignal>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto startTimeout = 30s;
constexpr auto answerTimeout = 10s;

QString serverDirectory()
{
    return TestPaths::sourceDirectory() + u"/tests/support/socketio-server"_s;
}

} // namespace

SocketIoTestServer::SocketIoTestServer(Options options) : m_options(options)
{
    if (!m_directory.isValid()) {
        m_error = u"cannot create a temporary directory"_s;
        return;
    }
    start();
}

SocketIoTestServer::SocketIoTestServer() : SocketIoTestServer(Options{}) {}

SocketIoTestServer::~SocketIoTestServer()
{
    stop();
}

bool SocketIoTestServer::isRunning() const
{
    return m_process && m_process->state() == QProcess::Running && m_port != 0;
}

QString SocketIoTestServer::log() const
{
    return QString::fromUtf8(TestPaths::readFile(m_directory.filePath(u"server-stderr.log"_s)));
}

bool SocketIoTestServer::start()
{
    m_error.clear();
    m_pending.clear();
    if (!QDir(serverDirectory() + u"/node_modules/socket.io"_s).exists()) {
        m_error = u"socket.io is not installed: run scripts/bootstrap (npm ci in "_s +
                  serverDirectory() + u')';
        return false;
    }
    m_process = std::make_unique<QProcess>();
    m_process->setProgram(u"node"_s);
    m_process->setArguments({serverDirectory() + u"/server.js"_s, u"--port"_s,
                             QString::number(m_port), u"--ping-interval"_s,
                             QString::number(m_options.pingInterval.count()), u"--ping-timeout"_s,
                             QString::number(m_options.pingTimeout.count())});
    m_process->setStandardErrorFile(m_directory.filePath(u"server-stderr.log"_s),
                                    QIODevice::Append);
    m_process->start();
    if (!m_process->waitForStarted(10'000)) {
        m_error = u"cannot start node: "_s + m_process->errorString();
        m_process.reset();
        return false;
    }

    static const QRegularExpression listening(u"^listening on (http://\\S+)$"_s);
    const QDeadlineTimer deadline(startTimeout);
    while (!deadline.hasExpired()) {
        while (m_process->canReadLine()) {
            const QString line = QString::fromUtf8(m_process->readLine()).trimmed();
            const auto match = listening.match(line);
            if (match.hasMatch()) {
                m_url = QUrl(match.captured(1));
                m_port = static_cast<quint16>(m_url.port());
                return true;
            }
        }
        if (!m_process->waitForReadyRead(static_cast<int>(deadline.remainingTime())))
            break;
    }
    m_error = u"the Socket.IO server did not start listening: "_s + log();
    stop();
    return false;
}

void SocketIoTestServer::stop()
{
    // A frozen process cannot act on SIGTERM until it runs again.
    if (m_process && m_process->state() != QProcess::NotRunning)
        ::kill(static_cast<pid_t>(m_process->processId()), SIGCONT);
    stopChildProcess(m_process);
}

bool SocketIoTestServer::restart()
{
    stop();
    return start();
}

bool SocketIoTestServer::freeze()
{
    return isRunning() && ::kill(static_cast<pid_t>(m_process->processId()), SIGSTOP) == 0;
}

bool SocketIoTestServer::thaw()
{
    return isRunning() && ::kill(static_cast<pid_t>(m_process->processId()), SIGCONT) == 0;
}

QJsonObject SocketIoTestServer::command(const QString& name, QJsonObject arguments)
{
    if (!isRunning())
        return {};
    const int id = m_nextId++;
    arguments.insert(u"id"_s, id);
    arguments.insert(u"command"_s, name);
    m_process->write(QJsonDocument(arguments).toJson(QJsonDocument::Compact) + '\n');

    // Answers come in order, one line each; waiting here does not run the test's
    // event loop, which is fine: the server acts on its own.
    const QDeadlineTimer deadline(answerTimeout);
    while (!deadline.hasExpired()) {
        m_pending += m_process->readAllStandardOutput();
        qsizetype newline = -1;
        while ((newline = m_pending.indexOf('\n')) >= 0) {
            const QByteArray line = m_pending.left(newline);
            m_pending.remove(0, newline + 1);
            QJsonObject answer = QJsonDocument::fromJson(line).object();
            if (answer.value(u"id"_s).toInt() == id)
                return answer;
        }
        if (!m_process->waitForReadyRead(static_cast<int>(deadline.remainingTime())))
            break;
    }
    return {};
}

int SocketIoTestServer::reached(const QJsonObject& answer) const
{
    return answer.value(u"ok"_s).toBool() ? answer.value(u"count"_s).toInt() : -1;
}

SocketIoTestServer::State SocketIoTestServer::state()
{
    const QJsonObject answer = command(u"state"_s);
    State state;
    state.answered = answer.value(u"ok"_s).toBool();
    state.upgrades = answer.value(u"upgrades"_s).toInt();
    state.refused = answer.value(u"refused"_s).toInt();
    for (const auto& value : answer.value(u"connections"_s).toArray()) {
        Connection connection;
        connection.id = value[u"id"_s].toString();
        connection.nameSpace = value[u"nsp"_s].toString();
        const QJsonObject query = value[u"query"_s].toObject();
        for (auto it = query.begin(); it != query.end(); ++it)
            connection.query.insert(it.key(), it.value().toString());
        connection.connected = value[u"connected"_s].toBool();
        connection.reason = value[u"reason"_s].toString();
        state.connections.append(connection);
    }
    for (const auto& value : answer.value(u"events"_s).toArray()) {
        state.events.append({value[u"socket"_s].toString(), value[u"event"_s].toString(),
                             value[u"args"_s].toArray()});
    }
    return state;
}

int SocketIoTestServer::emitEvent(const QString& name, const QJsonArray& items,
                                  bool askAcknowledgement)
{
    return reached(command(
        u"emit"_s, {{u"event"_s, name}, {u"args"_s, items}, {u"ack"_s, askAcknowledgement}}));
}

int SocketIoTestServer::emitBinaryEvent(const QString& name)
{
    return reached(command(u"emitBinary"_s, {{u"event"_s, name}}));
}

int SocketIoTestServer::sendStrayAck(int ackId)
{
    return reached(command(u"strayAck"_s, {{u"ackId"_s, ackId}}));
}

int SocketIoTestServer::dropTransports()
{
    return reached(command(u"drop"_s));
}

int SocketIoTestServer::disconnectNameSpace()
{
    return reached(command(u"disconnect"_s));
}

bool SocketIoTestServer::pause(std::chrono::milliseconds gone)
{
    return command(u"pause"_s, {{u"ms"_s, static_cast<qint64>(gone.count())}})
        .value(u"ok"_s)
        .toBool();
}
