// Test support: an MCP transport in memory. What the client sends is kept and
// handed to a handler standing in for the server, whose answers arrive later
// through the event loop, as they would over a network.
#pragma once

#include "protocol/McpTransport.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>

#include <functional>
#include <optional>

class MemoryMcpTransport : public McpTransport
{
    Q_OBJECT

public:
    using McpTransport::McpTransport;

    // What open() reports; set before it is called.
    std::optional<QString> openError;
    // Called with each message the client sends, decoded from JSON.
    std::function<void(const QJsonObject& message)> server;

    void open(Done done) override;
    void send(const QByteArray& message, Done done) override;
    void close() override;
    bool isOpen() const override { return m_open; }

    // Every message sent so far, decoded.
    QList<QJsonObject> sent() const { return m_sent; }
    QList<QJsonObject> sent(const QString& method) const;

    // A message from the server, delivered from the event loop.
    void deliver(const QJsonObject& message);
    void deliverRaw(const QByteArray& message);
    // Answers to a request the client sent.
    void answer(const QJsonObject& request, const QJsonValue& result);
    void answerError(const QJsonObject& request, int code, const QString& message);
    // The server goes away.
    void drop(const QString& reason);

private:
    bool m_open = false;
    QList<QJsonObject> m_sent;
};
