#include "store/KeychainManager.h"

#include "KeyringSession.h"

#include <QProcess>
#include <QRegularExpression>
#include <QTest>

using namespace Qt::StringLiterals;

// Against a real gnome-keyring in a private D-Bus session.
class KeychainManagerTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<KeyringSession> m_keyring;
    KeychainManager m_keychain; // service "Quillmoss"

    // Writes an item the way another program would (secret-tool, its own schema).
    static bool storeWithSecretTool(const QString& account, const QByteArray& secret)
    {
        QProcess tool;
        tool.start(u"secret-tool"_s, {u"store"_s, u"--label=external"_s, u"service"_s,
                                      u"Quillmoss"_s, u"account"_s, account});
        tool.write(secret);
        tool.closeWriteChannel();
        return tool.waitForFinished(10000) && tool.exitCode() == 0;
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_keyring = std::make_unique<KeyringSession>();
        QVERIFY2(m_keyring->isRunning(), qPrintable(m_keyring->error()));
        QVERIFY(m_keychain.isReachable());
    }

    void init() { QVERIFY(m_keychain.deleteAllKeys()); }

    void keyAndValueRules_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("value");
        QTest::addColumn<bool>("valid");
        const auto key = [](const char* name, const QString& key, bool valid) {
            QTest::newRow(name) << key << u"value"_s << valid;
        };
        key("key of 100 characters", QString(100, u'k'), true);
        key("key of 101 characters", QString(101, u'k'), false);
        key("empty key", QString(), false);
        key("slash", u"a/b"_s, false);
        key("space", u"a b"_s, false);
        key("colon", u"a:b"_s, false);
        key("control character", u"a\tb"_s, false);
        key("emoji", u"key😀"_s, false);
        key("token key", u"com.quillmoss.token.expires_at"_s, true);
        key("hyphen and underscore", u"brave-search_2"_s, true);
        key("Cyrillic", u"ключ"_s, true);
        key("CJK", u"日本語キー"_s, true);
        key("Arabic-Indic digits", u"٣٤"_s, true);
        // One character of two code points (e + combining acute): 100 of them are 100 characters.
        key("100 decomposed characters", QString(u"e\u0301"_s).repeated(100), true);
        key("101 decomposed characters", QString(u"e\u0301"_s).repeated(101), false);
        const auto value = [](const char* name, const QString& value, bool valid) {
            QTest::newRow(name) << u"api-key"_s << value << valid;
        };
        value("value of 3000 characters", QString(3000, u'v'), true);
        value("value of 3001 characters", QString(3001, u'v'), false);
        value("empty value", QString(), false);
        value("multi-byte UTF-8", u"Grüße, 日本語, 😀 and a\nnew line"_s, true);
        // 3000 characters of four UTF-8 bytes and two UTF-16 units each.
        value("3000 emoji", u"😀"_s.repeated(3000), true);
        value("3001 emoji", u"😀"_s.repeated(3001), false);
        value("lone surrogate", QString(QChar(0xD800)) + u"abc"_s, false);
        value("surrounding spaces kept", u"  padded  "_s, true);
    }

    // A refused key or value is refused before the store is touched: nothing logged.
    void keyAndValueRules()
    {
        QFETCH(QString, key);
        QFETCH(QString, value);
        QFETCH(bool, valid);
        QTest::failOnWarning(QRegularExpression(u".*"_s));
        QCOMPARE(m_keychain.storeKey(value, key), valid);
        QCOMPARE(m_keychain.readKey(key), valid ? std::optional(value) : std::nullopt);
        QCOMPARE(m_keychain.allKeys(), valid ? QStringList{key} : QStringList{});
        // Deleting succeeds for any valid key ("api-key" is), stored or not.
        QCOMPARE(m_keychain.deleteKey(key), valid || key == u"api-key"_s);
        QCOMPARE(m_keychain.readKey(key), std::nullopt);
    }

    void servicesAreSeparate()
    {
        KeychainManager other(u"SomeOtherApp"_s);
        QVERIFY(other.storeKey(u"theirs"_s, u"shared-name"_s));
        QVERIFY(m_keychain.storeKey(u"ours"_s, u"shared-name"_s));
        QCOMPARE(m_keychain.readKey(u"shared-name"_s), u"ours"_s);

        QVERIFY(m_keychain.deleteAllKeys());
        QCOMPARE(m_keychain.allKeys(), QStringList{});
        QCOMPARE(other.readKey(u"shared-name"_s), u"theirs"_s);
        QVERIFY(other.deleteAllKeys());
    }

    void itemsWrittenByOtherPrograms()
    {
        QVERIFY(storeWithSecretTool(u"resend"_s, "re_123"));
        QVERIFY(storeWithSecretTool(u"not a key"_s, "x"));
        QVERIFY(storeWithSecretTool(u"binary"_s, QByteArray("\xff\xfe\x00", 3)));

        QCOMPARE(m_keychain.readKey(u"resend"_s), u"re_123"_s);
        // Accounts that break the key rules are not listed.
        QCOMPARE(m_keychain.allKeys(), (QStringList{u"binary"_s, u"resend"_s}));
        // Data that is not UTF-8 reads as nothing, with the status of a success.
        QTest::ignoreMessage(QtWarningMsg, "Keychain access failed with status: 0");
        QCOMPARE(m_keychain.readKey(u"binary"_s), std::nullopt);
    }

    void asynchronousCallsRunInOrder()
    {
        QList<QFuture<bool>> stores;
        for (int i = 0; i < 20; ++i) {
            stores.append(m_keychain.storeKeyAsync(QString::number(i), u"counter"_s));
        }
        QFuture<std::optional<QString>> read = m_keychain.readKeyAsync(u"counter"_s);
        QCOMPARE(read.result(), u"19"_s);
        for (QFuture<bool>& store : stores) {
            QVERIFY(store.result());
        }
        QCOMPARE(m_keychain.allKeysAsync().result(), QStringList{u"counter"_s});
        QVERIFY(m_keychain.deleteAllKeysAsync().result());
        QCOMPARE(m_keychain.readKeyAsync(u"counter"_s).result(), std::nullopt);
    }

    // Last: the keyring goes away under a live connection.
    void keyringStopped()
    {
        QVERIFY(m_keychain.storeKey(u"value"_s, u"kept"_s));
        m_keyring->stop();
        // The bus's end reaches the event loop; the process goes on.
        QTest::qWait(500);
        const QRegularExpression status(u"^Keychain access failed with status: -?\\d+$"_s);
        QTest::ignoreMessage(QtWarningMsg, status);
        QCOMPARE(m_keychain.readKey(u"kept"_s), std::nullopt);
        QTest::ignoreMessage(
            QtWarningMsg, QRegularExpression(u"^Keychain deletion failed with status: -?\\d+$"_s));
        QVERIFY(!m_keychain.deleteKey(u"kept"_s));
        QVERIFY(!m_keychain.isReachable());
    }
};

QTEST_GUILESS_MAIN(KeychainManagerTest)
#include "KeychainManagerTest.moc"
