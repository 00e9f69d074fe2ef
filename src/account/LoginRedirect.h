// The web login's redirect back into the application,
// "quillmoss://oauth/callback?access_token=…&refresh_token=…&expires_at=…&expires_in=…":
// read strictly, and only from its query items (a fragment is ignored).
#pragma once

#include <QString>
#include <QStringList>
#include <QUrl>

#include <optional>

struct LoginRedirect
{
    // False when the URL is not a sign-in callback at all.
    bool validComponents = false;
    // "name (N characters)" for each query item, in order: what may be logged.
    QStringList itemDescriptions;
    std::optional<QString> accessToken;
    std::optional<QString> refreshToken;
    std::optional<QString> expiresAt;
    std::optional<QString> expiresIn;

    static LoginRedirect parse(const QUrl& url);
    // The URL with every query and fragment value replaced by its length, for logs.
    static QString redacted(const QUrl& url);
};
