#include "app/AppBenchmark.h"

#include "app/ContentView.h"
#include "app/QuillmossApp.h"
#include "call/CallController.h"
#include "services/Services.h"

#include <QFile>
#include <QQuickWindow>
#include <QTimer>

#include <ctime>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// Waits for `ready`, checking every 100 ms, then runs `then`; `failed` after `timeoutMs`.
void whenReady(QObject* context, const std::function<bool()>& ready,
               const std::function<void()>& then, const std::function<void()>& failed,
               int timeoutMs)
{
    auto* timer = new QTimer(context);
    auto waited = std::make_shared<int>(0);
    QObject::connect(timer, &QTimer::timeout, context, [=] {
        if (ready()) {
            timer->deleteLater();
            then();
        } else if ((*waited += timer->interval()) >= timeoutMs) {
            timer->deleteLater();
            failed();
        }
    });
    timer->start(100);
}

double measureCpuPercent(double cpuBefore, const QElapsedTimer& wall)
{
    const double elapsed = double(wall.nsecsElapsed()) / 1e6;
    return elapsed > 0 ? (AppBenchmark::cpuMs() - cpuBefore) / elapsed * 100.0 : 0.0;
}

} // namespace

AppBenchmark::AppBenchmark(QuillmossApp& app, Options options, QObject* parent)
    : QObject(parent), m_app(app), m_options(options)
{}

double AppBenchmark::msSinceProcessStart()
{
    // Field 22 of /proc/self/stat: the start time in clock ticks since boot.
    QFile stat(u"/proc/self/stat"_s);
    if (!stat.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray line = stat.readAll();
    const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
    if (fields.size() < 20)
        return -1;
    const double startTicks = fields.at(19).toDouble();
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    const double nowMs = double(now.tv_sec) * 1000.0 + double(now.tv_nsec) / 1e6;
    return nowMs - startTicks * 1000.0 / double(sysconf(_SC_CLK_TCK));
}

qint64 AppBenchmark::residentKiB(const char* field)
{
    QFile status(u"/proc/self/status"_s);
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith(field))
            return line.mid(qstrlen(field)).trimmed().split(' ').first().toLongLong();
    }
    return 0;
}

double AppBenchmark::cpuMs()
{
    timespec cpu{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &cpu);
    return double(cpu.tv_sec) * 1000.0 + double(cpu.tv_nsec) / 1e6;
}

void AppBenchmark::start()
{
    QQuickWindow* window = m_app.mainWindow();
    if (!window) {
        fail(u"no main window"_s);
        return;
    }
    connect(window, &QQuickWindow::frameSwapped, this, &AppBenchmark::windowFrame);
}

void AppBenchmark::windowFrame()
{
    if (!m_firstFrameSeen) {
        m_firstFrameSeen = true;
        m_figures[u"first_frame_ms"_s] = msSinceProcessStart();
    }
    if (m_mainFrameSeen || m_app.contentView().screen() != u"main"_s)
        return;
    m_mainFrameSeen = true;
    m_figures[u"main_window_ms"_s] = msSinceProcessStart();
    // Settle (the sections load, the first history fetch ends), then measure.
    QTimer::singleShot(m_options.settleMs, this, [this] {
        m_figures[u"rss_kib"_s] = residentKiB();
        m_figures[u"peak_rss_kib"_s] = residentKiB("VmHWM:");
        measureIdle();
    });
}

void AppBenchmark::measureIdle()
{
    const double cpuBefore = cpuMs();
    QElapsedTimer wall;
    wall.start();
    QTimer::singleShot(m_options.idleMs, this, [this, cpuBefore, wall] {
        m_figures[u"idle_cpu_percent"_s] = measureCpuPercent(cpuBefore, wall);
        measureLive();
    });
}

void AppBenchmark::measureLive()
{
    CallController& call = m_app.services().callController();
    whenReady(
        this, [&call] { return call.hasRequiredPermissions() && !call.isInitializingModels(); },
        [this, &call] {
            if (!call.startCall()) {
                fail(u"the call did not start"_s);
                return;
            }
            // From a second in: the start itself (session, streams) is not the steady state.
            QTimer::singleShot(1000, this, [this, &call] {
                const double cpuBefore = cpuMs();
                QElapsedTimer wall;
                wall.start();
                QTimer::singleShot(m_options.liveMs, this, [this, &call, cpuBefore, wall] {
                    m_figures[u"live_cpu_percent"_s] = measureCpuPercent(cpuBefore, wall);
                    m_figures[u"live_rss_kib"_s] = residentKiB();
                    call.endCall();
                    Q_EMIT finished(m_figures);
                });
            });
        },
        [this] { fail(u"no capture permissions (is a sound server running?)"_s); }, 20'000);
}

void AppBenchmark::fail(const QString& step)
{
    m_figures[u"error"_s] = step;
    Q_EMIT finished(m_figures);
}
