#include "app/LinkRouter.h"

#include "core/Logging.h"

#include <QUrlQuery>

using namespace Qt::StringLiterals;

namespace {

// The one place both sign-ins return to; the web login's redirect and an MCP
// server's authorization share it, so what the link carries tells them apart.
bool isOAuthCallback(const QUrl& url)
{
    return url.host() == "oauth"_L1 && url.path() == "/callback"_L1;
}

// Scheme, host and path only: the query of a callback holds tokens and codes.
void refuse(const QUrl& url, const QString& reason)
{
    // Encoded, so a crafted link cannot break the line; long paths are cut.
    constexpr qsizetype longestPath = 120;
    QString path = url.path(QUrl::FullyEncoded);
    if (path.size() > longestPath)
        path = path.left(longestPath) + u'…';
    qCWarning(lcApp).noquote()
        << u"⚠️ Ignoring a URL of scheme \"%1\", host \"%2\", path \"%3\" (%4)"_s.arg(
               url.scheme(), url.host(QUrl::FullyEncoded), path, reason);
}

} // namespace

LinkRouter::LinkRouter(std::function<void(const QUrl&)> signIn) : m_signIn(std::move(signIn)) {}

LinkRouter::Purpose LinkRouter::purposeOf(const QUrl& url)
{
    // QUrl lowers the scheme; host and path are ours and exact.
    if (url.scheme() != "quillmoss"_L1 || !isOAuthCallback(url))
        return Purpose::Unknown;
    const QUrlQuery query(url);
    // Tokens make it the web login's, whatever else it carries. A callback with
    // neither tokens nor an MCP answer still goes to the sign-in, which says
    // what was missing.
    if (query.hasQueryItem(u"access_token"_s))
        return Purpose::SignIn;
    for (const QString& item : {u"code"_s, u"state"_s, u"error"_s}) {
        if (query.hasQueryItem(item))
            return Purpose::McpOAuth;
    }
    return Purpose::SignIn;
}

bool LinkRouter::route(const QUrl& url)
{
    switch (purposeOf(url)) {
    case Purpose::SignIn:
        m_signIn(url);
        return true;
    case Purpose::McpOAuth:
        if (offerToOAuthFlows(url))
            return true;
        refuse(url, u"no MCP sign-in is waiting for it"_s);
        return false;
    case Purpose::Unknown:
        break;
    }
    refuse(url, u"not a link Quillmoss handles"_s);
    return false;
}

bool LinkRouter::offerToOAuthFlows(const QUrl& callback)
{
    m_oauthHandlers.removeIf([](const Registration& r) { return r.owner.isNull(); });
    // A copy: a handler may register another flow, or end its owner, while it runs.
    const QList<Registration> handlers = m_oauthHandlers;
    for (const Registration& registration : handlers) {
        if (registration.owner && registration.handler(callback))
            return true;
    }
    return false;
}

void LinkRouter::addOAuthCallbackHandler(QObject* owner, OAuthCallbackHandler handler)
{
    m_oauthHandlers.append({owner, std::move(handler)});
}
