#include "MemoryMcpTransport.h"

#include <QJsonDocument>
#include <QTimer>

using namespace Qt::StringLiterals;

void MemoryMcpTransport::open(Done done)
{
    QTimer::singleShot(0, this, [this, done = std::move(done)] {
        m_open = !openError.has_value();
        done(openError);
    });
}

void MemoryMcpTransport::send(const QByteArray& message, Done done)
{
    const QJsonObject json = QJsonDocument::fromJson(message).object();
    m_sent.append(json);
    QTimer::singleShot(0, this, [this, json, done = std::move(done)] {
        done(m_open ? std::nullopt : std::optional(u"closed"_s));
        if (m_open && server)
            server(json);
    });
}

void MemoryMcpTransport::close()
{
    if (std::exchange(m_open, false))
        Q_EMIT closed(QString());
}

QList<QJsonObject> MemoryMcpTransport::sent(const QString& method) const
{
    QList<QJsonObject> matching;
    for (const QJsonObject& message : m_sent) {
        if (message.value("method"_L1).toString() == method)
            matching.append(message);
    }
    return matching;
}

void MemoryMcpTransport::deliver(const QJsonObject& message)
{
    deliverRaw(QJsonDocument(message).toJson(QJsonDocument::Compact));
}

void MemoryMcpTransport::deliverRaw(const QByteArray& message)
{
    QTimer::singleShot(0, this, [this, message] {
        if (m_open)
            Q_EMIT messageReceived(message);
    });
}

void MemoryMcpTransport::answer(const QJsonObject& request, const QJsonValue& result)
{
    deliver({{"jsonrpc"_L1, u"2.0"_s}, {"id"_L1, request.value("id"_L1)}, {"result"_L1, result}});
}

void MemoryMcpTransport::answerError(const QJsonObject& request, int code, const QString& message)
{
    deliver({{"jsonrpc"_L1, u"2.0"_s},
             {"id"_L1, request.value("id"_L1)},
             {"error"_L1, QJsonObject{{"code"_L1, code}, {"message"_L1, message}}}});
}

void MemoryMcpTransport::drop(const QString& reason)
{
    QTimer::singleShot(0, this, [this, reason] {
        if (std::exchange(m_open, false))
            Q_EMIT closed(reason);
    });
}
