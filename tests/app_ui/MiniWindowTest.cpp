// The mini window in the real app on a real X display under a real window
// manager (openbox, started by with-window-manager.sh): it floats above
// another application's window and on every workspace, a drag is remembered
// across a restart, a later launch toggles it, and during a call a question
// typed into it reaches the local backend's assistant and the answer shows.
#include "KeyringSession.h"
#include "LocalBackend.h"
#include "LogCapture.h"
#include "PulseAudioServer.h"
#include "QuickDriver.h"
#include "TestPaths.h"
#include "WhileServing.h"
#include "app/ChatMarkdown.h"
#include "app/ContentView.h"
#include "app/QuillmossApp.h"
#include "app/SingleInstance.h"
#include "app/UtilityWindowManager.h"
#include "call/CallController.h"
#include "chat/ChatController.h"
#include "chat/ChatViewModel.h"
#include "recognition/SpeechRecognizer.h"
#include "services/Services.h"
#include "session/SummaryModel.h"
#include "store/AppPaths.h"
#include "store/SettingsStore.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QQuickWindow>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

// Says a line of a sales call for every chunk.
class ScriptedRecognizer : public SpeechRecognizer
{
    Q_OBJECT

public:
    void recognize(Samples) override
    {
        QMetaObject::invokeMethod(
            this,
            [this] {
                Q_EMIT textRecognized(u"We need the rollout done by March, and Dana sends the "
                                      u"pricing on Friday."_s);
            },
            Qt::QueuedConnection);
    }
};

// A command's standard output; nothing when it failed.
std::optional<QString> run(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(10'000) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0)
        return std::nullopt;
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

// The windows the window manager manages, bottom to top.
QList<quint64> stackingOrder()
{
    const QString line =
        run(u"xprop"_s, {u"-root"_s, u"_NET_CLIENT_LIST_STACKING"_s}).value_or(QString());
    QList<quint64> ids;
    for (const QString& id : line.section(u'#', 1).split(u',', Qt::SkipEmptyParts))
        ids << id.trimmed().toULongLong(nullptr, 0);
    return ids;
}

QJsonObject settingsFile()
{
    QFile file(AppPaths::settingsFilePath());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QJsonDocument::fromJson(file.readAll()).object();
}

} // namespace

class MiniWindowTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<KeyringSession> m_keyring;
    std::unique_ptr<TemporaryHome> m_home;
    std::unique_ptr<PulseAudioServer> m_pulse;
    std::unique_ptr<LocalBackend> m_backend;
    std::unique_ptr<ScriptedRecognizer> m_recognizer;
    std::unique_ptr<LogCapture> m_log;
    std::unique_ptr<QuillmossApp> m_app;
    QProcess m_otherApplication;
    QString m_instanceName;

    UtilityWindowManager& manager() { return m_app->utilityWindowManager(); }
    QQuickWindow* miniWindow() { return qobject_cast<QQuickWindow*>(manager().utilityWindow()); }

    void startApp()
    {
        AppOptions options;
        options.backendUrl = m_backend->url();
        options.webUrl = m_backend->url();
        options.modelBaseUrl = QUrl(u"http://127.0.0.1:9/"_s);
        options.openUrl = [](const QUrl&) { return true; };
        options.recognizer = m_recognizer.get();
        options.instanceName = m_instanceName;
        m_app = std::make_unique<QuillmossApp>(options);
        QVERIFY(m_app->listenForOtherLaunches());
        QVERIFY(m_app->show());
        QVERIFY(QTest::qWaitForWindowExposed(m_app->mainWindow()));
    }

    void showMiniWindow()
    {
        QVERIFY(manager().show());
        QVERIFY(miniWindow());
        QVERIFY(QTest::qWaitForWindowExposed(miniWindow()));
    }

    // With QUILLMOSS_SCREENSHOT_DIR set, the mini window as it is now goes there as NAME.png.
    void snapshot(const QString& name)
    {
        const QString directory = qEnvironmentVariable("QUILLMOSS_SCREENSHOT_DIR");
        if (directory.isEmpty())
            return;
        QTest::qWait(300);
        QDir().mkpath(directory);
        QVERIFY(miniWindow()->grabWindow().save(directory + u'/' + name + u".png"_s));
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (QGuiApplication::platformName() != u"xcb"_s)
            QSKIP("needs an X display with a window manager (with-window-manager.sh)");
        m_keyring = std::make_unique<KeyringSession>();
        QVERIFY2(m_keyring->isRunning(), qPrintable(m_keyring->error()));
        m_home = std::make_unique<TemporaryHome>();
        m_pulse = std::make_unique<PulseAudioServer>();
        QVERIFY2(m_pulse->isRunning(), qPrintable(m_pulse->error()));
        m_backend = std::make_unique<LocalBackend>(LocalBackend::Options{.seedDemo = true});
        QVERIFY2(m_backend->isRunning(), qPrintable(m_backend->error()));
        m_recognizer = std::make_unique<ScriptedRecognizer>();
        m_log = std::make_unique<LogCapture>();
        m_instanceName = u"quillmoss-mini-test-%1"_s.arg(QCoreApplication::applicationPid());
        startApp();
        const auto tokens = m_backend->signIn(LocalBackend::demoEmail());
        QVERIFY(tokens);
        m_app->handleUrl(tokens->redirect);
        QTRY_COMPARE_WITH_TIMEOUT(m_app->contentView().screen(), u"main"_s, 15'000);
    }

    void cleanupTestCase()
    {
        if (m_otherApplication.state() != QProcess::NotRunning) {
            m_otherApplication.kill();
            m_otherApplication.waitForFinished();
        }
        m_app.reset();
        m_log.reset();
    }

    // Even with the stored preference off, the window floats: another
    // application brought to the front stays below it.
    void floatsAboveAnotherApplication()
    {
        m_app->settings().setBool(u"utilityWindowStaysOnTop"_s, false);
        m_otherApplication.start(
            u"xmessage"_s, {u"-geometry"_s, u"1200x700+0+0"_s, u"Another application's window"_s});
        QVERIFY(m_otherApplication.waitForStarted());
        const QString other = run(u"xdotool"_s, {u"search"_s, u"--sync"_s, u"--onlyvisible"_s,
                                                 u"--class"_s, u"Xmessage"_s})
                                  .value_or(QString())
                                  .section(u'\n', 0, 0);
        QVERIFY(!other.isEmpty());

        showMiniWindow();
        QVERIFY(manager().isVisible());
        const quint64 mini = miniWindow()->winId();
        // The other application takes the front, as a click on it would.
        QVERIFY(run(u"xdotool"_s, {u"windowactivate"_s, u"--sync"_s, other}));
        QTRY_VERIFY(stackingOrder().contains(mini));
        const QList<quint64> order = stackingOrder();
        QVERIFY(order.contains(other.toULongLong()));
        QVERIFY2(order.indexOf(mini) > order.indexOf(other.toULongLong()),
                 "the mini window went below the other application");

        const QString state = run(u"xprop"_s, {u"-id"_s, QString::number(mini), u"_NET_WM_STATE"_s})
                                  .value_or(QString());
        QVERIFY2(state.contains(u"_NET_WM_STATE_ABOVE"_s), qPrintable(state));
        // On every workspace: openbox keeps this as the desktop "all" (other
        // window managers also as the sticky state).
        QTRY_VERIFY(run(u"xprop"_s, {u"-id"_s, QString::number(mini), u"_NET_WM_DESKTOP"_s})
                        .value_or(QString())
                        .endsWith(u"= 4294967295"_s));
        m_otherApplication.kill();
        m_otherApplication.waitForFinished();
    }

    void aDragIsRememberedAcrossARestart()
    {
        if (!manager().isVisible())
            showMiniWindow();
        QQuickWindow* window = miniWindow();
        const QPoint before = window->position();
        // A bare spot of the strip, between the timer and the buttons.
        const QPoint grab = before + QPoint(200, 30);
        const QPoint target(300, 400);
        const auto xdotool = [](const QStringList& arguments) {
            return run(u"xdotool"_s, arguments).has_value();
        };
        QVERIFY(xdotool(
            {u"mousemove"_s, u"--sync"_s, QString::number(grab.x()), QString::number(grab.y())}));
        QVERIFY(xdotool({u"mousedown"_s, u"1"_s}));
        for (int step = 1; step <= 10; ++step) {
            const QPoint at = grab + (target - grab) * step / 10;
            QTest::qWait(30);
            QVERIFY(xdotool({u"mousemove"_s, QString::number(at.x()), QString::number(at.y())}));
        }
        QVERIFY(xdotool({u"mouseup"_s, u"1"_s}));
        const QPoint expected = target - QPoint(200, 30);
        QTRY_VERIFY2(
            (window->position() - expected).manhattanLength() <= 4,
            qPrintable(u"at %1,%2"_s.arg(window->position().x()).arg(window->position().y())));
        const QPoint dropped = window->position();
        // The place is written once the moves settle, in the remembered form.
        const double rememberedY =
            window->screen()->geometry().bottom() + 1 - dropped.y() - window->height();
        QTRY_COMPARE(settingsFile()[u"utilityWindowPosition"_s].toObject()[u"y"_s].toDouble(),
                     rememberedY);

        m_app.reset();
        startApp();
        QTRY_COMPARE_WITH_TIMEOUT(m_app->contentView().screen(), u"main"_s, 15'000);
        showMiniWindow();
        QTRY_COMPARE(miniWindow()->position(), dropped);
        QVERIFY(m_log->lines().contains(
            u"🪟 [UtilityWindow] Using saved position: (%1, %2)"_s.arg(dropped.x())
                .arg(rememberedY)));
    }

    // What a desktop-wide shortcut runs: a second launch toggles the window.
    void aLaterLaunchTogglesIt()
    {
        const bool wasVisible = manager().isVisible();
        const QString name = m_instanceName;
        const QStringList toggle{QString::fromLatin1(QuillmossApp::toggleMiniWindowCommand)};
        QVERIFY(whileServing([name, toggle] { return SingleInstance::forward(name, {}, toggle); }));
        QTRY_COMPARE(manager().isVisible(), !wasVisible);
        QVERIFY(whileServing([name, toggle] { return SingleInstance::forward(name, {}, toggle); }));
        QTRY_COMPARE(manager().isVisible(), wasVisible);
    }

    void aQuestionTypedInItReachesTheAssistant()
    {
        manager().hide();
        // Outside a call the field says why it takes nothing.
        showMiniWindow();
        QuickDriver mini(miniWindow());
        QVERIFY(mini.click(u"miniExpandButton"_s));
        QTRY_VERIFY(mini.isShown(u"miniChatInput"_s));
        QCOMPARE(mini.property(u"miniChatInput"_s, "placeholderText").toString(),
                 u"Start a call to chat with the AI assistant"_s);
        QVERIFY(!mini.property(u"miniChatInput"_s, "enabled").toBool());
        manager().hide();

        // "Auto Show Mini Window": the call's start shows it, its end hides it.
        manager().setAutoShow(true);
        CallController& call = m_app->services().callController();
        QTRY_VERIFY_WITH_TIMEOUT(call.hasRequiredPermissions(), 10'000);
        QVERIFY(call.startCall());
        QTRY_VERIFY(manager().isVisible());
        QVERIFY(m_log->lines().contains(
            u"[ContentView] Auto-showing utility window (call active: true)"_s));
        QTRY_VERIFY_WITH_TIMEOUT(call.isSessionReady(), 15'000);
        QTRY_VERIFY(mini.property(u"miniChatInput"_s, "enabled").toBool());

        QQuickItem* input = mini.item(u"miniChatInput"_s);
        input->forceActiveFocus();
        for (const QChar c : u"What are the next steps?"_s)
            QTest::keyClick(miniWindow(), c.toLatin1());
        QTest::keyClick(miniWindow(), Qt::Key_Return);
        QTRY_VERIFY(m_log->lines().contains(
            u"📤 [UtilityWindow] Sending message during live call: 'What are the next steps?'"_s));
        ChatViewModel& chat = *m_app->services().chat().chatModel();
        QTRY_VERIFY_WITH_TIMEOUT(!chat.isLoading() && chat.messages().size() >= 2, 20'000);
        QCOMPARE(chat.messages().first().content, u"What are the next steps?"_s);
        QCOMPARE(chat.errorMessage(), QString());
        const QString answer = chat.messages().last().content;
        QVERIFY(!chat.messages().last().isFromUser);
        // The answer shows in the mini window, as the chat renders its Markdown.
        QTRY_COMPARE(mini.text(u"miniLatestAnswer"_s), ChatMarkdown::toHtml(answer));
        QTRY_VERIFY_WITH_TIMEOUT(m_app->services().summaryModel().hasSummary(), 60'000);
        snapshot(u"mini-window-expanded"_s);
        QVERIFY(mini.click(u"miniExpandButton"_s));
        QTRY_COMPARE(miniWindow()->height(), 60);
        snapshot(u"mini-window-collapsed"_s);

        call.endCall();
        QTRY_VERIFY(!call.isLive());
        QTRY_VERIFY(!manager().isVisible());
    }
};

QTEST_MAIN(MiniWindowTest)
#include "MiniWindowTest.moc"
