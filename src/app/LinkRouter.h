// Where a "quillmoss://" link handed to the app (command line, a later launch)
// goes: the web login's callback to the sign-in, the OAuth callback of an MCP
// server's sign-in to the flow that is waiting for it. Anything else is refused.
#pragma once

#include <QList>
#include <QObject>
#include <QPointer>
#include <QUrl>

#include <functional>

class LinkRouter
{
public:
    // What a link is for, decided from the link alone.
    enum class Purpose
    {
        SignIn,   // "quillmoss://oauth/callback" with the tokens, or with nothing an MCP flow sends
        McpOAuth, // "quillmoss://oauth/callback" with "code"/"state" or "error" and no tokens
        Unknown,  // another scheme or another place
    };

    // Takes the link and answers true when a sign-in of its own was waiting
    // for the browser (the sign-in then checks the link's "state"); false
    // leaves the link to the next handler.
    using OAuthCallbackHandler = std::function<bool(const QUrl& callback)>;

    // `signIn` receives every sign-in callback.
    explicit LinkRouter(std::function<void(const QUrl&)> signIn);

    static Purpose purposeOf(const QUrl& url);

    // Hands the link to what it is for; false when nothing took it (logged,
    // without the link's query: a callback carries codes and tokens).
    bool route(const QUrl& url);

    // The MCP sign-in registers here once; the handler goes when `owner` does.
    void addOAuthCallbackHandler(QObject* owner, OAuthCallbackHandler handler);

private:
    struct Registration
    {
        QPointer<QObject> owner;
        OAuthCallbackHandler handler;
    };

    bool offerToOAuthFlows(const QUrl& callback);

    std::function<void(const QUrl&)> m_signIn;
    QList<Registration> m_oauthHandlers;
};
