#include "PulseAudioServer.h"

#include "TestPaths.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int processTimeout = 30000;

QString script()
{
    return TestPaths::sourceDirectory() + u"/scripts/pulse-session"_s;
}

void restore(const char* variable, const QByteArray& value)
{
    if (value.isNull()) {
        qunsetenv(variable);
    } else {
        qputenv(variable, value);
    }
}

} // namespace

PulseAudioServer::PulseAudioServer()
    : m_savedServer(qgetenv("PULSE_SERVER")), m_savedCookie(qgetenv("PULSE_COOKIE"))
{
    // Set before the server is up: nothing in this process may reach another one.
    qputenv("PULSE_SERVER", address().toUtf8());
    qputenv("PULSE_COOKIE", (m_directory.path() + u"/cookie"_s).toUtf8());
    start();
}

PulseAudioServer::~PulseAudioServer()
{
    stop();
    restore("PULSE_SERVER", m_savedServer);
    restore("PULSE_COOKIE", m_savedCookie);
}

QString PulseAudioServer::address() const
{
    return u"unix:"_s + m_directory.path() + u"/native"_s;
}

bool PulseAudioServer::start()
{
    if (m_running) {
        return true;
    }
    QProcess process;
    process.start(script(), {u"start"_s, m_directory.path()});
    if (!process.waitForFinished(processTimeout) || process.exitCode() != 0) {
        m_error =
            u"pulse-session did not start: "_s + QString::fromUtf8(process.readAllStandardError());
        return false;
    }
    m_error.clear();
    m_running = true;
    return true;
}

void PulseAudioServer::stop()
{
    QProcess::execute(script(), {u"stop"_s, m_directory.path()});
    m_running = false;
}

std::unique_ptr<QProcess> PulseAudioServer::startPlaying(const QString& file,
                                                         const QString& sink) const
{
    auto process = std::make_unique<QProcess>();
    process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process->start(u"paplay"_s, {u"--device="_s + sink, file});
    return process;
}

std::optional<int> PulseAudioServer::addVirtualSource(const QString& name,
                                                      const QString& description)
{
    const std::optional<QString> module =
        pactl({u"load-module"_s, u"module-remap-source"_s,
               u"master=%1.monitor"_s.arg(QString::fromLatin1(microphoneFeedSink)),
               u"source_name="_s + name,
               u"source_properties='device.description=\"%1\"'"_s.arg(description)});
    bool ok = false;
    const int index = module ? module->trimmed().toInt(&ok) : -1;
    return ok ? std::optional(index) : std::nullopt;
}

bool PulseAudioServer::removeModule(int module)
{
    return pactl({u"unload-module"_s, QString::number(module)}).has_value();
}

std::optional<QString> PulseAudioServer::pactl(const QStringList& arguments) const
{
    QProcess process;
    process.start(u"pactl"_s, arguments);
    if (!process.waitForFinished(processTimeout) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0) {
        return std::nullopt;
    }
    return QString::fromUtf8(process.readAllStandardOutput());
}

bool PulseAudioServer::makeTone(const QString& path, double frequency, int rate, double seconds)
{
    return QProcess::execute(u"sox"_s,
                             {u"-n"_s, u"-r"_s, QString::number(rate), u"-c"_s, u"1"_s, u"-b"_s,
                              u"16"_s, path, u"synth"_s, QString::number(seconds), u"sine"_s,
                              QString::number(frequency), u"vol"_s, u"0.5"_s}) == 0;
}
