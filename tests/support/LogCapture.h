// Test support: records the log lines written while it lives, instead of printing them.
#pragma once

#include <QMutex>
#include <QString>
#include <QStringList>
#include <QtGlobal>

class LogCapture
{
public:
    LogCapture();
    // Restores the handler that was there before.
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // The messages so far, without category or level, in order.
    QStringList lines() const;
    // Those that start with one of `prefixes`.
    QStringList lines(const QStringList& prefixes) const;

private:
    static void handle(QtMsgType type, const QMessageLogContext& context, const QString& message);

    QtMessageHandler m_previous = nullptr;
    mutable QMutex m_mutex;
    QStringList m_lines;
};
