// Test support: a tiny HTTP/1.1 server on 127.0.0.1, in the test's own thread,
// for the answers the real backend never gives (odd statuses, broken bodies,
// no HTTP at all, no answer yet). One request per connection.
#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QTcpServer>
#include <QUrl>

#include <functional>
#include <optional>

class QTcpSocket;

class HttpStub : public QObject
{
public:
    struct Request
    {
        QByteArray method;
        QByteArray path;
        QHash<QByteArray, QByteArray> headers; // names in lower case
        QByteArray body;
    };

    struct Answer
    {
        int status = 200;
        QByteArray body;
        // Sent as it is instead of an HTTP answer, then the connection closes.
        QByteArray raw;
        // No answer until the client gives up or the stub goes.
        bool hold = false;
    };

    HttpStub();
    ~HttpStub() override;
    HttpStub(const HttpStub&) = delete;
    HttpStub& operator=(const HttpStub&) = delete;

    bool isListening() const { return m_server.isListening(); }
    QUrl url() const;
    // An address where nothing listens.
    static QUrl unreachableUrl();

    // How requests for `path` are answered from now on; other paths get 404.
    // A path without a query also answers requests that carry one.
    void setAnswer(const QByteArray& path, const Answer& answer);
    // Extra header lines of the answers for `path` ("Retry-After", …).
    void setAnswerHeaders(const QByteArray& path,
                          const QList<std::pair<QByteArray, QByteArray>>& headers);
    QList<Request> requests() const { return m_requests; }

    // Answers worked out from each request, for a stand-in that keeps state;
    // asked before the fixed answers, which take the requests it leaves.
    using Responder = std::function<std::optional<Answer>(const Request&)>;
    void setResponder(Responder responder) { m_responder = std::move(responder); }

private:
    void read(QTcpSocket* socket);

    QTcpServer m_server;
    QHash<QByteArray, Answer> m_answers;
    QHash<QByteArray, QList<std::pair<QByteArray, QByteArray>>> m_headers;
    QHash<QTcpSocket*, QByteArray> m_received;
    QList<Request> m_requests;
    Responder m_responder;
};
