// The app shell without a window: the sign-in gate against real sign-in
// states, the hand-over of links between launches, and what the window
// remembers across launches.
#include "KeyringSession.h"
#include "LocalBackend.h"
#include "LogCapture.h"
#include "TestPaths.h"
#include "WhileServing.h"
#include "account/AuthenticationService.h"
#include "app/ContentView.h"
#include "app/SceneGraphBackend.h"
#include "app/SingleInstance.h"
#include "app/WindowState.h"
#include "store/KeychainManager.h"
#include "store/SettingsStore.h"

#include <QDir>
#include <QJsonObject>
#include <QLocalServer>
#include <QLocalSocket>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

const QString accessKey = QString::fromLatin1(AuthenticationService::accessTokenKeychainKey);

// A later launch hands its links over (it is a process of its own; the
// listening instance lives in this thread).
bool forwardFromAnotherLaunch(const QString& name, const QList<QUrl>& urls)
{
    return whileServing([name, urls] { return SingleInstance::forward(name, urls, 2000); });
}

} // namespace

class ShellTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<KeyringSession> m_keyring;
    std::unique_ptr<TemporaryHome> m_home;
    std::unique_ptr<LocalBackend> m_backend;

    std::unique_ptr<AuthenticationService> makeAuth(const QUrl& backend)
    {
        AuthenticationService::Options options;
        options.backendUrl = backend;
        options.webUrl = backend;
        options.openUrl = [](const QUrl&) { return true; };
        return std::make_unique<AuthenticationService>(KeychainManager::shared(), options);
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_keyring = std::make_unique<KeyringSession>();
        QVERIFY2(m_keyring->isRunning(), qPrintable(m_keyring->error()));
        m_home = std::make_unique<TemporaryHome>();
        m_backend = std::make_unique<LocalBackend>();
        QVERIFY2(m_backend->isRunning(), qPrintable(m_backend->error()));
    }

    void init() { QVERIFY(KeychainManager::shared().deleteAllKeys()); }

    // The screen the gate settles on, from the sign-in state found at start-up,
    // and the line it logs. Until the start-up check settles, the loading
    // screen shows, never a flash of the login screen.
    void gateSettlesOnTheRightScreen_data()
    {
        QTest::addColumn<QString>("storedToken"); // "valid", "stale", or none
        QTest::addColumn<bool>("backendUp");
        QTest::addColumn<QString>("screen");
        QTest::addColumn<QString>("logLine");
        QTest::newRow("nobody signed in")
            << QString() << true << u"login"_s
            << u"🔐 [ContentView] Showing login screen (not authenticated, no error)"_s;
        QTest::newRow("signed in")
            << u"valid"_s << true << u"main"_s
            << u"🔐 [ContentView] Showing main app for user: %1"_s.arg(LocalBackend::demoEmail());
        QTest::newRow("backend unreachable")
            << u"valid"_s << false << u"error"_s
            << u"🔐 [ContentView] Showing error state: Cannot connect to server. Please check "
               u"your internet connection and try again."_s;
        QTest::newRow("token no longer valid")
            << u"stale"_s << true << u"login"_s
            << u"🔐 [ContentView] Showing login screen (not authenticated, no error)"_s;
    }

    void gateSettlesOnTheRightScreen()
    {
        QFETCH(QString, storedToken);
        QFETCH(bool, backendUp);
        QFETCH(QString, screen);
        QFETCH(QString, logLine);
        if (storedToken == u"valid"_s) {
            const auto tokens = m_backend->signIn(LocalBackend::demoEmail());
            QVERIFY(tokens);
            QVERIFY(KeychainManager::shared().storeKey(tokens->accessToken, accessKey));
        } else if (storedToken == u"stale"_s) {
            QVERIFY(KeychainManager::shared().storeKey(u"no-such-token"_s, accessKey));
        }
        // A port nothing listens on stands for a backend that is down.
        const QUrl backend = backendUp ? m_backend->url() : QUrl(u"http://127.0.0.1:9"_s);

        LogCapture log;
        SettingsStore settings(m_home->path() + u"/gate.json"_s);
        const auto auth = makeAuth(backend);
        ContentView view(*auth, settings);
        QCOMPARE(view.screen(), u"loading"_s);
        QTRY_COMPARE_WITH_TIMEOUT(view.screen(), screen, 15'000);
        QVERIFY2(log.lines().contains(logLine), qPrintable(log.lines().join(u'\n')));
        QVERIFY(!log.lines().contains(
                    u"🔐 [ContentView] Showing login screen (not authenticated, no error)"_s) ||
                screen == u"login"_s);
        QCOMPARE(view.errorText().isEmpty(), screen != u"error"_s);
        if (screen == u"login"_s) {
            QVERIFY(log.lines().contains(
                u"🔐 AuthenticationView appeared - login screen should be visible"_s));
        }
    }

    // The sidebar selection is remembered; an unknown or corrupt one is not taken.
    void sidebarSelectionIsRemembered()
    {
        const QString path = m_home->path() + u"/sidebar.json"_s;
        const auto auth = makeAuth(m_backend->url());
        {
            SettingsStore settings(path);
            ContentView view(*auth, settings);
            QCOMPARE(view.selectedItem(), u"callControl"_s);
            QSignalSpy changed(&view, &ContentView::selectedItemChanged);
            view.setSelectedItem(u"nowhere"_s);
            QCOMPARE(changed.count(), 0);
            view.setSelectedItem(u"settings"_s);
            QCOMPARE(changed.count(), 1);
        }
        {
            SettingsStore settings(path);
            QCOMPARE(ContentView(*auth, settings).selectedItem(), u"settings"_s);
            settings.setValue(QString::fromLatin1(ContentView::selectedItemKey), 42);
            QCOMPARE(ContentView(*auth, settings).selectedItem(), u"callControl"_s);
        }
    }

    void windowGeometryIsRememberedAndSane_data()
    {
        QTest::addColumn<QJsonValue>("stored");
        QTest::addColumn<QRect>("geometry");
        QTest::addColumn<bool>("maximized");
        const QRect fresh(-1, -1, WindowState::defaultWidth, WindowState::defaultHeight);
        QTest::newRow("nothing stored") << QJsonValue() << fresh << false;
        QTest::newRow("stored") << QJsonValue(QJsonObject{{u"x"_s, 40},
                                                          {u"y"_s, 30},
                                                          {u"width"_s, 1300},
                                                          {u"height"_s, 900},
                                                          {u"maximized"_s, true}})
                                << QRect(40, 30, 1300, 900) << true;
        QTest::newRow("too small")
            << QJsonValue(QJsonObject{{u"width"_s, 20}, {u"height"_s, 10}}) << fresh << false;
        QTest::newRow("not numbers")
            << QJsonValue(QJsonObject{{u"width"_s, u"wide"_s}, {u"height"_s, true}}) << fresh
            << false;
        QTest::newRow("not an object") << QJsonValue(u"1200x800"_s) << fresh << false;
        QTest::newRow("size without a place")
            << QJsonValue(QJsonObject{{u"width"_s, 1000}, {u"height"_s, 700}})
            << QRect(-1, -1, 1000, 700) << false;
    }

    void windowGeometryIsRememberedAndSane()
    {
        QFETCH(QJsonValue, stored);
        QFETCH(QRect, geometry);
        QFETCH(bool, maximized);
        SettingsStore settings(m_home->path() + u"/window.json"_s);
        settings.remove(QString::fromLatin1(WindowState::geometryKey));
        if (!stored.isUndefined())
            settings.setValue(QString::fromLatin1(WindowState::geometryKey), stored);
        const WindowState state(settings);
        QCOMPARE(state.geometry(), geometry);
        QCOMPARE(state.maximized(), maximized);
    }

    void windowGeometryRoundTrips()
    {
        SettingsStore settings(m_home->path() + u"/window-trip.json"_s);
        WindowState(settings).save(12, 34, 1111, 777, false);
        const WindowState reopened(settings);
        QCOMPARE(reopened.geometry(), QRect(12, 34, 1111, 777));
        QVERIFY(!reopened.maximized());
    }

    // A GPU shows as a render node; without one the software renderer is chosen,
    // unless the user named a backend.
    void renderNodesDecideTheRenderer_data()
    {
        QTest::addColumn<QStringList>("entries");
        QTest::addColumn<bool>("hasNode");
        QTest::newRow("no directory") << QStringList{u"-"_s} << false;
        QTest::newRow("empty") << QStringList{} << false;
        QTest::newRow("display only") << QStringList{u"card0"_s} << false;
        QTest::newRow("render node") << QStringList{u"card0"_s, u"renderD128"_s} << true;
    }

    void renderNodesDecideTheRenderer()
    {
        QFETCH(QStringList, entries);
        QFETCH(bool, hasNode);
        QTemporaryDir root;
        QString directory = root.path() + u"/dri"_s;
        if (entries == QStringList{u"-"_s}) {
            directory += u"-missing"_s;
        } else {
            QVERIFY(QDir().mkpath(directory));
            for (const QString& entry : entries) {
                QFile node(directory + u'/' + entry);
                QVERIFY(node.open(QIODevice::WriteOnly));
            }
        }
        QCOMPARE(SceneGraphBackend::hasRenderNode(directory), hasNode);
        // A backend the user named is never overridden.
        qputenv("QT_QUICK_BACKEND", "opengl");
        QVERIFY(!SceneGraphBackend::chooseForThisMachine(directory));
        qunsetenv("QT_QUICK_BACKEND");
    }

    // A later launch hands its links over; each arrives once, in order.
    void linksReachTheRunningInstance()
    {
        const QString name = u"quillmoss-shell-test-%1"_s.arg(QCoreApplication::applicationPid());
        QVERIFY(!forwardFromAnotherLaunch(name, {})); // nobody listens yet
        SingleInstance running(name);
        QVERIFY(running.listen());
        QSignalSpy received(&running, &SingleInstance::urlReceived);
        QSignalSpy activated(&running, &SingleInstance::activated);
        const QList<QUrl> urls{QUrl(u"quillmoss://oauth/callback?access_token=a"_s),
                               QUrl(u"quillmoss://oauth/callback?access_token=b"_s)};
        QVERIFY(forwardFromAnotherLaunch(name, urls));
        QTRY_COMPARE(received.count(), 2);
        QCOMPARE(received.at(0).at(0).toUrl(), urls.at(0));
        QCOMPARE(received.at(1).at(0).toUrl(), urls.at(1));
        QCOMPARE(activated.count(), 1);
        // A launch without links only brings the window forward.
        QVERIFY(forwardFromAnotherLaunch(name, {}));
        QTRY_COMPARE(activated.count(), 2);
        QCOMPARE(received.count(), 2);

        // A second instance does not take over the socket.
        SingleInstance second(name);
        QVERIFY(!second.listen());
    }

    // A socket left behind by a crashed instance does not lock the next one out,
    // and a peer that floods the socket is cut off without harm.
    void staleSocketsAndFloodsAreHandled()
    {
        const QString name = u"quillmoss-shell-stale-%1"_s.arg(QCoreApplication::applicationPid());
        {
            // What a crash leaves: the socket file without a listener.
            QLocalServer crashed;
            crashed.setSocketOptions(QLocalServer::UserAccessOption);
            QVERIFY(crashed.listen(name));
            const QString file = crashed.fullServerName();
            crashed.close();
            QFile placeholder(file);
            QVERIFY(placeholder.open(QIODevice::WriteOnly)); // the name is taken on disk
        }
        SingleInstance running(name);
        QVERIFY(running.listen());
        QSignalSpy received(&running, &SingleInstance::urlReceived);

        QLocalSocket flood;
        flood.connectToServer(name);
        QVERIFY(flood.waitForConnected(2000));
        flood.write(QByteArray(256 * 1024, 'x'));
        flood.flush();
        QTRY_COMPARE(flood.state(), QLocalSocket::UnconnectedState);
        QCOMPARE(received.count(), 0);
        QVERIFY(forwardFromAnotherLaunch(name, {QUrl(u"quillmoss://oauth/callback?x=1"_s)}));
        QTRY_COMPARE(received.count(), 1);
    }
};

QTEST_GUILESS_MAIN(ShellTest)
#include "ShellTest.moc"
