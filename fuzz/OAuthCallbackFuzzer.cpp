// The link a browser hands back from an OAuth sign-in, and the challenge of a
// refused stream, on arbitrary bytes: never crashes, and a code comes out only
// of a link to the redirect address whose one state is the one sent.
#include "mcp/MCPOAuthFlow.h"

#include <QUrlQuery>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));

    // Also the challenge: whatever it names is a web address.
    if (const std::optional<QUrl> metadata = MCPOAuthFlow::resourceMetadataUrl(bytes)) {
        if (!metadata->isValid() ||
            (metadata->scheme() != u"https" && metadata->scheme() != u"http"))
            std::abort();
    }

    const QString redirect = QStringLiteral("quillmoss://oauth/callback");
    const QString state = QStringLiteral("s-1");
    for (const QUrl& callback :
         {QUrl(QString::fromUtf8(bytes)), QUrl(QString::fromUtf8(bytes), QUrl::StrictMode),
          QUrl(redirect + u'?' + QString::fromUtf8(bytes))}) {
        const OAuthCallbackCheck check =
            OAuthCallbackCheck::of(callback, redirect, state, QStringLiteral("Demo"));
        if (check.code.has_value() == !check.error.isEmpty())
            std::abort();
        if (!check.code)
            continue;
        const QUrlQuery query(callback);
        if (check.code->isEmpty() || callback.scheme() != u"quillmoss" ||
            query.allQueryItemValues(QStringLiteral("state"), QUrl::FullyDecoded) !=
                QStringList{state} ||
            query.hasQueryItem(QStringLiteral("error")))
            std::abort();
    }
    return 0;
}
