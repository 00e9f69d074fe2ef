// Test support: an MCP server over HTTP+SSE of our own, in the test's thread,
// for what the reference server never does: refusing the stream, odd statuses
// and types, stalling, pushing tool lists unasked, dropping the stream. The
// stream is a chunked HTTP/1.1 answer the test writes events into; each POST
// is kept and answered with a fixed status.
#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QPointer>
#include <QTcpServer>
#include <QUrl>

#include <functional>

class QTcpSocket;

class SseTestServer : public QObject
{
public:
    struct Request
    {
        QByteArray method;
        QByteArray path;                       // with its query
        QHash<QByteArray, QByteArray> headers; // names in lower case
        QByteArray body;
    };

    // How GET /sse is answered.
    struct Stream
    {
        int status = 200;
        QByteArray contentType = "text/event-stream";
        // Written right after the headers (the endpoint event, usually); empty
        // writes nothing, so the stream has headers and no data yet.
        QByteArray first = "event: endpoint\ndata: /message?sessionId=s1\n\n";
        // A status other than 200 comes with this body and the connection closes.
        QByteArray errorBody = "no";
        // The answer ends right after `first` (a close-delimited empty body when
        // `first` is empty).
        bool endAtOnce = false;
    };

    // How POSTs are answered.
    struct Post
    {
        int status = 202;
        QByteArray body = "Accepted";
    };

    SseTestServer();
    ~SseTestServer() override;
    SseTestServer(const SseTestServer&) = delete;
    SseTestServer& operator=(const SseTestServer&) = delete;

    bool isListening() const { return m_server.isListening(); }
    QUrl url(const QString& path = QStringLiteral("/sse")) const;

    Stream stream;
    Post post;
    // Called with each POST after it is kept, before it is answered.
    std::function<void(const Request&)> onPost;

    QList<Request> requests() const { return m_requests; }
    QList<Request> requests(const QByteArray& method) const;
    // Open event streams.
    int streamCount() const;

    // Writes raw bytes into every open stream, as one chunk.
    void push(const QByteArray& bytes);
    // A "message" event with `json` as its data.
    void pushMessage(const QByteArray& json);
    // Ends every stream cleanly (the last chunk), or cuts the connections.
    void endStreams();
    void dropStreams();

private:
    void read(QTcpSocket* socket);
    void answer(QTcpSocket* socket, const Request& request);

    QTcpServer m_server;
    QHash<QTcpSocket*, QByteArray> m_received;
    QList<QPointer<QTcpSocket>> m_streams;
    QList<Request> m_requests;
};
