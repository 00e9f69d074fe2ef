#include "CliRunner.h"
#include "ModelHostServer.h"
#include "TestPaths.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTest>

#include <csignal>

using namespace Qt::StringLiterals;

// `quillmoss models` end to end, against a local model host and a temporary home.
class ModelsCommandTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<ModelHostServer> m_host;
    std::unique_ptr<TemporaryHome> m_home;
    QByteArray m_tiny;
    QByteArray m_small;

    QString modelsFolder() const { return m_home->path() + u"/Documents/WhisperModels"_s; }

    QStringList withHost(const QString& prefix, const QString& arguments) const
    {
        return QStringList{u"--model-base-url"_s, m_host->url(prefix).toString()} +
               arguments.split(u' ');
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_host = std::make_unique<ModelHostServer>();
        QVERIFY(m_host->isListening());
        const QString models = TestPaths::sharedTestData() + u"/models/"_s;
        m_tiny = TestPaths::readFile(models + u"for-tests-ggml-tiny.en.bin"_s);
        QVERIFY(!m_tiny.isEmpty());
        m_host->serveData(u"ggml-tiny.en.bin"_s, m_tiny);
        m_small = TestPaths::readFile(models + u"for-tests-ggml-small.en.bin"_s);
        m_host->serveData(u"ggml-small.en.bin"_s, m_small);
        m_home = std::make_unique<TemporaryHome>();
    }

    // Steps run in order and share the home's models folder.
    void session_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("out");    // exact standard output
        QTest::addColumn<QString>("errHas"); // standard error contains this
        const QString tinyPath = modelsFolder() + u"/ggml-tiny.en.bin\n"_s;
        const QString nowhere = u"http://127.0.0.1:1"_s;
        const auto row = [](const char* name, const QStringList& arguments, int exitCode,
                            const QString& out, const QString& errHas = {}) {
            QTest::newRow(name) << arguments << exitCode << out << errHas;
        };
        row("no verb", {u"models"_s}, 2, {}, u"models needs a verb"_s);
        row("no name", {u"models"_s, u"download"_s}, 2, {}, u"Usage:"_s);
        row("unknown model", {u"models"_s, u"path"_s, u"huge.en"_s}, 1, {},
            u"quillmoss: Unknown model \"huge.en\"; the models are: tiny.en, "_s);
        row("path, before it is there", {u"models"_s, u"path"_s, u"large-v3-turbo-q8"_s}, 0,
            modelsFolder() + u"/ggml-large-v3-turbo-q8.bin\n"_s);
        row("host answers 404", withHost(u"/status/404"_s, u"models download tiny.en"_s), 1, {},
            u"quillmoss: The model host answered 404 Not Found"_s);
        row("download", withHost({}, u"models download tiny.en"_s), 0, tinyPath,
            u"downloading tiny.en: 100%"_s);
        // An unreachable host shows that nothing is fetched.
        row("ensure, present",
            {u"--model-base-url"_s, nowhere, u"models"_s, u"ensure"_s, u"tiny.en"_s}, 0, tinyPath);
        row("download, host unreachable",
            {u"--model-base-url"_s, nowhere, u"models"_s, u"download"_s, u"tiny.en"_s}, 1, {},
            u"quillmoss: The connection to the model host failed: Connection refused"_s);
        row("delete", {u"models"_s, u"delete"_s, u"tiny.en"_s}, 0, {});
        row("delete, nothing left", {u"models"_s, u"delete"_s, u"tiny.en"_s}, 0, {});
        row("ensure, missing", withHost({}, u"models ensure tiny.en"_s), 0, tinyPath,
            u"downloading tiny.en: 100%"_s);
        row("download after a redirect", withHost(u"/redirect"_s, u"models download small.en"_s), 0,
            modelsFolder() + u"/ggml-small.en.bin\n"_s);
    }

    void session()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, out);
        QFETCH(QString, errHas);
        const CliRunner::Result result = CliRunner::run(arguments);
        QVERIFY2(result.exitCode == exitCode, qPrintable(result.err));
        QCOMPARE(result.out, out);
        QVERIFY2(result.err.contains(errHas), qPrintable(result.err));
    }

    // After the session: tiny.en and small.en are there.
    void list()
    {
        const CliRunner::Result json = CliRunner::run({u"--json"_s, u"models"_s, u"list"_s});
        QCOMPARE(json.exitCode, 0);
        const QJsonArray models = QJsonDocument::fromJson(json.out.toUtf8()).array();
        QCOMPARE(models.size(), 13);
        QStringList downloaded;
        for (const QJsonValue value : models) {
            const QJsonObject model = value.toObject();
            QCOMPARE(model.value(u"default"_s).toBool(), model.value(u"name"_s) == u"base.en-q8"_s);
            if (model.value(u"downloaded"_s).toBool()) {
                downloaded.append(model.value(u"name"_s).toString());
                const QByteArray& served =
                    model.value(u"name"_s) == u"tiny.en"_s ? m_tiny : m_small;
                QCOMPARE(model.value(u"size"_s).toInteger(), served.size());
            } else {
                QVERIFY(!model.contains(u"size"_s));
            }
        }
        QCOMPARE(downloaded, (QStringList{u"tiny.en"_s, u"small.en"_s}));

        const CliRunner::Result text = CliRunner::run({u"models"_s, u"list"_s});
        QCOMPARE(text.exitCode, 0);
        const QStringList lines = text.out.split(u'\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 13);
        QCOMPARE(lines.filter(u"not downloaded"_s).size(), 11);
        QVERIFY2(lines.first().startsWith(u"tiny.en  "_s) && lines.first().endsWith(u" KiB"_s),
                 qPrintable(lines.first()));
    }

    // Not on a terminal: one line per tenth at most, rising to 100%.
    void progressLines()
    {
        const CliRunner::Result result = CliRunner::run(withHost({}, u"models download tiny.en"_s));
        QCOMPARE(result.exitCode, 0);
        static const QRegularExpression line(u"^downloading tiny\\.en: (\\d+)%$"_s);
        QList<int> percents;
        for (const QString& text : result.err.split(u'\n', Qt::SkipEmptyParts)) {
            const QRegularExpressionMatch match = line.match(text);
            QVERIFY2(match.hasMatch(), qPrintable(text));
            percents.append(match.captured(1).toInt());
        }
        QVERIFY(percents.size() >= 2 && percents.size() <= 11);
        QCOMPARE(percents.first(), 0);
        QCOMPARE(percents.last(), 100);
        for (qsizetype i = 1; i < percents.size(); ++i) {
            QVERIFY(percents.at(i) / 10 > percents.at(i - 1) / 10);
        }
    }

    void interrupted_data()
    {
        QTest::addColumn<int>("signalNumber");
        QTest::newRow("Ctrl-C") << SIGINT;
        QTest::newRow("SIGTERM") << SIGTERM;
    }

    // Mid-transfer: the download is cancelled, the previous file stays and no
    // partial file is left.
    void interrupted()
    {
        QFETCH(int, signalNumber);
        const QString path = modelsFolder() + u"/ggml-tiny.en.bin"_s;
        QFile previous(path);
        QVERIFY(previous.open(QIODevice::WriteOnly));
        previous.write("previous");
        previous.close();

        const std::unique_ptr<QProcess> process =
            CliRunner::start(withHost(u"/hold"_s, u"models download tiny.en"_s));
        QTRY_COMPARE_WITH_TIMEOUT(m_host->heldCount(), 1, 15000);
        ::kill(static_cast<pid_t>(process->processId()), signalNumber);
        QVERIFY(process->waitForFinished(15000));
        const QString err = QString::fromUtf8(process->readAllStandardError());
        QVERIFY2(process->exitStatus() == QProcess::NormalExit,
                 qPrintable(u"ended by signal %1: %2"_s.arg(process->exitCode()).arg(err)));
        QCOMPARE(process->exitCode(), 1);
        QVERIFY2(err.contains(u"quillmoss: The download of tiny.en was cancelled"_s),
                 qPrintable(err));
        QTRY_COMPARE(m_host->heldCount(), 0);
        QCOMPARE(TestPaths::readFile(path), QByteArray("previous"));
        QCOMPARE(QDir(modelsFolder()).entryList(QDir::Files | QDir::Hidden),
                 (QStringList{u"ggml-small.en.bin"_s, u"ggml-tiny.en.bin"_s}));
    }
};

QTEST_GUILESS_MAIN(ModelsCommandTest)
#include "ModelsCommandTest.moc"
