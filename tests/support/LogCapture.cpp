#include "LogCapture.h"

#include <QMutexLocker>

namespace {

// The message handler is a plain function, so it finds the capture here; one at a time.
LogCapture* active = nullptr;

} // namespace

LogCapture::LogCapture()
{
    active = this;
    m_previous = qInstallMessageHandler(&LogCapture::handle);
}

LogCapture::~LogCapture()
{
    qInstallMessageHandler(m_previous);
    active = nullptr;
}

QStringList LogCapture::lines() const
{
    const QMutexLocker lock(&m_mutex);
    return m_lines;
}

QStringList LogCapture::lines(const QStringList& prefixes) const
{
    QStringList result;
    for (const QString& line : lines()) {
        for (const QString& prefix : prefixes) {
            if (line.startsWith(prefix)) {
                result.append(line);
                break;
            }
        }
    }
    return result;
}

void LogCapture::handle(QtMsgType, const QMessageLogContext&, const QString& message)
{
    if (active != nullptr) {
        const QMutexLocker lock(&active->m_mutex);
        active->m_lines.append(message);
    }
}
