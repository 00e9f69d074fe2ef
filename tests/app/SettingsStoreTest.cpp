#include "app/SettingsStore.h"

#include "TestPaths.h"
#include "app/AppPaths.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

#include <csignal>
#include <sys/resource.h>

using namespace Qt::StringLiterals;

namespace {

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeAll(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(content);
}

// Caps the size of any file this process writes, as a full disk would.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        getrlimit(RLIMIT_FSIZE, &m_saved);
        // Past the limit write() fails with EFBIG instead of killing the process.
        m_previousHandler = std::signal(SIGXFSZ, SIG_IGN);
        rlimit limited = m_saved;
        limited.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limited);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &m_saved);
        std::signal(SIGXFSZ, m_previousHandler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit m_saved{};
    void (*m_previousHandler)(int) = nullptr;
};

} // namespace

class SettingsStoreTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<TemporaryHome> m_home;
    QString m_path;

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<TemporaryHome>();
        m_path = AppPaths::settingsFilePath();
        QVERIFY(m_path.startsWith(m_home->path()));
    }

    void cleanup() { m_home.reset(); }

    // Every type survives a write and a fresh load from disk.
    void roundTrip()
    {
        const QDateTime date =
            QDateTime::fromString(u"2026-03-04T05:06:07.089+02:00"_s, Qt::ISODateWithMs);
        const QHash<QString, double> dictionary{{u"brave-search"_s, 1.5}, {u"notion"_s, -2.0}};
        {
            SettingsStore store(m_path);
            QVERIFY(store.setBool(u"utilityWindowAutoShow"_s, true));
            QVERIFY(store.setBool(u"off"_s, false));
            QVERIFY(store.setString(u"selectedAudioDevice"_s, u"alsa_input.usb-Mic 🎤"_s));
            QVERIFY(store.setDouble(u"tiny"_s, 1e-300));
            QVERIFY(store.setDouble(u"negative"_s, -42.25));
            QVERIFY(store.setDoubleDictionary(u"dictionary"_s, dictionary));
            QVERIFY(store.setDoubleDictionary(u"emptyDictionary"_s, {}));
            QVERIFY(
                store.setStringList(u"enabledIntegrations"_s, {u"notion"_s, u""_s, u"resend"_s}));
            QVERIFY(store.setStringList(u"emptyList"_s, {}));
            QVERIFY(store.setDate(u"lastSyncDate"_s, date));
        }
        const SettingsStore store(m_path);
        QCOMPARE(store.boolValue(u"utilityWindowAutoShow"_s), true);
        QCOMPARE(store.boolValue(u"off"_s), false);
        QCOMPARE(store.stringValue(u"selectedAudioDevice"_s), u"alsa_input.usb-Mic 🎤"_s);
        QCOMPARE(store.doubleValue(u"tiny"_s), 1e-300);
        QCOMPARE(store.doubleValue(u"negative"_s), -42.25);
        QCOMPARE(store.doubleDictionary(u"dictionary"_s), dictionary);
        QCOMPARE(store.doubleDictionary(u"emptyDictionary"_s), (QHash<QString, double>{}));
        QCOMPARE(store.stringList(u"enabledIntegrations"_s),
                 (QStringList{u"notion"_s, u""_s, u"resend"_s}));
        QCOMPARE(store.stringList(u"emptyList"_s), QStringList{});
        QCOMPARE(store.dateValue(u"lastSyncDate"_s), date);
        QCOMPARE(store.dateValue(u"lastSyncDate"_s)->toMSecsSinceEpoch(), date.toMSecsSinceEpoch());
    }

    // Missing keys and values of another type read as absent; a missing Bool is false.
    void absentValues()
    {
        writeAll(m_path, "{\"text\": \"x\", \"number\": 3, \"mixedList\": [\"a\", 1],"
                         " \"mixedDictionary\": {\"a\": 1, \"b\": \"two\"},"
                         " \"badDate\": \"yesterday\"}");
        const SettingsStore store(m_path);
        QCOMPARE(store.boolValue(u"missing"_s), false);
        QCOMPARE(store.boolValue(u"text"_s), false);
        QCOMPARE(store.stringValue(u"missing"_s), std::nullopt);
        QCOMPARE(store.stringValue(u"number"_s), std::nullopt);
        QCOMPARE(store.doubleValue(u"text"_s), std::nullopt);
        QCOMPARE(store.stringList(u"mixedList"_s), std::nullopt);
        QCOMPARE(store.doubleDictionary(u"mixedDictionary"_s), std::nullopt);
        QCOMPARE(store.dateValue(u"badDate"_s), std::nullopt);
        QCOMPARE(store.dateValue(u"text"_s), std::nullopt);
        QVERIFY(!store.contains(u"missing"_s));
    }

    void nonFiniteNumbersAreRefused()
    {
        SettingsStore store(m_path);
        QVERIFY(!store.setDouble(u"n"_s, std::nan("")));
        QVERIFY(!store.setDoubleDictionary(u"d"_s, {{u"x"_s, INFINITY}}));
        QVERIFY(!store.contains(u"n"_s));
        QVERIFY(!store.contains(u"d"_s));
    }

    void removeAndNotify()
    {
        SettingsStore store(m_path);
        QSignalSpy changed(&store, &SettingsStore::valueChanged);
        QVERIFY(store.setString(u"selectedAudioDevice"_s, u"mic"_s));
        QVERIFY(store.remove(u"selectedAudioDevice"_s));
        QCOMPARE(changed.count(), 2);
        QCOMPARE(changed.at(0).at(0).toString(), u"selectedAudioDevice"_s);
        QVERIFY(!SettingsStore(m_path).contains(u"selectedAudioDevice"_s));
    }

    void unreadableFileIsMovedAside_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<bool>("keptAside");
        QTest::newRow("truncated object") << QByteArray("{\"selectedAudioDevice\": \"mi") << true;
        QTest::newRow("array at top level") << QByteArray("[1, 2]") << true;
        QTest::newRow("binary garbage") << QByteArray("\x00\xff\xfe{", 4) << true;
        QTest::newRow("empty file") << QByteArray() << false;
        QTest::newRow("only white space") << QByteArray(" \n\t") << false;
    }

    void unreadableFileIsMovedAside()
    {
        QFETCH(QByteArray, content);
        QFETCH(bool, keptAside);
        writeAll(m_path, content);
        if (keptAside) {
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"unreadable.*moved it to"_s));
        }
        SettingsStore store(m_path);
        QCOMPARE(store.allValues(), QJsonObject());

        const QDir folder = QFileInfo(m_path).absoluteDir();
        const QStringList aside = folder.entryList({u"settings.json.corrupt-*"_s}, QDir::Files);
        QCOMPARE(aside.size(), keptAside ? 1 : 0);
        if (keptAside) {
            QCOMPARE(readAll(folder.filePath(aside.first())), content);
        }
        QVERIFY(store.setBool(u"recovered"_s, true));
        QCOMPARE(SettingsStore(m_path).boolValue(u"recovered"_s), true);
    }

    // A write that cannot finish (the disk fills up) leaves the previous file
    // byte-for-byte and no temporary files; the value is saved with the next write.
    void failedWriteKeepsThePreviousFile()
    {
        SettingsStore store(m_path);
        QVERIFY(store.setString(u"selectedAudioDevice"_s, u"mic"_s));
        const QByteArray before = readAll(m_path);
        {
            const FileSizeLimit full(static_cast<rlim_t>(before.size()) + 16);
            QTest::ignoreMessage(QtWarningMsg,
                                 QRegularExpression(u"Settings could not be saved"_s));
            QVERIFY(!store.setStringList(u"enabledIntegrations"_s, QStringList(200, u"notion"_s)));
        }
        QVERIFY(!store.lastError().isEmpty());
        QCOMPARE(readAll(m_path), before);
        QCOMPARE(QFileInfo(m_path).absoluteDir().entryList(QDir::Files | QDir::Hidden),
                 QStringList{u"settings.json"_s});

        QVERIFY(store.setBool(u"utilityWindowAutoShow"_s, true));
        QVERIFY(store.lastError().isEmpty());
        const SettingsStore reloaded(m_path);
        QCOMPARE(reloaded.stringList(u"enabledIntegrations"_s)->size(), 200);
        QCOMPARE(reloaded.boolValue(u"utilityWindowAutoShow"_s), true);
    }

    void folderThatCannotExist()
    {
        // A file where the settings folder should be.
        const QString blocker = m_home->path() + u"/blocker"_s;
        writeAll(blocker, "not a folder");
        SettingsStore store(blocker + u"/quillmoss/settings.json"_s);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"Could not create the folder"_s));
        QVERIFY(!store.setBool(u"x"_s, true));
        QVERIFY(!store.lastError().isEmpty());
        QCOMPARE(store.boolValue(u"x"_s), true); // kept in memory
    }
};

QTEST_GUILESS_MAIN(SettingsStoreTest)
#include "SettingsStoreTest.moc"
