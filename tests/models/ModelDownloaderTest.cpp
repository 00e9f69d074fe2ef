#include "models/ModelDownloader.h"

#include "LogCapture.h"
#include "ModelHostServer.h"
#include "TestPaths.h"

#include <QDir>
#include <QSignalSpy>
#include <QTest>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

const QByteArray previousModel = "the model that was here before";

bool waitFor(const QFuture<ModelDownloadResult>& future)
{
    return QTest::qWaitFor([&] { return future.isFinished(); }, 30000);
}

void writeFile(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(content), content.size());
}

// What the log says about the models folder and the downloads, in order.
const QStringList downloadLogPrefixes = {u"📥"_s, u"✅"_s, u"❌"_s, u"🔍"_s, u"⏹️"_s};

} // namespace

// ModelDownloader against a local model host, in a fresh home per test.
class ModelDownloaderTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<ModelHostServer> m_host;
    std::unique_ptr<TemporaryHome> m_home;
    QByteArray m_tiny;
    QByteArray m_base;

    QString modelsFolder() const { return m_home->path() + u"/Documents/WhisperModels"_s; }

    QStringList folderEntries() const
    {
        return QDir(modelsFolder())
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    }

    QString hostError(const QString& prefix, int status, const QString& file) const
    {
        static const QHash<int, QString> reasons = {{404, u"Not Found"_s},
                                                    {500, u"Internal Server Error"_s}};
        return u"The model host answered %1 %2 for %3/%4"_s.arg(
            QString::number(status), reasons.value(status), m_host->url(prefix).toString(), file);
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_host = std::make_unique<ModelHostServer>();
        QVERIFY(m_host->isListening());
        const QString models = TestPaths::sharedTestData() + u"/models/"_s;
        m_tiny = TestPaths::readFile(models + u"for-tests-ggml-tiny.en.bin"_s);
        m_base = TestPaths::readFile(models + u"for-tests-ggml-base.en.bin"_s);
        QVERIFY(m_tiny.size() > 100'000 && m_tiny != m_base);
        m_host->serveData(u"ggml-tiny.en.bin"_s, m_tiny);
        m_host->serveData(u"ggml-small.en.bin"_s, m_base);
        m_host->serveData(u"ggml-base.en-q8_0.bin"_s, m_base);
        m_host->serveData(u"ggml-large-v3-turbo-q8_0.bin"_s, m_base);
    }

    void init() { m_home = std::make_unique<TemporaryHome>(); }
    void cleanup() { m_home.reset(); }

    // Half the body arrives, then the host holds the rest: progress is
    // published part-way, and the model's file only appears at the end.
    void downloadWithProgress()
    {
        ModelDownloader downloader(m_host->url(u"/hold"_s));
        QCOMPARE(downloader.downloadStatus(), u"Ready"_s);
        QList<double> published;
        connect(&downloader, &ModelDownloader::downloadProgressChanged, this,
                [&] { published.append(downloader.downloadProgress()); });
        QSignalSpy finished(&downloader, &ModelDownloader::downloadFinished);
        const LogCapture log;

        const QFuture<ModelDownloadResult> future = downloader.download(u"tiny.en"_s);
        QVERIFY(downloader.isDownloading());
        QCOMPARE(downloader.downloadingModel(), u"tiny.en"_s);
        QCOMPARE(downloader.downloadStatus(), u"Now downloading model: tiny.en"_s);
        QTRY_VERIFY(downloader.downloadProgress() > 0.49);
        QVERIFY(downloader.downloadProgress() < 1.0);
        QVERIFY(!downloader.isDownloaded(u"tiny.en"_s));

        m_host->release();
        QVERIFY(waitFor(future));
        QCOMPARE(future.result().ok, true);
        QCOMPARE(future.result().error, QString());
        QCOMPARE(TestPaths::readFile(downloader.modelPath(u"tiny.en"_s)), m_tiny);
        QCOMPARE(folderEntries(), QStringList{u"ggml-tiny.en.bin"_s});
        QVERIFY(!downloader.isDownloading());
        QCOMPARE(downloader.downloadingModel(), QString());
        QCOMPARE(downloader.downloadStatus(), u"Downloaded tiny.en"_s);
        QCOMPARE(finished.size(), 1);
        QCOMPARE(finished.first(), (QVariantList{u"tiny.en"_s, true, QString()}));

        QVERIFY(published.size() >= 2);
        QVERIFY(published.size() <= 101); // steps of at least one percent
        QCOMPARE(published.last(), 1.0);
        QVERIFY(std::adjacent_find(published.begin(), published.end(), std::greater_equal()) ==
                published.end());

        QCOMPARE(log.lines({u"📁"_s, u"📥"_s, u"✅"_s}),
                 (QStringList{u"📁 Created WhisperModels directory at: "_s + modelsFolder(),
                              u"📥 Downloading Whisper model: tiny.en"_s,
                              u"✅ Model downloaded successfully: tiny.en"_s}));
    }

    void failuresKeepThePreviousFile_data()
    {
        QTest::addColumn<QUrl>("baseUrl");
        QTest::addColumn<QString>("model");
        QTest::addColumn<QString>("error"); // how the error text starts
        const QUrl nothingListening(u"http://127.0.0.1:1"_s);
        QTest::newRow("404") << m_host->url(u"/status/404"_s) << u"tiny.en"_s
                             << hostError(u"/status/404"_s, 404, u"ggml-tiny.en.bin"_s);
        QTest::newRow("500") << m_host->url(u"/status/500"_s) << u"tiny.en"_s
                             << hostError(u"/status/500"_s, 500, u"ggml-tiny.en.bin"_s);
        QTest::newRow("not on the host")
            << m_host->url() << u"medium.en"_s << hostError({}, 404, u"ggml-medium.en.bin"_s);
        QTest::newRow("connection cut mid-body")
            << m_host->url(u"/cut"_s) << u"tiny.en"_s
            << u"The download ended after %1 of %2 bytes"_s.arg(m_tiny.size() / 2)
                   .arg(m_tiny.size());
        QTest::newRow("nothing listening")
            << nothingListening << u"tiny.en"_s
            << u"The connection to the model host failed: Connection refused"_s;
    }

    void failuresKeepThePreviousFile()
    {
        QFETCH(QUrl, baseUrl);
        QFETCH(QString, model);
        QFETCH(QString, error);
        ModelDownloader downloader(baseUrl);
        const QString path = downloader.modelPath(model);
        writeFile(path, previousModel);
        QSignalSpy finished(&downloader, &ModelDownloader::downloadFinished);
        const LogCapture log;

        const QFuture<ModelDownloadResult> future = downloader.download(model);
        QVERIFY(waitFor(future));
        QCOMPARE(future.result().ok, false);
        const QString text = future.result().error;
        QVERIFY2(text.startsWith(error), qPrintable(text));
        QCOMPARE(TestPaths::readFile(path), previousModel);
        QCOMPARE(folderEntries(), QStringList{QFileInfo(path).fileName()});
        QVERIFY(!downloader.isDownloading());
        QCOMPARE(downloader.downloadStatus(), u"Download failed: "_s + text);
        QCOMPARE(finished.size(), 1);
        QCOMPARE(finished.first(), (QVariantList{model, false, text}));
        QCOMPARE(log.lines(downloadLogPrefixes),
                 (QStringList{u"📥 Downloading Whisper model: "_s + model,
                              u"❌ Model download failed: "_s + text}));
    }

    void replacesTheFile_data()
    {
        QTest::addColumn<QString>("prefix");
        QTest::addColumn<QString>("model");
        QTest::addColumn<QString>("localName");
        QTest::addColumn<QStringList>("requested");
        QTest::newRow("plain") << QString() << u"tiny.en"_s << u"ggml-tiny.en.bin"_s
                               << QStringList{u"/ggml-tiny.en.bin"_s};
        QTest::newRow("after a redirect")
            << u"/redirect"_s << u"tiny.en"_s << u"ggml-tiny.en.bin"_s
            << QStringList{u"/redirect/ggml-tiny.en.bin"_s, u"/ggml-tiny.en.bin"_s};
        // Stored under the model's name, not the host's file name.
        QTest::newRow("quantized")
            << QString() << u"large-v3-turbo-q8"_s << u"ggml-large-v3-turbo-q8.bin"_s
            << QStringList{u"/ggml-large-v3-turbo-q8_0.bin"_s};
    }

    void replacesTheFile()
    {
        QFETCH(QString, prefix);
        QFETCH(QString, model);
        QFETCH(QString, localName);
        QFETCH(QStringList, requested);
        ModelDownloader downloader(m_host->url(prefix));
        const QString path = downloader.modelPath(model);
        QCOMPARE(path, modelsFolder() + u'/' + localName);
        writeFile(path, previousModel);
        QVERIFY(downloader.isDownloaded(model));
        QSignalSpy changed(&downloader, &ModelDownloader::downloadedModelsChanged);
        const qsizetype before = m_host->requests().size();

        const QFuture<ModelDownloadResult> future = downloader.download(model);
        QVERIFY(waitFor(future));
        QVERIFY2(future.result().ok, qPrintable(future.result().error));
        QCOMPARE(m_host->requests().mid(before), requested);
        QCOMPARE(TestPaths::readFile(path), model == u"tiny.en"_s ? m_tiny : m_base);
        QCOMPARE(folderEntries(), QStringList{localName});
        QCOMPARE(changed.size(), 1);
    }

    void stoppedMidway_data()
    {
        QTest::addColumn<bool>("destroy");
        QTest::newRow("cancelled") << false;
        QTest::newRow("downloader destroyed") << true;
    }

    // The transfer ends, the connection closes, and only the previous file is left.
    void stoppedMidway()
    {
        QFETCH(bool, destroy);
        auto downloader = std::make_unique<ModelDownloader>(m_host->url(u"/hold"_s));
        const QString path = downloader->modelPath(u"tiny.en"_s);
        writeFile(path, previousModel);
        const QFuture<ModelDownloadResult> future = downloader->download(u"tiny.en"_s);
        QTRY_VERIFY(m_host->heldCount() == 1 && downloader->downloadProgress() > 0.49);

        if (destroy) {
            downloader.reset();
        } else {
            downloader->cancelDownload();
        }
        QVERIFY(waitFor(future));
        QCOMPARE(future.result().ok, false);
        QVERIFY(!future.result().error.isEmpty());
        if (!destroy) {
            QCOMPARE(future.result().error, u"The download of tiny.en was cancelled"_s);
            QCOMPARE(downloader->downloadStatus(), u"Download cancelled"_s);
            QVERIFY(!downloader->isDownloading());
        }
        QTRY_COMPARE(m_host->heldCount(), 0);
        QCOMPARE(TestPaths::readFile(path), previousModel);
        QCOMPARE(folderEntries(), QStringList{u"ggml-tiny.en.bin"_s});
    }

    // A second request for the same model joins the running transfer; one for
    // another model, or for an unknown one, is refused at once.
    void oneDownloadAtATime()
    {
        ModelDownloader downloader(m_host->url(u"/hold"_s));
        QSignalSpy finished(&downloader, &ModelDownloader::downloadFinished);
        const qsizetype before = m_host->requests().size();
        const QFuture<ModelDownloadResult> first = downloader.download(u"tiny.en"_s);
        const QFuture<ModelDownloadResult> joined = downloader.download(u"tiny.en"_s);
        const QFuture<ModelDownloadResult> other = downloader.download(u"small.en"_s);
        const QFuture<ModelDownloadResult> unknown = downloader.download(u"huge.en"_s);

        QVERIFY(other.isFinished() && unknown.isFinished());
        QCOMPARE(finished.size(), 0); // never from inside the call
        QCOMPARE(other.result().error,
                 u"Another model (tiny.en) is downloading; one download runs at a time"_s);
        QVERIFY(
            unknown.result().error.startsWith(u"Unknown model \"huge.en\"; the models are: "_s));
        QCOMPARE(downloader.downloadingModel(), u"tiny.en"_s);

        QTRY_COMPARE(m_host->heldCount(), 1);
        m_host->release();
        QVERIFY(waitFor(first) && waitFor(joined));
        QVERIFY(first.result().ok && joined.result().ok);
        QCOMPARE(m_host->requests().size() - before, 1);
        QStringList names;
        for (const QList<QVariant>& arguments : std::as_const(finished)) {
            names.append(arguments.at(0).toString());
        }
        names.sort();
        QCOMPARE(names, (QStringList{u"huge.en"_s, u"small.en"_s, u"tiny.en"_s}));
    }

    void ensure_data()
    {
        QTest::addColumn<QString>("model"); // empty: the default model
        QTest::addColumn<QString>("prefix");
        QTest::addColumn<bool>("present");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<QString>("status");
        QTest::addColumn<QStringList>("log");
        const QString failure500 = hostError(u"/status/500"_s, 500, u"ggml-base.en-q8_0.bin"_s);
        const QString failure404 = hostError(u"/status/404"_s, 404, u"ggml-small.en.bin"_s);
        QTest::newRow("default, present")
            << QString() << QString() << true << true << u"Checking for existing model..."_s
            << QStringList{u"🔍 Checking for default model: base.en-q8"_s};
        QTest::newRow("default, missing")
            << QString() << QString() << false << true << u"Downloaded base.en-q8"_s
            << QStringList{u"🔍 Checking for default model: base.en-q8"_s,
                           u"📥 Downloading Whisper model: base.en-q8"_s,
                           u"✅ Model downloaded successfully: base.en-q8"_s,
                           u"✅ Default model download completed successfully"_s};
        QTest::newRow("default, host fails")
            << QString() << u"/status/500"_s << false << false
            << u"Download failed: "_s + failure500
            << QStringList{u"🔍 Checking for default model: base.en-q8"_s,
                           u"📥 Downloading Whisper model: base.en-q8"_s,
                           u"❌ Model download failed: "_s + failure500,
                           u"❌ Failed to download default model: "_s + failure500};
        QTest::newRow("small.en, present")
            << u"small.en"_s << QString() << true << true << u"Checking small.en model..."_s
            << QStringList{u"🔍 Checking for model: small.en"_s};
        QTest::newRow("small.en, missing")
            << u"small.en"_s << QString() << false << true << u"Downloaded small.en"_s
            << QStringList{u"🔍 Checking for model: small.en"_s,
                           u"📥 Downloading Whisper model: small.en"_s,
                           u"✅ Model downloaded successfully: small.en"_s,
                           u"✅ 'small.en' download completed successfully"_s};
        QTest::newRow("small.en, host fails")
            << u"small.en"_s << u"/status/404"_s << false << false
            << u"Download failed: "_s + failure404
            << QStringList{u"🔍 Checking for model: small.en"_s,
                           u"📥 Downloading Whisper model: small.en"_s,
                           u"❌ Model download failed: "_s + failure404,
                           u"❌ Failed to download 'small.en' model: "_s + failure404};
    }

    void ensure()
    {
        QFETCH(QString, model);
        QFETCH(QString, prefix);
        QFETCH(bool, present);
        QFETCH(bool, ok);
        QFETCH(QString, status);
        QFETCH(QStringList, log);
        ModelDownloader downloader(m_host->url(prefix));
        const QString name = model.isEmpty() ? ModelDownloader::defaultModel() : model;
        if (present) {
            writeFile(downloader.modelPath(name), previousModel);
        }
        const qsizetype before = m_host->requests().size();
        const LogCapture capture;

        const QFuture<ModelDownloadResult> future =
            model.isEmpty() ? downloader.ensureDefaultModel() : downloader.ensureModel(model);
        QVERIFY(waitFor(future));
        QCOMPARE(future.result().ok, ok);
        QCOMPARE(downloader.downloadStatus(), status);
        QCOMPARE(capture.lines(downloadLogPrefixes), log);
        QCOMPARE(m_host->requests().size() - before, present ? 0 : 1);
        QCOMPARE(downloader.isDownloaded(name), present || ok);
    }

    void modelsDirectory_data()
    {
        QTest::addColumn<QString>("inTheWay"); // a file at this path of the home, if any
        QTest::addColumn<bool>("mkdirFirst");
        QTest::addColumn<QString>("logLine"); // how it starts; %1: the WhisperModels folder
        QTest::newRow("created") << QString() << false
                                 << u"📁 Created WhisperModels directory at: %1"_s;
        QTest::newRow("existing") << QString() << true
                                  << u"📁 Using existing WhisperModels directory at: %1"_s;
        QTest::newRow("a file in its place")
            << u"Documents/WhisperModels"_s << false
            << u"❌ Failed to create WhisperModels directory: %1: "_s;
        QTest::newRow("no Documents folder")
            << u"Documents"_s << false << u"❌ Could not access documents directory"_s;
    }

    // Where it cannot be had, downloads are refused before anything is fetched.
    void modelsDirectory()
    {
        QFETCH(QString, inTheWay);
        QFETCH(bool, mkdirFirst);
        QFETCH(QString, logLine);
        if (!inTheWay.isEmpty()) {
            writeFile(m_home->path() + u'/' + inTheWay, "not a folder");
        }
        if (mkdirFirst) {
            QVERIFY(QDir().mkpath(modelsFolder()));
        }
        ModelDownloader downloader(m_host->url());
        const LogCapture log;

        const std::optional<QString> folder = downloader.modelsDirectory();
        // Without the line AppPaths adds when it cannot make the Documents folder.
        const QStringList lines =
            log.lines({u"📁"_s, u"❌ Failed to create WhisperModels"_s, u"❌ Could not access"_s});
        QCOMPARE(lines.size(), 1);
        QVERIFY2(lines.first().startsWith(QString(logLine).replace(u"%1"_s, modelsFolder())),
                 qPrintable(lines.first()));
        QCOMPARE(folder.has_value(), inTheWay.isEmpty());
        if (folder) {
            QCOMPARE(*folder, modelsFolder());
            QVERIFY(QFileInfo(modelsFolder()).isDir());
            return;
        }
        const qsizetype before = m_host->requests().size();
        const QFuture<ModelDownloadResult> future = downloader.download(u"tiny.en"_s);
        QVERIFY(future.isFinished());
        QCOMPARE(future.result().error,
                 u"The WhisperModels folder in your Documents folder cannot be used"_s);
        QCOMPARE(m_host->requests().size(), before);
        QVERIFY(!downloader.isDownloading());
    }
};

QTEST_GUILESS_MAIN(ModelDownloaderTest)
#include "ModelDownloaderTest.moc"
