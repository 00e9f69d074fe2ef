#include "protocol/Logging.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

class LoggingTest : public QObject
{
    Q_OBJECT

private:
    static QString todaysLog(const QString& directory)
    {
        QFile file(Logging::logFilePath(directory, QDate::currentDate()));
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    }

private Q_SLOTS:
    void cleanup()
    {
        Logging::uninstall();
        qunsetenv("QUILLMOSS_LOG_RULES");
    }

    void lineFormat_data()
    {
        QTest::addColumn<QString>("category");
        QTest::addColumn<bool>("withLocation");
        QTest::newRow("mcp") << u"com.quillmoss.mcp"_s << true;
        QTest::newRow("keychain") << u"com.quillmoss.keychain"_s << false;
        QTest::newRow("default") << u"default"_s << false;
    }

    void lineFormat()
    {
        QFETCH(QString, category);
        QFETCH(bool, withLocation);
        const QByteArray name = category.toUtf8();
        const QMessageLogContext context("/src/mcp/MCPRemoteService.cpp", 42,
                                         "void MCPRemoteService::connect()", name.constData());
        const QDateTime when(QDate(2026, 1, 2), QTime(3, 4, 5, 6));
        const QString line = Logging::formatLine(QtWarningMsg, context, u"✅ Connected"_s, when);
        QVERIFY2(line.startsWith(u"2026-01-02 03:04:05.006 W "_s), qPrintable(line));
        QVERIFY(line.contains(u"✅ Connected"_s));
        QCOMPARE(line.contains(u'[' + category + u']'), category != u"default"_s);
        QCOMPARE(line.endsWith(
                     u"✅ Connected (MCPRemoteService.cpp:42, void MCPRemoteService::connect())"_s),
                 withLocation);
    }

    void filterAndFile()
    {
        QTemporaryDir directory;
        LogOptions options;
        options.directory = directory.path() + u"/logs"_s; // created on first line
        options.toStderr = false;
        Logging::install(options);
        qCWarning(lcKeychain) << "warning line";
        qCInfo(lcSettings) << "info line";
        qCDebug(lcSettings) << "hidden debug line";
        const QString log = todaysLog(options.directory);
        QVERIFY(log.contains(u"warning line"_s));
        QVERIFY(log.contains(u"info line"_s));
        QVERIFY(!log.contains(u"hidden debug line"_s));

        options.filterRules = u"com.quillmoss.settings.debug=true"_s;
        Logging::install(options);
        qCDebug(lcSettings) << "debug by option";
        qCDebug(lcKeychain) << "still hidden";
        qputenv("QUILLMOSS_LOG_RULES",
                "com.quillmoss.keychain.debug=true;com.quillmoss.settings.info=false");
        Logging::install(options);
        qCDebug(lcKeychain) << "debug by environment";
        qCInfo(lcSettings) << "info switched off";
        const QString after = todaysLog(options.directory);
        QVERIFY(after.contains(u"debug by option"_s));
        QVERIFY(!after.contains(u"still hidden"_s));
        QVERIFY(after.contains(u"debug by environment"_s));
        QVERIFY(!after.contains(u"info switched off"_s));
    }

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
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly));
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
