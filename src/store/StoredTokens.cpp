#include "store/StoredTokens.h"

#include "store/KeychainManager.h"

namespace StoredTokens {

QString itemName(const char* key)
{
    return QString::fromLatin1(key);
}

QFuture<std::optional<QString>> readAccessToken(KeychainManager& keychain)
{
    return keychain.readKeyAsync(itemName(accessTokenKey));
}

} // namespace StoredTokens
