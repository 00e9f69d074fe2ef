// The signed-in user's tokens in the secure store: the names of their items,
// and reading the access token that backend requests carry.
#pragma once

#include <QFuture>
#include <QString>

#include <optional>

class KeychainManager;

namespace StoredTokens {

inline constexpr auto accessTokenKey = "com.quillmoss.accesstoken";
inline constexpr auto sessionTokenKey = "com.quillmoss.sessiontoken";
inline constexpr auto refreshTokenKey = "com.quillmoss.refreshtoken";
inline constexpr auto expiresAtKey = "com.quillmoss.token.expires_at";
inline constexpr auto expiresInKey = "com.quillmoss.token.expires_in";

// An item name as the store takes it.
QString itemName(const char* key);

// The access token as stored, without asking the backend whether it is still
// good; nothing when none is stored (or the store cannot be read). Answers
// from the store's worker thread.
QFuture<std::optional<QString>> readAccessToken(KeychainManager& keychain);

} // namespace StoredTokens
