#include "LocalBackend.h"

#include "ChildProcess.h"
#include "TestPaths.h"

#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QRegularExpression>
#include <QTimer>
#include <QUrlQuery>

#include <chrono>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto startTimeout = 30s;
constexpr auto requestTimeout = 30s;

QString logPathOf(const QString& dataDirectory)
{
    return dataDirectory + u"/backend-stderr.log"_s;
}

} // namespace

LocalBackend::LocalBackend(Options options) : m_options(options)
{
    if (!m_data.isValid()) {
        m_error = u"cannot create a data directory"_s;
        return;
    }
    start();
}

LocalBackend::LocalBackend() : LocalBackend(Options{}) {}

LocalBackend::~LocalBackend()
{
    stop();
}

bool LocalBackend::isRunning() const
{
    return m_process && m_process->state() == QProcess::Running && m_port != 0;
}

QString LocalBackend::databasePath() const
{
    return m_data.path() + u"/backend.db"_s;
}

bool LocalBackend::start()
{
    m_error.clear();
    QStringList arguments = {
        u"--listen"_s,
        u"127.0.0.1:%1"_s.arg(m_port),
        u"--db"_s,
        databasePath(),
    };
    if (m_options.seedDemo)
        arguments << u"--seed-demo"_s;
    if (m_options.tokenTtlSeconds > 0)
        arguments << u"--token-ttl"_s << QString::number(m_options.tokenTtlSeconds);
    if (m_options.mcpOpen)
        arguments << u"--mcp-open"_s;

    m_process = std::make_unique<QProcess>();
    m_process->setProgram(TestPaths::sourceDirectory() +
                          u"/local-backend/bin/quillmoss-local-backend"_s);
    m_process->setArguments(arguments);
    // The request log goes to a file, so it can be read at any time without an event loop.
    m_process->setStandardErrorFile(logPathOf(m_data.path()), QIODevice::Append);
    m_process->start();
    if (!m_process->waitForStarted(10'000)) {
        m_error = u"cannot start the local backend: "_s + m_process->errorString();
        return false;
    }

    static const QRegularExpression listening(u"listening on (http://\\S+)"_s);
    QByteArray output;
    QTimer deadline;
    deadline.start(startTimeout);
    while (deadline.remainingTime() > 0) {
        if (!m_process->waitForReadyRead(static_cast<int>(deadline.remainingTime()))) {
            break;
        }
        output += m_process->readAllStandardOutput();
        const auto match = listening.match(QString::fromUtf8(output));
        if (match.hasMatch()) {
            m_url = QUrl(match.captured(1));
            m_port = static_cast<quint16>(m_url.port());
            return true;
        }
    }
    m_error = u"the local backend did not start listening: "_s + QString::fromUtf8(output) + log();
    stop();
    return false;
}

void LocalBackend::stop()
{
    stopChildProcess(m_process);
}

void LocalBackend::kill()
{
    if (m_process && m_process->state() != QProcess::NotRunning) {
        m_process->kill();
        m_process->waitForFinished(5'000);
    }
    m_process.reset();
}

bool LocalBackend::restart()
{
    stop();
    return start();
}

QString LocalBackend::log() const
{
    return QString::fromUtf8(TestPaths::readFile(logPathOf(m_data.path())));
}

int LocalBackend::requestCount(const QString& method, const QString& path) const
{
    const QRegularExpression line(
        u"(^|\\s)%1 %2 \\d{3}\\b"_s.arg(QRegularExpression::escape(method),
                                        QRegularExpression::escape(path)),
        QRegularExpression::MultilineOption);
    int count = 0;
    for (auto it = line.globalMatch(log()); it.hasNext(); it.next())
        ++count;
    return count;
}

LocalBackend::Reply LocalBackend::request(const QByteArray& method, const QString& path,
                                          const QByteArray& body, const QString& accessToken,
                                          const QByteArray& contentType)
{
    QNetworkAccessManager network;
    QUrl target = m_url;
    const qsizetype query = path.indexOf(u'?');
    target.setPath(path.left(query));
    if (query >= 0)
        target.setQuery(path.mid(query + 1));
    QNetworkRequest request(target);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::ManualRedirectPolicy);
    request.setTransferTimeout(static_cast<int>(std::chrono::milliseconds(requestTimeout).count()));
    if (!body.isEmpty() || method == "POST")
        request.setRawHeader("Content-Type", contentType);
    if (!accessToken.isEmpty())
        request.setRawHeader("Authorization", "Bearer " + accessToken.toUtf8());

    QNetworkReply* reply = network.sendCustomRequest(request, method, body);
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    loop.exec();

    Reply result;
    result.status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    result.body = reply->readAll();
    if (result.status == 302 || result.status == 303)
        result.body = reply->rawHeader("Location");
    reply->deleteLater();
    return result;
}

std::optional<LocalBackend::Tokens> LocalBackend::signIn(const QString& email, const QString& name)
{
    QUrlQuery form;
    form.addQueryItem(u"name"_s, name);
    form.addQueryItem(u"email"_s, email);
    form.addQueryItem(u"provider"_s, u"google"_s);
    const Reply reply = request("POST", u"/login"_s, form.toString(QUrl::FullyEncoded).toUtf8(), {},
                                "application/x-www-form-urlencoded");
    if (reply.status != 302 && reply.status != 303)
        return std::nullopt;

    Tokens tokens;
    tokens.redirect = QUrl::fromEncoded(reply.body);
    const QUrlQuery items(tokens.redirect);
    tokens.accessToken = items.queryItemValue(u"access_token"_s, QUrl::FullyDecoded);
    tokens.refreshToken = items.queryItemValue(u"refresh_token"_s, QUrl::FullyDecoded);
    tokens.expiresAt = items.queryItemValue(u"expires_at"_s, QUrl::FullyDecoded);
    tokens.expiresIn = items.queryItemValue(u"expires_in"_s, QUrl::FullyDecoded);
    if (tokens.accessToken.isEmpty())
        return std::nullopt;
    return tokens;
}
