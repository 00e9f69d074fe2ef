// Test support: the real local backend (local-backend/, on Node) started on a
// free port with its own data directory, and a few plain HTTP helpers to drive
// it from a test the way a browser or another client would.
#pragma once

#include <QByteArray>
#include <QJsonDocument>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>
#include <QUrl>

#include <memory>
#include <optional>

class LocalBackend
{
public:
    struct Options
    {
        bool seedDemo = false;
        int tokenTtlSeconds = 0; // 0: the backend's default
        // The demo MCP server without sign-in, serving the demo account's calls
        // to whoever asks; otherwise it wants a bearer token of its own sign-in.
        bool mcpOpen = false;
    };

    // Starts the backend and waits until it listens (or failed: see error()).
    explicit LocalBackend(Options options);
    LocalBackend();
    ~LocalBackend();
    LocalBackend(const LocalBackend&) = delete;
    LocalBackend& operator=(const LocalBackend&) = delete;

    bool isRunning() const;
    QString error() const { return m_error; }
    // The backend base URL (also the web site's).
    QUrl url() const { return m_url; }
    QString dataDirectory() const { return m_data.path(); }
    QString databasePath() const;

    // Stops the process (SIGTERM, then waits); the data stays.
    void stop();
    // Ends it at once (SIGKILL), as a crash would; the data stays.
    void kill();
    // Stops and starts again on the same data and the same port.
    bool restart();

    // Everything the backend wrote on stderr so far (its request log).
    QString log() const;
    // How many requests with this method and path (no query) the backend answered.
    int requestCount(const QString& method, const QString& path) const;

    // Signs in through the web login form as a browser would; the tokens of the
    // redirect to quillmoss://oauth/callback.
    struct Tokens
    {
        QUrl redirect;
        QString accessToken;
        QString refreshToken;
        QString expiresAt;
        QString expiresIn;
    };
    std::optional<Tokens> signIn(const QString& email, const QString& name = {});

    // A plain request; status 0 when the backend did not answer.
    struct Reply
    {
        int status = 0;
        QByteArray body;
        QJsonDocument json() const { return QJsonDocument::fromJson(body); }
    };
    Reply request(const QByteArray& method, const QString& path, const QByteArray& body = {},
                  const QString& accessToken = {},
                  const QByteArray& contentType = "application/json");

    // The demo account that --seed-demo fills with past calls.
    static QString demoEmail() { return QStringLiteral("demo@quillmoss.local"); }

private:
    bool start();

    Options m_options;
    QTemporaryDir m_data;
    std::unique_ptr<QProcess> m_process;
    QUrl m_url;
    quint16 m_port = 0;
    QString m_error;
    QString m_previousLog;
};
