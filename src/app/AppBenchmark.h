// Measures the app as a user meets it: time from launch to the first painted
// frame and to the signed-in main window, resident memory, and the CPU it
// takes while idle and while a call is live. `quillmoss-app --benchmark`.
#pragma once

#include <QElapsedTimer>
#include <QJsonObject>
#include <QObject>
#include <QPointer>

class QuillmossApp;

class AppBenchmark : public QObject
{
    Q_OBJECT

public:
    struct Options
    {
        int settleMs = 2000;
        int idleMs = 10'000;
        int liveMs = 10'000;
    };

    AppBenchmark(QuillmossApp& app, Options options, QObject* parent = nullptr);

    // Milliseconds since the process was started by the system, as best it can tell.
    static double msSinceProcessStart();
    // VmRSS and VmHWM of this process, in KiB; 0 when unreadable.
    static qint64 residentKiB(const char* field = "VmRSS:");
    // User plus system CPU time of this process so far, in ms.
    static double cpuMs();

    // Starts measuring; call before the window shows.
    void start();

Q_SIGNALS:
    // Every figure, once all are taken (or a step failed: "error" says which).
    void finished(const QJsonObject& figures);

private:
    void windowFrame();
    void measureIdle();
    void measureLive();
    void fail(const QString& step);

    QuillmossApp& m_app;
    Options m_options;
    QJsonObject m_figures;
    bool m_firstFrameSeen = false;
    bool m_mainFrameSeen = false;
};
