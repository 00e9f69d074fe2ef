// The terminal side of an MCP server's sign-in: the link the browser ended on,
// pasted on standard input, or the browser's own visit to a loopback address
// this process listens on.
#pragma once

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QTcpServer>
#include <QUrl>

#include <functional>
#include <memory>

class QSocketNotifier;
class QTcpSocket;

// Standard input, line by line, without blocking the event loop.
class StdinLineReader : public QObject
{
public:
    // `line` gets each line without its end, `ended` the end of input.
    StdinLineReader(std::function<void(const QString& line)> line, std::function<void()> ended,
                    QObject* parent = nullptr);
    ~StdinLineReader() override;
    StdinLineReader(const StdinLineReader&) = delete;
    StdinLineReader& operator=(const StdinLineReader&) = delete;

private:
    void readAvailable();

    std::function<void(const QString&)> m_line;
    std::function<void()> m_ended;
    std::unique_ptr<QSocketNotifier> m_notifier;
    QByteArray m_buffer;
};

// Listens on 127.0.0.1 for the browser's return from the authorization page:
// "http://127.0.0.1:PORT/oauth/callback?…". Answers the browser with a short
// page and hands the link on, once.
class LoopbackRedirectListener : public QObject
{
public:
    explicit LoopbackRedirectListener(std::function<void(const QUrl& callback)> received,
                                      QObject* parent = nullptr);
    ~LoopbackRedirectListener() override;
    LoopbackRedirectListener(const LoopbackRedirectListener&) = delete;
    LoopbackRedirectListener& operator=(const LoopbackRedirectListener&) = delete;

    // On a free port chosen by the system; false when nothing can listen.
    bool listen();
    // The redirect URI to register and send.
    QString redirectUri() const;

private:
    void read(QTcpSocket* socket);

    std::function<void(const QUrl&)> m_received;
    QTcpServer m_server;
    bool m_delivered = false;
};
