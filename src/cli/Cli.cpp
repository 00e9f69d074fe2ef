#include "cli/Cli.h"

#include "core/Logging.h"
#include "store/AppPaths.h"
#include "store/KeychainManager.h"
#include "store/SettingsStore.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QProcess>

#include <cstdio>
#include <termios.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

#ifndef QUILLMOSS_DEFAULT_BACKEND_URL
#error "QUILLMOSS_DEFAULT_BACKEND_URL must be defined by the build"
#endif

namespace {

QList<Subcommand> subcommands()
{
    return {keychainSubcommand(), settingsSubcommand(), devicesSubcommand(),
            modelsSubcommand(),   callSubcommand(),     transcribeSubcommand(),
            loginSubcommand(),    logoutSubcommand(),   whoamiSubcommand(),
            historySubcommand(),  feedbackSubcommand(), integrationsSubcommand(),
            toolsSubcommand(),    mcpSubcommand(),      benchSubcommand()};
}

// The option's value, else the environment variable, else the build default.
QUrl configuredUrl(const QCommandLineParser& parser, const QString& option, const char* variable,
                   const char* fallback)
{
    if (parser.isSet(option)) {
        return QUrl(parser.value(option));
    }
    const QString fromEnvironment = qEnvironmentVariable(variable);
    return QUrl(fromEnvironment.isEmpty() ? QString::fromUtf8(fallback) : fromEnvironment);
}

bool hasDesktop()
{
    return !qEnvironmentVariableIsEmpty("DISPLAY") ||
           !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
}

bool openInBrowser(const QUrl& url)
{
    return hasDesktop() &&
           QProcess::startDetached(u"xdg-open"_s, {url.toString(QUrl::FullyEncoded)});
}

QString overview()
{
    QString text = u"Usage: quillmoss [global options] COMMAND [ARGS]\n\n"
                   u"Quillmoss from the command line.\n\nCommands:\n"_s;
    for (const Subcommand& command : subcommands()) {
        text += u"  %1%2\n"_s.arg(command.name.leftJustified(12), command.summary);
    }
    text += u"\nGlobal options:\n"
            u"  --backend URL          backend base URL (else QUILLMOSS_BACKEND_URL)\n"
            u"  --web URL              product web-site base URL (else QUILLMOSS_WEB_URL)\n"
            u"  --model-base-url URL   speech-model host (else QUILLMOSS_MODEL_BASE_URL)\n"
            u"  --json                 machine-readable output\n"
            u"  --verbose              debug log lines on stderr\n"
            u"  -h, --help             this text; COMMAND --help for a command's usage\n"
            u"  --version              the version\n\n"
            u"Exit status: 0 done, 1 refused or failed, 2 usage error.\n"_s;
    return text;
}

} // namespace

CliContext::CliContext() : out(stdout), err(stderr) {}

CliContext::~CliContext() = default;

SettingsStore& CliContext::settings()
{
    if (!m_settings) {
        m_settings = std::make_unique<SettingsStore>(AppPaths::settingsFilePath());
    }
    return *m_settings;
}

std::unique_ptr<Services>
CliContext::makeServices(const std::function<void(Services::Options&)>& adjust)
{
    Services::Options options;
    options.backendUrl = backendUrl;
    options.webUrl = webUrl;
    options.modelBaseUrl = modelBaseUrl;
    options.openUrl = openInBrowser;
    // A command asks for the start-up check itself when it wants one.
    options.checkStoredToken = false;
    if (adjust)
        adjust(options);
    return std::make_unique<Services>(settings(), KeychainManager::shared(), std::move(options));
}

std::optional<int> CliContext::parseOptionsOnly(QCommandLineParser& parser, const QString& command,
                                                const QStringList& arguments, const QString& usage)
{
    if (!parser.parse(QStringList{command} + arguments))
        return usageError(parser.errorText(), usage);
    if (!parser.positionalArguments().isEmpty())
        return usageError(u"unexpected argument \"%1\""_s.arg(parser.positionalArguments().first()),
                          usage);
    return std::nullopt;
}

std::variant<bool, int> CliContext::parseJsonOnly(const QString& command,
                                                  const QStringList& arguments,
                                                  const QString& usage)
{
    QCommandLineParser parser;
    parser.addOption({u"json"_s, u"Machine-readable output."_s});
    if (const std::optional<int> wrong = parseOptionsOnly(parser, command, arguments, usage))
        return *wrong;
    return json || parser.isSet(u"json"_s);
}

QString CliContext::readSecret(const QString& prompt)
{
    const bool terminal = isatty(STDIN_FILENO) != 0;
    termios saved{};
    if (terminal && tcgetattr(STDIN_FILENO, &saved) == 0) {
        termios quiet = saved;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(STDIN_FILENO, TCSANOW, &quiet);
        err << prompt << Qt::flush;
    }
    QFile input;
    (void)input.open(stdin, QIODevice::ReadOnly);
    QByteArray bytes = terminal ? input.readLine() : input.readAll();
    if (terminal) {
        tcsetattr(STDIN_FILENO, TCSANOW, &saved);
        err << Qt::endl;
    }
    if (bytes.endsWith('\n')) {
        bytes.chop(1);
        if (bytes.endsWith('\r')) {
            bytes.chop(1);
        }
    }
    QString value = QString::fromUtf8(bytes);
    bytes.fill('\0');
    return value;
}

int CliContext::fail(const QString& message)
{
    err << u"quillmoss: "_s << message << Qt::endl;
    return ExitFailed;
}

int CliContext::usageError(const QString& message, const QString& usage)
{
    err << u"quillmoss: "_s << message << u"\nUsage:\n"_s;
    for (const QString& line : usage.split(u'\n', Qt::SkipEmptyParts)) {
        err << u"  quillmoss "_s << line << u'\n';
    }
    err.flush();
    return ExitUsage;
}

int runCli(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsPositionalArguments);
    parser.addOptions({
        {u"backend"_s, u"Backend base URL."_s, u"URL"_s},
        {u"web"_s, u"Product web-site base URL."_s, u"URL"_s},
        {u"model-base-url"_s, u"Speech-model host."_s, u"URL"_s},
        {u"json"_s, u"Machine-readable output."_s},
        {u"verbose"_s, u"Debug log lines on stderr."_s},
        {{u"h"_s, u"help"_s}, u"Show help."_s},
        {u"version"_s, u"Show the version."_s},
    });
    parser.addPositionalArgument(u"command"_s, u"The command to run."_s);

    CliContext context;
    if (!parser.parse(arguments)) {
        return context.usageError(parser.errorText(), u"--help"_s);
    }

    LogOptions logOptions;
    logOptions.directory = AppPaths::logsDirectory();
    // The terminal is for the command's own output: only warnings and errors
    // of the services show there unless asked for more. The file gets info too.
    const bool verbose = parser.isSet(u"verbose"_s);
    logOptions.stderrThreshold = verbose ? QtDebugMsg : QtWarningMsg;
    logOptions.filterRules = verbose ? u"com.quillmoss.*.debug=true"_s : QString();
    Logging::install(logOptions);

    if (parser.isSet(u"version"_s)) {
        context.out << QCoreApplication::applicationName() << u' '
                    << QCoreApplication::applicationVersion() << Qt::endl;
        return ExitDone;
    }
    const QStringList positional = parser.positionalArguments();
    if (parser.isSet(u"help"_s) || positional.isEmpty()) {
        (positional.isEmpty() && !parser.isSet(u"help"_s) ? context.err : context.out)
            << overview();
        return parser.isSet(u"help"_s) ? ExitDone : ExitUsage;
    }

    context.backendUrl =
        configuredUrl(parser, u"backend"_s, "QUILLMOSS_BACKEND_URL", QUILLMOSS_DEFAULT_BACKEND_URL);
    context.webUrl =
        configuredUrl(parser, u"web"_s, "QUILLMOSS_WEB_URL", QUILLMOSS_DEFAULT_WEB_URL);
    context.modelBaseUrl = configuredUrl(parser, u"model-base-url"_s, "QUILLMOSS_MODEL_BASE_URL",
                                         QUILLMOSS_DEFAULT_MODEL_BASE_URL);
    context.json = parser.isSet(u"json"_s);

    const QString& name = positional.first();
    const QStringList commandArguments = positional.mid(1);
    // The command's name only: arguments may carry what has no place in a log.
    qCInfo(lcApp).noquote() << u"▶️ quillmoss %1 %2 started"_s.arg(
        name, QCoreApplication::applicationVersion());
    for (const Subcommand& command : subcommands()) {
        if (command.name != name) {
            continue;
        }
        if (commandArguments.contains(u"--help"_s) || commandArguments.contains(u"-h"_s)) {
            context.out << command.summary << u"\nUsage:\n"_s;
            for (const QString& line : command.usage.split(u'\n', Qt::SkipEmptyParts)) {
                context.out << u"  quillmoss "_s << line << u'\n';
            }
            return ExitDone;
        }
        return command.run(context, commandArguments);
    }
    context.err << u"quillmoss: unknown command \"%1\"\n\n"_s.arg(name) << overview();
    return ExitUsage;
}
