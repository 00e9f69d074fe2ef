// Logging set-up shared by every Quillmoss binary: the log categories, the
// stderr and daily-file output, and the category filter.
#pragma once

#include <QDate>
#include <QLoggingCategory>
#include <QString>

Q_DECLARE_LOGGING_CATEGORY(lcApp)      // "com.quillmoss.app"
Q_DECLARE_LOGGING_CATEGORY(lcKeychain) // "com.quillmoss.keychain"
Q_DECLARE_LOGGING_CATEGORY(lcSettings) // "com.quillmoss.settings"
Q_DECLARE_LOGGING_CATEGORY(lcCapture)  // "com.quillmoss.capture"
Q_DECLARE_LOGGING_CATEGORY(lcCall)     // "com.quillmoss.call"
Q_DECLARE_LOGGING_CATEGORY(lcDevices)  // "com.quillmoss.devices"
Q_DECLARE_LOGGING_CATEGORY(lcAccount)  // "com.quillmoss.account"
Q_DECLARE_LOGGING_CATEGORY(lcSession)  // "com.quillmoss.session"
Q_DECLARE_LOGGING_CATEGORY(lcMcp)      // "com.quillmoss.mcp": lines carry file and function
Q_DECLARE_LOGGING_CATEGORY(lcSocket)   // "com.quillmoss.socket"
Q_DECLARE_LOGGING_CATEGORY(lcHttp)     // "com.quillmoss.http"
Q_DECLARE_LOGGING_CATEGORY(lcTools)    // "com.quillmoss.tools"

struct LogOptions
{
    // Folder of the daily log files; empty writes no file.
    QString directory;
    bool toStderr = true;
    // Lines less severe than this go to the file only (a command line keeps its
    // terminal for its own output).
    QtMsgType stderrThreshold = QtDebugMsg;
    // Extra filter rules in QT_LOGGING_RULES syntax ("com.quillmoss.*.debug=true"),
    // separated by ';' or newlines. Applied after the defaults, so they win.
    QString filterRules;
};

class Logging
{
public:
    // Installs the message handler and filter for the whole process. The
    // environment variable QUILLMOSS_LOG_RULES adds rules after options.filterRules.
    static void install(const LogOptions& options);

    // Stops writing to the log file and restores the handler that was there before.
    static void uninstall();

    // One formatted line, without the trailing newline.
    static QString formatLine(QtMsgType type, const QMessageLogContext& context,
                              const QString& message, const QDateTime& when);

    // The file a line written on `day` goes to.
    static QString logFilePath(const QString& directory, QDate day);

    // Log files older than this many days are removed at install.
    static constexpr int retentionDays = 14;
};
