#include "app/UpdateManager.h"

#include "HttpStub.h"

#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

const QString upToDate = u"You're up to date"_s;
const QString unreadable = u"Couldn't check for updates: the update server sent a release "
                           "description Quillmoss cannot read."_s;

QByteArray feed(const QByteArray& version, const QByteArray& url = "https://example.com/q.tar.gz")
{
    return "{\"version\": \"" + version + "\", \"url\": \"" + url + "\", \"notes\": \"Faster.\"}";
}

} // namespace

// Against a stand-in release feed.
class UpdateManagerTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<HttpStub> m_stub;

    QUrl feedUrl() const { return m_stub->url().resolved(QUrl(u"/release.json"_s)); }

private Q_SLOTS:
    void init()
    {
        m_stub = std::make_unique<HttpStub>();
        QVERIFY(m_stub->isListening());
    }

    void cleanup() { m_stub.reset(); }

    void outcome_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("installed");
        QTest::addColumn<QString>("statusText");
        QTest::addColumn<QString>("available");

        QTest::newRow("newer") << 200 << feed("0.2.0") << u"0.1.0"_s
                               << u"Quillmoss 0.2.0 is available"_s << u"0.2.0"_s;
        QTest::newRow("newer by number, older by text")
            << 200 << feed("0.10.0") << u"0.9.3"_s << u"Quillmoss 0.10.0 is available"_s
            << u"0.10.0"_s;
        QTest::newRow("same") << 200 << feed("0.1.0") << u"0.1.0"_s << upToDate << QString();
        QTest::newRow("same, written shorter")
            << 200 << feed("0.1") << u"0.1.0"_s << upToDate << QString();
        QTest::newRow("older") << 200 << feed("0.0.9") << u"0.1.0"_s << upToDate << QString();
        QTest::newRow("404") << 404 << feed("9.0.0") << u"0.1.0"_s
                             << u"Couldn't check for updates: the update server answered with "
                                "status 404."_s
                             << QString();
        QTest::newRow("not JSON") << 200 << QByteArray("<html>portal</html>") << u"0.1.0"_s
                                  << unreadable << QString();
        QTest::newRow("version a word")
            << 200 << feed("latest") << u"0.1.0"_s << unreadable << QString();
        QTest::newRow("version with a suffix")
            << 200 << feed("0.2.0-beta") << u"0.1.0"_s << unreadable << QString();
        QTest::newRow("download address not on the web")
            << 200 << feed("0.2.0", "javascript:alert(1)") << u"0.1.0"_s << unreadable << QString();
    }

    void outcome()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QString, installed);
        QFETCH(QString, statusText);
        QFETCH(QString, available);
        m_stub->setAnswer("/release.json", {status, body, {}, false});
        UpdateManager updates(feedUrl(), installed);
        QVERIFY(updates.canCheckForUpdates());
        QSignalSpy finished(&updates, &UpdateManager::checkFinished);

        updates.checkForUpdates();
        QVERIFY(!updates.canCheckForUpdates());
        QVERIFY(finished.wait(30000));
        QCOMPARE(updates.statusText(), statusText);
        QCOMPARE(updates.availableVersion(), available);
        QCOMPARE(updates.downloadUrl().isEmpty(), available.isEmpty());
        QVERIFY(updates.canCheckForUpdates());
    }

    void unreachableFeed()
    {
        UpdateManager updates(HttpStub::unreachableUrl(), u"0.1.0"_s);
        QSignalSpy finished(&updates, &UpdateManager::checkFinished);
        updates.checkForUpdates();
        QVERIFY(finished.wait(30000));
        QCOMPARE(finished.first().first().toBool(), false);
        QCOMPARE(updates.statusText(),
                 u"Couldn't check for updates: the update server cannot be reached. Check your "
                 "internet connection and try again."_s);
    }

    // A later failure says nothing about the release found before: it stays on offer.
    void failureKeepsWhatWasFound()
    {
        m_stub->setAnswer("/release.json", {200, feed("0.3.1"), {}, false});
        UpdateManager updates(feedUrl(), u"0.1.0"_s);
        QSignalSpy finished(&updates, &UpdateManager::checkFinished);
        updates.checkForUpdates();
        QVERIFY(finished.wait(30000));
        m_stub->setAnswer("/release.json", {503, {}, {}, false});
        updates.checkForUpdates();
        QVERIFY(finished.wait(30000));
        QVERIFY(updates.statusText().contains(u"503"_s));
        QCOMPARE(updates.availableVersion(), u"0.3.1"_s);
        QCOMPARE(updates.downloadUrl(), QUrl(u"https://example.com/q.tar.gz"_s));
    }

    void notConfigured_data()
    {
        QTest::addColumn<QUrl>("feedUrl");
        QTest::newRow("no address") << QUrl();
        QTest::newRow("not a web address") << QUrl(u"ftp://example.com/release.json"_s);
    }

    void notConfigured()
    {
        QFETCH(QUrl, feedUrl);
        UpdateManager updates(feedUrl, u"0.1.0"_s);
        QSignalSpy status(&updates, &UpdateManager::statusTextChanged);
        QVERIFY(!updates.isConfigured());
        QVERIFY(!updates.canCheckForUpdates());
        QCOMPARE(updates.statusText(), u"Update checks are off in this build."_s);
        updates.checkForUpdates();
        QVERIFY(!updates.isChecking());
        QCOMPARE(status.size(), 0);
    }

    // One question at a time; going away mid-check ends it at once.
    void checkInFlight()
    {
        m_stub->setAnswer("/release.json", {200, {}, {}, true});
        auto updates = std::make_unique<UpdateManager>(feedUrl(), u"0.1.0"_s);
        QSignalSpy finished(updates.get(), &UpdateManager::checkFinished);
        updates->checkForUpdates();
        updates->checkForUpdates();
        QTRY_COMPARE(m_stub->requests().size(), 1);
        QVERIFY(updates->isChecking());
        updates.reset();
        QTest::qWait(50);
        QCOMPARE(finished.size(), 0);
        QCOMPARE(m_stub->requests().size(), 1);
    }
};

QTEST_GUILESS_MAIN(UpdateManagerTest)
#include "UpdateManagerTest.moc"
