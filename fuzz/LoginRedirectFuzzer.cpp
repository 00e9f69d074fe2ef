// The sign-in redirect as any URL handed to the application: parsing never
// fails hard, and what may be logged of it never holds a token.
#include "account/LoginRedirect.h"

#include <QString>
#include <QUrl>

#include <cstdint>
#include <cstdlib>

using namespace Qt::StringLiterals;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    for (const QUrl& url : {QUrl::fromEncoded(bytes), QUrl(QString::fromUtf8(bytes))}) {
        const LoginRedirect redirect = LoginRedirect::parse(url);
        const QString logged = LoginRedirect::redacted(url);
        if (redirect.accessToken && !redirect.validComponents)
            std::abort();
        if (redirect.accessToken &&
            logged.contains(u"access_token="_s +
                            QString::fromLatin1(QUrl::toPercentEncoding(*redirect.accessToken))))
            std::abort();
    }
    return 0;
}
