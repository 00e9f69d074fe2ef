#include "models/ModelCatalogueModel.h"

#include "ModelHostServer.h"
#include "TestPaths.h"
#include "models/ModelDownloader.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

// Big enough for the host to send it in several writes, so progress shows part-way.
const QByteArray modelBytes(300 * 1024, 'm');

void writeFile(const QString& path, const QByteArray& content)
{
    QVERIFY(QDir().mkpath(QFileInfo(path).absolutePath()));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(content), content.size());
}

} // namespace

// The catalogue rows over a real downloader, fetching from a local model host
// into a fresh home per test.
class ModelCatalogueModelTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<ModelHostServer> m_host;
    std::unique_ptr<TemporaryHome> m_home;

    static QVariant value(const ModelCatalogueModel& model, const QString& name, int role)
    {
        const int row = static_cast<int>(ModelDownloader::modelNames().indexOf(name));
        return model.index(row).data(role);
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_host = std::make_unique<ModelHostServer>();
        QVERIFY(m_host->isListening());
        m_host->serveData(u"ggml-tiny.en.bin"_s, modelBytes);
        m_host->serveData(u"ggml-base.en-q8_0.bin"_s, modelBytes);
    }

    void init() { m_home = std::make_unique<TemporaryHome>(); }
    void cleanup() { m_home.reset(); }

    void everyModelListed()
    {
        ModelDownloader downloader(m_host->url());
        writeFile(downloader.modelPath(u"small.en"_s), QByteArray(2048, 's'));
        ModelCatalogueModel model(downloader);
        QCOMPARE(model.rowCount(), 13);
        for (int row = 0; row < model.rowCount(); ++row) {
            const QString name = model.index(row).data(ModelCatalogueModel::NameRole).toString();
            QCOMPARE(name, ModelDownloader::modelNames().at(row));
            QCOMPARE(model.index(row).data(ModelCatalogueModel::DownloadedRole).toBool(),
                     name == u"small.en"_s);
            QVERIFY(ModelCatalogueModel::approximateDownloadSize(name).has_value());
        }
        QCOMPARE(value(model, u"tiny.en"_s, ModelCatalogueModel::SizeTextRole), u"about 75 MB"_s);
        QCOMPARE(value(model, u"large-v3"_s, ModelCatalogueModel::SizeTextRole), u"about 2.9 GB"_s);
        // A file on disk shows its own size, not the catalogue's.
        QCOMPARE(value(model, u"small.en"_s, ModelCatalogueModel::SizeTextRole), u"2 KB"_s);
    }

    void sizeText_data()
    {
        QTest::addColumn<qint64>("bytes");
        QTest::addColumn<QString>("text");
        QTest::newRow("one byte") << qint64(1) << u"1 byte"_s;
        QTest::newRow("just under a KB") << qint64(1023) << u"1023 bytes"_s;
        QTest::newRow("rounds up to a MB") << qint64(1024 * 1024 - 1) << u"1.0 MB"_s;
        QTest::newRow("rounds up to 10 MB") << qint64(10 * 1024 * 1024 - 1) << u"10 MB"_s;
        QTest::newRow("rounds up to a GB") << qint64(1024) * 1024 * 1024 - 1 << u"1.0 GB"_s;
        QTest::newRow("negative") << qint64(-5) << u"0 bytes"_s;
    }

    void sizeText()
    {
        QFETCH(qint64, bytes);
        QFETCH(QString, text);
        QCOMPARE(ModelCatalogueModel::sizeText(bytes), text);
    }

    // Half the file arrives and the host holds the rest: only that row shows
    // the transfer, then it flips to downloaded with the file's real size.
    void downloadShowsProgress()
    {
        ModelDownloader downloader(m_host->url(u"/hold"_s));
        ModelCatalogueModel model(downloader);
        const int row = static_cast<int>(ModelDownloader::modelNames().indexOf(u"tiny.en"_s));
        QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);

        model.download(u"tiny.en"_s);
        QTRY_VERIFY(model.index(row).data(ModelCatalogueModel::ProgressRole).toDouble() > 0.4);
        QVERIFY(model.index(row).data(ModelCatalogueModel::ProgressRole).toDouble() < 1.0);
        QVERIFY(!model.index(row).data(ModelCatalogueModel::DownloadedRole).toBool());
        for (int other = 0; other < model.rowCount(); ++other) {
            QCOMPARE(model.index(other).data(ModelCatalogueModel::DownloadingRole).toBool(),
                     other == row);
        }
        for (const QList<QVariant>& signal : std::as_const(changed)) {
            QCOMPARE(signal.at(0).toModelIndex().row(), row);
            QVERIFY(signal.at(2).value<QList<int>>().contains(ModelCatalogueModel::ProgressRole));
        }

        m_host->release();
        QTRY_VERIFY(model.index(row).data(ModelCatalogueModel::DownloadedRole).toBool());
        QVERIFY(!model.index(row).data(ModelCatalogueModel::DownloadingRole).toBool());
        QCOMPARE(model.index(row).data(ModelCatalogueModel::ProgressRole).toDouble(), 1.0);
        QCOMPARE(model.index(row).data(ModelCatalogueModel::SizeTextRole), u"300 KB"_s);
        QCOMPARE(model.lastError(), QString());
    }

    void failedDownload_data()
    {
        QTest::addColumn<QString>("prefix");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("errorStart");
        QTest::newRow("host answers 404")
            << u"/status/404"_s << u"tiny.en"_s << u"The model host answered 404"_s;
        QTest::newRow("connection cut")
            << u"/cut"_s << u"base.en-q8"_s << u"The download ended after"_s;
        QTest::newRow("not a catalogue model")
            << QString() << u"tiny"_s << u"Unknown model \"tiny\""_s;
    }

    void failedDownload()
    {
        QFETCH(QString, prefix);
        QFETCH(QString, name);
        QFETCH(QString, errorStart);
        ModelDownloader downloader(m_host->url(prefix));
        ModelCatalogueModel model(downloader);
        model.download(name);
        QTRY_VERIFY(!model.lastError().isEmpty());
        QVERIFY2(model.lastError().startsWith(errorStart), qPrintable(model.lastError()));
        QVERIFY(!value(model, name, ModelCatalogueModel::DownloadedRole).toBool());
        // Trying again starts with a clean slate.
        model.download(name);
        QCOMPARE(model.lastError(), QString());
        QTRY_VERIFY(!model.lastError().isEmpty());
    }

    // Cancelling is the user's choice, not an error; a second download while
    // one runs is refused and says why.
    void cancelAndRefusal()
    {
        ModelDownloader downloader(m_host->url(u"/hold"_s));
        ModelCatalogueModel model(downloader);
        QSignalSpy finished(&downloader, &ModelDownloader::downloadFinished);
        model.download(u"tiny.en"_s);
        QTRY_VERIFY(value(model, u"tiny.en"_s, ModelCatalogueModel::ProgressRole).toDouble() > 0);
        model.download(u"base.en-q8"_s);
        QTRY_COMPARE(model.lastError(),
                     u"Another model (tiny.en) is downloading; one download runs at a time"_s);
        QVERIFY(value(model, u"tiny.en"_s, ModelCatalogueModel::DownloadingRole).toBool());

        model.cancel();
        QTRY_COMPARE(finished.size(), 2);
        QVERIFY(!value(model, u"tiny.en"_s, ModelCatalogueModel::DownloadingRole).toBool());
        QVERIFY(!value(model, u"tiny.en"_s, ModelCatalogueModel::DownloadedRole).toBool());
        QCOMPARE(model.lastError(), u"Another model (tiny.en) is downloading; one download runs "
                                    "at a time"_s);
        m_host->release();
    }

    void remove_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("removed");
        QTest::addColumn<QString>("errorStart");
        QTest::newRow("downloaded") << u"medium.en"_s << true << QString();
        QTest::newRow("already gone") << u"small.en"_s << true << QString();
        QTest::newRow("cannot be removed")
            << u"tiny.en"_s << false << u"tiny.en could not be deleted: Quillmoss cannot remove "_s;
        QTest::newRow("not a catalogue model") << u"huge"_s << false << u"Unknown model"_s;
    }

    void remove()
    {
        QFETCH(QString, name);
        QFETCH(bool, removed);
        QFETCH(QString, errorStart);
        ModelDownloader downloader(m_host->url());
        writeFile(downloader.modelPath(u"medium.en"_s), "weights");
        // A folder where the model's file should be cannot be removed as a
        // file, whoever runs the test.
        writeFile(downloader.modelPath(u"tiny.en"_s) + u"/inside"_s, "x");
        ModelCatalogueModel model(downloader);

        QCOMPARE(model.remove(name), removed);
        QVERIFY2(model.lastError().startsWith(errorStart), qPrintable(model.lastError()));
        QCOMPARE(model.lastError().isEmpty(), errorStart.isEmpty());
        if (removed) {
            QVERIFY(!QFile::exists(downloader.modelPath(name)));
            QVERIFY(!value(model, name, ModelCatalogueModel::DownloadedRole).toBool());
            QVERIFY(value(model, name, ModelCatalogueModel::SizeTextRole)
                        .toString()
                        .startsWith(u"about "_s));
        }
    }
};

QTEST_GUILESS_MAIN(ModelCatalogueModelTest)
#include "ModelCatalogueModelTest.moc"
