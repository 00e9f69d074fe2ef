#include "app/KeychainManager.h"

#include <QRegularExpression>
#include <QTest>

using namespace Qt::StringLiterals;

// No Secret Service at all: every operation fails cleanly with its log line,
// and nothing is written anywhere else instead.
class KeychainUnreachableTest : public QObject
{
    Q_OBJECT

private:
    static void expect(const char* prefix)
    {
        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression(u"^%1-?\\d+$"_s.arg(QLatin1StringView(prefix))));
    }

private Q_SLOTS:
    void initTestCase()
    {
        // Before the first bus connection, which GLib keeps for the process.
        qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/quillmoss-test-bus");
    }

    void everyOperationFails()
    {
        KeychainManager keychain;
        QVERIFY(!keychain.isReachable());

        expect("Keychain access failed with status: ");
        expect("Failed to store API key with status: ");
        QVERIFY(!keychain.storeKey(u"secret"_s, u"com.quillmoss.accesstoken"_s));

        expect("Keychain access failed with status: ");
        QCOMPARE(keychain.readKey(u"com.quillmoss.accesstoken"_s), std::nullopt);

        expect("Keychain deletion failed with status: ");
        QVERIFY(!keychain.deleteKey(u"com.quillmoss.accesstoken"_s));

        expect("Keychain bulk deletion failed with status: ");
        QVERIFY(!keychain.deleteAllKeys());

        expect("Keychain search failed with status: ");
        QCOMPARE(keychain.allKeys(), QStringList{});
    }
};

QTEST_GUILESS_MAIN(KeychainUnreachableTest)
#include "KeychainUnreachableTest.moc"
