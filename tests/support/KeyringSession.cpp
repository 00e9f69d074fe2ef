#include "KeyringSession.h"

#include "TestPaths.h"

#include <QProcess>

using namespace Qt::StringLiterals;

namespace {

QString script()
{
    return TestPaths::sourceDirectory() + u"/scripts/keyring-session"_s;
}

} // namespace

KeyringSession::KeyringSession()
{
    QProcess process;
    process.start(script(), {u"start"_s, m_directory.path()});
    if (!process.waitForFinished(30000) || process.exitCode() != 0) {
        m_error = QString::fromUtf8(process.readAllStandardError());
        return;
    }
    const QStringList lines =
        QString::fromUtf8(process.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
    for (const QString& line : lines) {
        if (line.startsWith(u"DBUS_SESSION_BUS_ADDRESS="_s)) {
            m_busAddress = line.section(u'=', 1);
        }
    }
    if (m_busAddress.isEmpty()) {
        m_error = u"keyring-session printed no bus address"_s;
        return;
    }
    qputenv("DBUS_SESSION_BUS_ADDRESS", m_busAddress.toUtf8());
}

KeyringSession::~KeyringSession()
{
    stop();
}

void KeyringSession::stop()
{
    QProcess::execute(script(), {u"stop"_s, m_directory.path()});
}
