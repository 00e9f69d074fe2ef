#include "account/LoginRedirect.h"

#include <QUrlQuery>

using namespace Qt::StringLiterals;

namespace {

QString lengthOf(const QString& value)
{
    return u"<%1 characters>"_s.arg(value.size());
}

QString redactedItems(const QString& encoded)
{
    QStringList parts;
    for (const QString& part : encoded.split(u'&', Qt::SkipEmptyParts)) {
        const qsizetype equals = part.indexOf(u'=');
        parts << (equals < 0 ? part : part.left(equals + 1) + lengthOf(part.mid(equals + 1)));
    }
    return parts.join(u'&');
}

} // namespace

LoginRedirect LoginRedirect::parse(const QUrl& url)
{
    LoginRedirect redirect;
    // The scheme is case-insensitive (QUrl lowers it); host and path are ours and exact.
    if (!url.isValid() || url.scheme() != "quillmoss"_L1 || url.host() != "oauth"_L1 ||
        url.path() != "/callback"_L1 || !url.userInfo().isEmpty() || url.port() != -1)
        return redirect;
    redirect.validComponents = true;

    const QUrlQuery query(url);
    const auto items = query.queryItems(QUrl::FullyDecoded);
    for (const auto& [name, value] : items) {
        redirect.itemDescriptions << u"%1 (%2 characters)"_s.arg(name).arg(value.size());
        std::optional<QString>* field = nullptr;
        if (name == "access_token"_L1)
            field = &redirect.accessToken;
        else if (name == "refresh_token"_L1)
            field = &redirect.refreshToken;
        else if (name == "expires_at"_L1)
            field = &redirect.expiresAt;
        else if (name == "expires_in"_L1)
            field = &redirect.expiresIn;
        // The first non-empty value of an item counts; an empty one is as good as absent.
        if (field && !field->has_value() && !value.isEmpty())
            *field = value;
    }
    return redirect;
}

QString LoginRedirect::redacted(const QUrl& url)
{
    QUrl copy = url.adjusted(QUrl::RemoveQuery | QUrl::RemoveFragment | QUrl::RemoveUserInfo);
    QString text = copy.toString(QUrl::FullyEncoded);
    if (url.hasQuery())
        text += u'?' + redactedItems(url.query(QUrl::FullyEncoded));
    if (url.hasFragment())
        text += u'#' + redactedItems(url.fragment(QUrl::FullyEncoded));
    return text;
}
