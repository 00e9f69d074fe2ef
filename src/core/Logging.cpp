#include "core/Logging.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QMutexLocker>

#include <cstdio>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcApp, "com.quillmoss.app")
Q_LOGGING_CATEGORY(lcKeychain, "com.quillmoss.keychain")
Q_LOGGING_CATEGORY(lcSettings, "com.quillmoss.settings")
Q_LOGGING_CATEGORY(lcCapture, "com.quillmoss.capture")
Q_LOGGING_CATEGORY(lcCall, "com.quillmoss.call")
Q_LOGGING_CATEGORY(lcDevices, "com.quillmoss.devices")
Q_LOGGING_CATEGORY(lcAccount, "com.quillmoss.account")
Q_LOGGING_CATEGORY(lcSession, "com.quillmoss.session")
Q_LOGGING_CATEGORY(lcMcp, "com.quillmoss.mcp")
Q_LOGGING_CATEGORY(lcSocket, "com.quillmoss.socket")
Q_LOGGING_CATEGORY(lcHttp, "com.quillmoss.http")
Q_LOGGING_CATEGORY(lcTools, "com.quillmoss.tools")

namespace {

// Debug output of our own categories is opt-in; everything else passes.
constexpr auto defaultRules = "com.quillmoss.*.debug=false";

struct Sink
{
    QMutex mutex;
    LogOptions options;
    QFile file;
    QDate fileDay;
    QtMessageHandler previous = nullptr;
};

Sink& sink()
{
    static Sink instance;
    return instance;
}

// QtMsgType's values are not in order of severity (QtInfoMsg comes last).
int severity(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return 0;
    case QtInfoMsg:
        return 1;
    case QtWarningMsg:
        return 2;
    case QtCriticalMsg:
        return 3;
    case QtFatalMsg:
        return 4;
    }
    return 4;
}

QChar levelLetter(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return u'D';
    case QtInfoMsg:
        return u'I';
    case QtWarningMsg:
        return u'W';
    case QtCriticalMsg:
        return u'E';
    case QtFatalMsg:
        return u'F';
    }
    return u'?';
}

// Opens today's file, rolling over at midnight. Called with the mutex held.
void openFileFor(Sink& s, QDate day)
{
    if (s.options.directory.isEmpty() || (s.file.isOpen() && s.fileDay == day)) {
        return;
    }
    s.file.close();
    s.fileDay = day;
    if (!QDir().mkpath(s.options.directory)) {
        return;
    }
    s.file.setFileName(Logging::logFilePath(s.options.directory, day));
    // Append: several Quillmoss processes share one file a day, and each line is
    // written with one call, so their lines interleave but never mix.
    (void)s.file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text);
}

void pruneOldLogs(const QString& directory)
{
    const QDate oldest = QDate::currentDate().addDays(-Logging::retentionDays);
    const QDir dir(directory);
    const auto entries = dir.entryInfoList({u"quillmoss-*.log"_s}, QDir::Files);
    for (const QFileInfo& entry : entries) {
        const QDate day = QDate::fromString(entry.completeBaseName().mid(10), u"yyyy-MM-dd"_s);
        if (day.isValid() && day < oldest) {
            QFile::remove(entry.absoluteFilePath());
        }
    }
}

void handleMessage(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    const QDateTime now = QDateTime::currentDateTime();
    const QByteArray line = (Logging::formatLine(type, context, message, now) + u'\n').toUtf8();
    Sink& s = sink();
    {
        const QMutexLocker lock(&s.mutex);
        if (s.options.toStderr && severity(type) >= severity(s.options.stderrThreshold)) {
            std::fwrite(line.constData(), 1, static_cast<size_t>(line.size()), stderr);
            std::fflush(stderr);
        }
        openFileFor(s, now.date());
        if (s.file.isOpen()) {
            s.file.write(line);
            s.file.flush();
        }
    }
    if (type == QtFatalMsg) {
        std::abort();
    }
}

} // namespace

void Logging::install(const LogOptions& options)
{
    Sink& s = sink();
    {
        const QMutexLocker lock(&s.mutex);
        s.file.close();
        s.options = options;
    }
    QString rules = QString::fromLatin1(defaultRules);
    if (!options.filterRules.isEmpty()) {
        rules += u'\n' + options.filterRules;
    }
    const QString fromEnvironment = qEnvironmentVariable("QUILLMOSS_LOG_RULES");
    if (!fromEnvironment.isEmpty()) {
        rules += u'\n' + fromEnvironment;
    }
    rules.replace(u';', u'\n');
    QLoggingCategory::setFilterRules(rules);
    if (!options.directory.isEmpty()) {
        pruneOldLogs(options.directory);
    }
    const QtMessageHandler previous = qInstallMessageHandler(handleMessage);
    if (previous != handleMessage) {
        const QMutexLocker lock(&s.mutex);
        s.previous = previous;
    }
}

void Logging::uninstall()
{
    Sink& s = sink();
    const QMutexLocker lock(&s.mutex);
    qInstallMessageHandler(s.previous);
    s.previous = nullptr;
    s.file.close();
}

QString Logging::formatLine(QtMsgType type, const QMessageLogContext& context,
                            const QString& message, const QDateTime& when)
{
    const QString program = QCoreApplication::instance() != nullptr
                                ? QCoreApplication::applicationName()
                                : u"quillmoss"_s;
    QString line = when.toString(u"yyyy-MM-dd HH:mm:ss.zzz"_s) + u' ' + levelLetter(type) + u' ' +
                   program + u'[' + QString::number(QCoreApplication::applicationPid()) + u"] "_s;
    const QLatin1StringView category(context.category != nullptr ? context.category : "default");
    if (category != "default"_L1) {
        line += u'[' + category + u"] "_s;
    }
    line += message;
    // The MCP code is debugged from its logs alone, so its lines say where they
    // come from.
    if (category == QLatin1StringView(lcMcp().categoryName()) && context.file != nullptr) {
        line += u" ("_s + QFileInfo(QString::fromUtf8(context.file)).fileName() + u':' +
                QString::number(context.line) + u", "_s +
                QString::fromUtf8(context.function != nullptr ? context.function : "?") + u')';
    }
    return line;
}

QString Logging::logFilePath(const QString& directory, QDate day)
{
    return QDir(directory).filePath(u"quillmoss-"_s + day.toString(u"yyyy-MM-dd"_s) + u".log"_s);
}
