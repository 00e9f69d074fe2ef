// quillmoss login | logout | whoami: the signed-in session from the command line.
#include "account/AuthenticationService.h"
#include "account/CallHistoryService.h"
#include "cli/Cli.h"
#include "store/KeychainManager.h"

#include <QFile>
#include <QJsonDocument>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

const auto loginUsage =
    u"login                    (prints the login address, then reads the redirect address)\n"
    u"login --redirect URL\n"_s;

QString describeUser(const UserModel& user)
{
    return user.fullName.isEmpty() ? user.email : u"%1 <%2>"_s.arg(user.fullName, user.email);
}

int printUser(CliContext& context, const UserModel& user, const QString& prefix)
{
    if (context.json)
        context.out << QJsonDocument(user.toJson()).toJson(QJsonDocument::Compact) << Qt::endl;
    else
        context.out << prefix << describeUser(user) << Qt::endl;
    return ExitDone;
}

// The cached call history belongs to whoever was signed in.
void forgetCallHistory(Services& services)
{
    services.callHistory().clearCache();
}

QString readRedirectLine(CliContext& context)
{
    if (isatty(STDIN_FILENO) != 0)
        context.err
            << u"Paste the address the browser was sent to (quillmoss://oauth/callback?…): "_s
            << Qt::flush;
    QFile input;
    if (!input.open(stdin, QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(input.readLine()).trimmed();
}

int login(CliContext& context, const QStringList& arguments)
{
    QString redirect;
    if (arguments.size() == 2 && arguments.first() == u"--redirect"_s)
        redirect = arguments.at(1);
    else if (!arguments.isEmpty())
        return context.usageError(u"unexpected arguments"_s, loginUsage);

    const auto services = context.makeServices();
    AuthenticationService* service = &services->authService();
    if (redirect.isEmpty()) {
        context.err << u"Sign in to Quillmoss in your browser:\n  "_s
                    << service->loginUrl().toString(QUrl::FullyEncoded) << Qt::endl;
        if (service->startLogin())
            context.err << u"(opened in your browser)"_s << Qt::endl;
        redirect = readRedirectLine(context);
        if (redirect.isEmpty())
            return context.fail(u"no redirect address was given"_s);
    }

    const QFuture<bool> signedIn =
        waitFor(service->signInWithRedirect(QUrl(redirect, QUrl::StrictMode)));
    if (!signedIn.result())
        return context.fail(u"that address holds no sign-in: it must be "
                            u"quillmoss://oauth/callback?access_token=…"_s);
    if (!service->isAuthenticated() || !service->currentUser())
        return context.fail(service->authenticationError());
    forgetCallHistory(*services);
    return printUser(context, *service->currentUser(), u"Signed in as "_s);
}

int logout(CliContext& context, const QStringList& arguments)
{
    if (!arguments.isEmpty())
        return context.usageError(u"unexpected arguments"_s, u"logout\n"_s);
    if (!KeychainManager::shared().isReachable())
        return context.fail(u"the secure credential store (Secret Service) cannot be reached"_s);
    const auto services = context.makeServices();
    waitFor(services->authService().signOut());
    forgetCallHistory(*services);
    context.out << u"Signed out."_s << Qt::endl;
    return ExitDone;
}

int whoami(CliContext& context, const QStringList& arguments)
{
    if (!arguments.isEmpty())
        return context.usageError(u"unexpected arguments"_s, u"whoami\n"_s);
    const auto services =
        context.makeServices([](Services::Options& options) { options.checkStoredToken = true; });
    AuthenticationService* service = &services->authService();
    waitFor(service->startupCheck());
    if (service->isAuthenticated() && service->currentUser())
        return printUser(context, *service->currentUser(), QString());
    if (!service->authenticationError().isEmpty())
        return context.fail(service->authenticationError());
    return context.fail(u"not signed in: run quillmoss login"_s);
}

} // namespace

Subcommand loginSubcommand()
{
    return {u"login"_s, u"sign in through the web login"_s, loginUsage, login};
}

Subcommand logoutSubcommand()
{
    return {u"logout"_s, u"sign out: removes every stored token"_s, u"logout\n"_s, logout};
}

Subcommand whoamiSubcommand()
{
    return {u"whoami"_s, u"the signed-in user"_s, u"whoami\n"_s, whoami};
}
