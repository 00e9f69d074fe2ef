// The `quillmoss` command line: global options, the shared context handed to
// every subcommand, and the table of subcommands.
#pragma once

#include "services/Services.h"

#include <QCommandLineParser>
#include <QEventLoop>
#include <QFuture>
#include <QFutureWatcher>
#include <QString>
#include <QStringList>
#include <QTextStream>
#include <QUrl>

#include <functional>
#include <memory>
#include <optional>
#include <variant>

class SettingsStore;

enum ExitCode : int
{
    ExitDone = 0,   // the command did what was asked
    ExitFailed = 1, // refused or failed; the user-facing message is on stderr
    ExitUsage = 2,  // the command line itself is wrong
};

// What a subcommand sees: global options, output streams, the shared stores.
class CliContext
{
public:
    CliContext();
    ~CliContext();
    CliContext(const CliContext&) = delete;
    CliContext& operator=(const CliContext&) = delete;

    QUrl backendUrl;
    QUrl webUrl;
    QUrl modelBaseUrl;
    bool json = false;

    QTextStream out;
    QTextStream err;

    // The user's settings, opened on first use.
    SettingsStore& settings();

    // The one composition root, configured from the global options (the web
    // login opens in the browser only when there is a desktop); `adjust`
    // tailors the options to one command.
    std::unique_ptr<Services>
    makeServices(const std::function<void(Services::Options&)>& adjust = {});

    // Reads a secret from standard input, never from the command line, so that
    // it does not show in the process list or the shell history: on a terminal
    // one line, not echoed, after `prompt` on stderr; otherwise all of it. One
    // trailing line break belongs to the way it was typed or piped and is dropped.
    QString readSecret(const QString& prompt);

    // Prints "quillmoss: <message>" on stderr and returns ExitFailed.
    int fail(const QString& message);
    // Prints the message and the subcommand's usage on stderr; returns ExitUsage.
    int usageError(const QString& message, const QString& usage);
    // Parses a subcommand that takes options only (`command` names it in the
    // parser's messages); on a wrong command line, the usage error's exit code.
    std::optional<int> parseOptionsOnly(QCommandLineParser& parser, const QString& command,
                                        const QStringList& arguments, const QString& usage);
    // For a listing that takes only --json (after the verb, or the global
    // one): whether to print JSON, or the usage error's exit code.
    std::variant<bool, int> parseJsonOnly(const QString& command, const QStringList& arguments,
                                          const QString& usage);

private:
    std::unique_ptr<SettingsStore> m_settings;
};

// Runs the event loop until `future` has finished; returns it.
template <typename T> QFuture<T> waitFor(QFuture<T> future)
{
    QFutureWatcher<T> watcher;
    QEventLoop loop;
    QObject::connect(&watcher, &QFutureWatcherBase::finished, &loop, &QEventLoop::quit);
    watcher.setFuture(future);
    if (!future.isFinished())
        loop.exec();
    return future;
}

struct Subcommand
{
    QString name;
    QString summary;
    QString usage; // one line per form, without the leading "quillmoss "
    std::function<int(CliContext&, const QStringList&)> run;
};

// Runs the command line `arguments` (arguments[0] is the program).
int runCli(const QStringList& arguments);

// Subcommands, one file each.
Subcommand keychainSubcommand();
Subcommand settingsSubcommand();
Subcommand devicesSubcommand();
Subcommand benchSubcommand();
Subcommand callSubcommand();
Subcommand transcribeSubcommand();
Subcommand modelsSubcommand();
Subcommand loginSubcommand();
Subcommand logoutSubcommand();
Subcommand whoamiSubcommand();
Subcommand historySubcommand();
Subcommand feedbackSubcommand();
Subcommand integrationsSubcommand();
Subcommand toolsSubcommand();
Subcommand mcpSubcommand();

// Connects the named remote MCP integrations, one after the other, and waits
// for each one's tools to be discovered (and registered); the first failure's
// text otherwise.
std::optional<QString> connectMcpIntegrations(Services& services, const QStringList& names);
