#include "store/SettingsStore.h"

#include "FileSizeLimit.h"
#include "TestPaths.h"
#include "store/AppPaths.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

class SettingsStoreTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<TemporaryHome> m_home;
    QString m_path;

    void write(const QByteArray& content)
    {
        QDir().mkpath(QFileInfo(m_path).absolutePath());
        QFile file(m_path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(content);
    }

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<TemporaryHome>();
        m_path = AppPaths::settingsFilePath();
        QVERIFY(m_path.startsWith(m_home->path()));
    }

    void cleanup() { m_home.reset(); }

    // Every type survives a write and a fresh load from disk; a removal too,
    // and numbers JSON cannot hold are refused.
    void roundTrip()
    {
        const QDateTime date =
            QDateTime::fromString(u"2026-03-04T05:06:07.089+02:00"_s, Qt::ISODateWithMs);
        const QHash<QString, double> dictionary{{u"brave-search"_s, 1.5}, {u"notion"_s, -2.0}};
        const QStringList list{u"notion"_s, u""_s, u"resend"_s};
        {
            SettingsStore store(m_path);
            QSignalSpy changed(&store, &SettingsStore::valueChanged);
            QVERIFY(store.setBool(u"utilityWindowAutoShow"_s, true));
            QVERIFY(store.setString(u"selectedAudioDevice"_s, u"alsa_input.usb-Mic 🎤"_s));
            QVERIFY(store.setDouble(u"tiny"_s, -1e-300));
            QVERIFY(store.setDoubleDictionary(u"dictionary"_s, dictionary));
            QVERIFY(store.setDoubleDictionary(u"emptyDictionary"_s, {}));
            QVERIFY(store.setStringList(u"list"_s, list));
            QVERIFY(store.setStringList(u"emptyList"_s, {}));
            QVERIFY(store.setDate(u"lastSyncDate"_s, date));
            QVERIFY(store.setBool(u"removed"_s, true) && store.remove(u"removed"_s));
            QCOMPARE(changed.count(), 10);
            QVERIFY(!store.setDouble(u"nan"_s, std::nan("")));
            QVERIFY(!store.setDoubleDictionary(u"infinite"_s, {{u"x"_s, INFINITY}}));
        }
        const SettingsStore store(m_path);
        QCOMPARE(store.boolValue(u"utilityWindowAutoShow"_s), true);
        QCOMPARE(store.stringValue(u"selectedAudioDevice"_s), u"alsa_input.usb-Mic 🎤"_s);
        QCOMPARE(store.doubleValue(u"tiny"_s), -1e-300);
        QCOMPARE(store.doubleDictionary(u"dictionary"_s), dictionary);
        QCOMPARE(store.doubleDictionary(u"emptyDictionary"_s), (QHash<QString, double>{}));
        QCOMPARE(store.stringList(u"list"_s), list);
        QCOMPARE(store.stringList(u"emptyList"_s), QStringList{});
        QCOMPARE(store.dateValue(u"lastSyncDate"_s), date);
        for (const QString& key : {u"removed"_s, u"nan"_s, u"infinite"_s}) {
            QVERIFY(!store.contains(key));
        }
    }

    // Missing keys and values of another type read as absent; a missing Bool is false.
    void absentValues()
    {
        write(R"({"text": "x", "number": 3, "mixedList": ["a", 1],
                 "mixedDictionary": {"a": 1, "b": "two"}, "badDate": "yesterday"})");
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
        write(content);
        if (keptAside) {
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"unreadable.*moved it to"_s));
        }
        SettingsStore store(m_path);
        QCOMPARE(store.allValues(), QJsonObject());
        const QDir folder = QFileInfo(m_path).absoluteDir();
        const QStringList aside = folder.entryList({u"settings.json.corrupt-*"_s}, QDir::Files);
        QCOMPARE(aside.size(), keptAside ? 1 : 0);
        if (keptAside) {
            QCOMPARE(TestPaths::readFile(folder.filePath(aside.first())), content);
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
        const QByteArray before = TestPaths::readFile(m_path);
        {
            const FileSizeLimit full(static_cast<rlim_t>(before.size()) + 16);
            QTest::ignoreMessage(QtWarningMsg,
                                 QRegularExpression(u"Settings could not be saved"_s));
            QVERIFY(!store.setStringList(u"enabledIntegrations"_s, QStringList(200, u"notion"_s)));
        }
        QVERIFY(!store.lastError().isEmpty());
        QCOMPARE(TestPaths::readFile(m_path), before);
        QCOMPARE(QFileInfo(m_path).absoluteDir().entryList(QDir::Files | QDir::Hidden),
                 QStringList{u"settings.json"_s});

        QVERIFY(store.setBool(u"utilityWindowAutoShow"_s, true));
        QVERIFY(store.lastError().isEmpty());
        const SettingsStore reloaded(m_path);
        QCOMPARE(reloaded.stringList(u"enabledIntegrations"_s)->size(), 200);
        QCOMPARE(reloaded.boolValue(u"utilityWindowAutoShow"_s), true);
    }

    // A file where the settings folder should be: refused, kept in memory.
    void folderThatCannotExist()
    {
        m_path = m_home->path() + u"/blocker/settings.json"_s;
        QVERIFY(QFile(m_home->path() + u"/blocker"_s).open(QIODevice::WriteOnly));
        SettingsStore store(m_path);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"Could not create the folder"_s));
        QVERIFY(!store.setBool(u"x"_s, true));
        QVERIFY(!store.lastError().isEmpty());
        QCOMPARE(store.boolValue(u"x"_s), true);
    }
};

QTEST_GUILESS_MAIN(SettingsStoreTest)
#include "SettingsStoreTest.moc"
