#include "core/Logging.h"

#include "TestPaths.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

class LoggingTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup()
    {
        Logging::uninstall();
        qunsetenv("QUILLMOSS_LOG_RULES");
    }

    // Info and above by default; the option's rules, then the environment's, win.
    void filter()
    {
        QTemporaryDir directory;
        LogOptions options;
        options.directory = directory.path() + u"/logs"_s; // created on first line
        options.toStderr = false;
        Logging::install(options);
        qCWarning(lcKeychain) << "warning line";
        qCInfo(lcSettings) << "info line";
        qCDebug(lcSettings) << "hidden debug line";
        options.filterRules = u"com.quillmoss.settings.debug=true"_s;
        Logging::install(options);
        qCDebug(lcSettings) << "debug by option";
        qCDebug(lcKeychain) << "still hidden";
        qputenv("QUILLMOSS_LOG_RULES",
                "com.quillmoss.keychain.debug=true;com.quillmoss.settings.info=false");
        Logging::install(options);
        qCDebug(lcKeychain) << "debug by environment";
        qCInfo(lcSettings) << "info switched off";

        const QByteArray log =
            TestPaths::readFile(Logging::logFilePath(options.directory, QDate::currentDate()));
        for (const char* kept :
             {"warning line", "info line", "debug by option", "debug by environment"}) {
            QVERIFY2(log.contains(kept), kept);
        }
        for (const char* dropped : {"hidden debug line", "still hidden", "info switched off"}) {
            QVERIFY2(!log.contains(dropped), dropped);
        }
    }

    // Only dated log files past the retention go; nothing else in the folder.
    void oldLogsArePruned()
    {
        QTemporaryDir directory;
        const QDate today = QDate::currentDate();
        const QStringList kept = {
            Logging::logFilePath(directory.path(), today.addDays(-Logging::retentionDays)),
            directory.filePath(u"quillmoss-notadate.log"_s), directory.filePath(u"other.log"_s)};
        const QString pruned =
            Logging::logFilePath(directory.path(), today.addDays(-Logging::retentionDays - 1));
        for (const QString& path : kept + QStringList{pruned}) {
            QVERIFY(QFile(path).open(QIODevice::WriteOnly));
        }
        LogOptions options;
        options.directory = directory.path();
        options.toStderr = false;
        Logging::install(options);
        QVERIFY(!QFile::exists(pruned));
        for (const QString& path : kept) {
            QVERIFY2(QFile::exists(path), qPrintable(path));
        }
    }
};

QTEST_GUILESS_MAIN(LoggingTest)
#include "LoggingTest.moc"
