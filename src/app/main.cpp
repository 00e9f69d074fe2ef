// quillmoss-app: the desktop application. A launch given a "quillmoss://" URL
// or --toggle-mini-window while the app already runs hands them over and exits,
// so a desktop-wide shortcut can run "quillmoss-app --toggle-mini-window".
#include "app/AppBenchmark.h"
#include "app/QuillmossApp.h"
#include "app/SceneGraphBackend.h"
#include "app/SingleInstance.h"
#include "core/InterruptWatcher.h"
#include "core/Logging.h"
#include "store/AppPaths.h"

#include <QGuiApplication>
#include <QIcon>
#include <QJsonDocument>
#include <QQuickStyle>
#include <QQuickWindow>
#include <QUrl>

#include <cstdio>

using namespace Qt::StringLiterals;

int main(int argc, char* argv[])
{
    QGuiApplication application(argc, argv);
    QGuiApplication::setApplicationName(u"Quillmoss"_s);
    QGuiApplication::setApplicationDisplayName(u"Quillmoss"_s);
    QGuiApplication::setDesktopFileName(u"quillmoss"_s);
    QGuiApplication::setApplicationVersion(QuillmossApp::version());
    QGuiApplication::setWindowIcon(QIcon(u":/qml/images/quillmoss.svg"_s));

    LogOptions logOptions;
    logOptions.directory = AppPaths::logsDirectory();
    Logging::install(logOptions);

    QList<QUrl> urls;
    QStringList commands;
    bool benchmark = false;
    for (const QString& argument : QGuiApplication::arguments().mid(1)) {
        if (argument == u"--benchmark"_s) {
            benchmark = true;
            continue;
        }
        if (argument == QLatin1StringView(QuillmossApp::toggleMiniWindowCommand)) {
            commands << argument;
            continue;
        }
        const QUrl url(argument, QUrl::StrictMode);
        if (url.scheme() == QLatin1String(QuillmossApp::appURLScheme))
            urls << url;
    }

    AppOptions options = AppOptions::fromEnvironment();
    if (SingleInstance::forward(options.instanceName, urls, commands)) {
        qCInfo(lcApp) << "🔗 Quillmoss is already running; handed over to it";
        return 0;
    }

    QQuickStyle::setStyle(u"Basic"_s);
    SceneGraphBackend::chooseForThisMachine();
    QuillmossApp app(options);
    // SIGTERM (the session ending) and Ctrl-C close the window as the user
    // would: its place is remembered and a live call ends cleanly.
    InterruptWatcher interrupts;
    QObject::connect(&interrupts, &InterruptWatcher::interrupted, &app, [&app] {
        if (QQuickWindow* window = app.mainWindow())
            window->close();
        else
            QGuiApplication::quit();
    });
    app.listenForOtherLaunches();
    if (!app.show())
        return 1;
    // Figures on stdout as one JSON line, then the app quits.
    AppBenchmark measuring(app, {});
    if (benchmark) {
        QObject::connect(&measuring, &AppBenchmark::finished, &app, [](const QJsonObject& figures) {
            std::fputs(
                QJsonDocument(figures).toJson(QJsonDocument::Compact).append('\n').constData(),
                stdout);
            std::fflush(stdout);
            QGuiApplication::exit(figures.contains(u"error"_s) ? 1 : 0);
        });
        measuring.start();
    }
    for (const QUrl& url : urls)
        app.handleUrl(url);
    for (const QString& command : commands)
        app.handleCommand(command);
    return QGuiApplication::exec();
}
