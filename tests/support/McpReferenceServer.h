// Test support: the official MCP reference server ("server-everything" from
// npm, installed by scripts/bootstrap) run in its HTTP+SSE mode on a free
// port, for talking to a real MCP server as the app would.
#pragma once

#include <QProcess>
#include <QString>
#include <QUrl>

#include <memory>

class McpReferenceServer
{
public:
    // Starts the server and waits until it listens (or failed: see error()).
    McpReferenceServer();
    ~McpReferenceServer();
    McpReferenceServer(const McpReferenceServer&) = delete;
    McpReferenceServer& operator=(const McpReferenceServer&) = delete;

    bool isRunning() const;
    QString error() const { return m_error; }
    // The event stream's URL, "http://127.0.0.1:<port>/sse".
    QUrl sseUrl() const;
    // What the server printed so far (it logs each session and message).
    QString log() const;
    void stop();

    // The tools the pinned version lists to a client that offers no capabilities.
    static QStringList toolNames();

private:
    std::unique_ptr<QProcess> m_process;
    quint16 m_port = 0;
    QString m_error;
    mutable QString m_output;
};
