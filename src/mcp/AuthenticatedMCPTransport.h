// The transport under the MCP client for servers that speak MCP over HTTP and
// server-sent events: one long-lived GET whose event stream carries the
// server's messages, one POST per client message to the URL the stream's
// "endpoint" event names, the bearer token on both, and the tool lists a
// server pushes unasked kept aside for discovery to poll.
#pragma once

#include "protocol/McpTransport.h"

#include <QList>
#include <QNetworkRequest>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <memory>
#include <optional>

class QNetworkAccessManager;
class QNetworkReply;
class SseEventParser;

// Lives on the thread that made it (the GUI thread in the app); all its I/O
// is driven by that thread's event loop.
class AuthenticatedMCPTransport : public McpTransport
{
    Q_OBJECT

public:
    // `sseConnectUrl` is the integration's URL (it contains "/sse"); without a
    // token the transport runs unauthenticated.
    explicit AuthenticatedMCPTransport(QUrl sseConnectUrl,
                                       std::optional<QString> authToken = std::nullopt,
                                       QObject* parent = nullptr);
    ~AuthenticatedMCPTransport() override;

    void open(Done done) override;
    void send(const QByteArray& message, Done done) override;
    void close() override;
    bool isOpen() const override;

    QUrl sseConnectUrl() const { return m_sseConnectUrl; }
    QUrl messagePostUrl() const { return m_messagePostUrl; }
    // Names from the tool lists the server pushed as "tools/list" messages
    // without an id, newest list only; discovery polls it when tools/list fails.
    QStringList discoveredTools() const { return m_discoveredTools; }

private:
    void readHead();
    void readBody();
    void streamEnded();
    void handleEvent(const QString& type, const QByteArray& data);
    void takeEndpoint(const QByteArray& data);
    void classify(const QByteArray& data);
    void finishOpen(const std::optional<QString>& error);
    void dropStream();
    // Runs `done` from the event loop, unless this transport is gone by then.
    void later(Done done, const std::optional<QString>& error);
    QNetworkRequest requestFor(const QUrl& url) const;

    const QUrl m_sseConnectUrl;
    QUrl m_messagePostUrl;
    const std::optional<QString> m_authToken;
    std::unique_ptr<QNetworkAccessManager> m_network;
    std::unique_ptr<SseEventParser> m_parser;
    QPointer<QNetworkReply> m_stream; // the GET of the event stream, while it runs
    QList<QPointer<QNetworkReply>> m_posts;
    Done m_openDone; // set while open() waits for the first byte of the stream
    bool m_open = false;
    bool m_used = false; // open() was called once; a transport does not reopen
    QStringList m_discoveredTools;
};
