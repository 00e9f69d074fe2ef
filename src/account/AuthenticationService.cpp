#include "account/AuthenticationService.h"

#include "account/LoginRedirect.h"
#include "core/Logging.h"
#include "store/KeychainManager.h"

#include <QFutureWatcher>
#include <QJsonObject>
#include <QTimer>
#include <QUrlQuery>

using namespace Qt::StringLiterals;

namespace {

const QString authPrefix = u"🔐 [AUTH DEBUG] "_s;

void authLog(const QString& line)
{
    qCInfo(lcAccount).noquote() << authPrefix + line;
}

const QString connectionErrorText =
    u"Cannot connect to server. Please check your internet connection and try again."_s;
const QString refreshConnectionErrorText =
    u"Cannot connect to server. Please check your internet connection."_s;
const QString sessionExpiredText = u"Your session has expired. Please sign in again."_s;
const QString profileTimedOutText = u"Connection timed out. Please try again."_s;
const QString profileUnreachableText =
    u"Cannot connect to server. Check your internet connection and try again."_s;
const QString profileServerErrorText = u"Server error. Please try again later."_s;
const QString profileOtherErrorText =
    u"Unable to load your profile. Please try again or contact support."_s;
const QString storeFailedText = u"Failed to store authentication data. Please contact support."_s;

QString boolText(bool value)
{
    return value ? u"true"_s : u"false"_s;
}

// A JSON value received for an expiry, as the text to keep: strings as they
// are, numbers in their shortest decimal form.
std::optional<QString> expiryText(const QJsonValue& value)
{
    if (value.isString())
        return value.toString();
    if (value.isDouble()) {
        const double number = value.toDouble();
        return number == static_cast<double>(static_cast<qint64>(number))
                   ? QString::number(static_cast<qint64>(number))
                   : QString::number(number, 'g', 17);
    }
    return std::nullopt;
}

QFuture<void> promised(const std::function<void(std::function<void()>)>& start)
{
    auto promise = std::make_shared<QPromise<void>>();
    promise->start();
    start([promise] { promise->finish(); });
    return promise->future();
}

} // namespace

AuthenticationService::AuthenticationService(KeychainManager& keychain, Options options,
                                             QObject* parent)
    : QObject(parent), m_keychain(keychain), m_options(std::move(options)),
      m_http(m_options.backendUrl)
{
    authLog(u"AuthenticationService.init() starting"_s);
    if (m_options.checkStoredToken) {
        retryStartupCheck();
    } else {
        QPromise<void> done;
        done.start();
        done.finish();
        m_startupCheck = done.future();
    }
}

AuthenticationService::~AuthenticationService() = default;

QVariant AuthenticationService::currentUserValue() const
{
    return m_currentUser ? QVariant::fromValue(*m_currentUser) : QVariant();
}

QUrl AuthenticationService::loginUrl() const
{
    QUrl url = HttpClient::endpoint(m_options.webUrl, u"/login"_s);
    url.setQuery(u"provider=google"_s);
    return url;
}

bool AuthenticationService::startLogin()
{
    const QUrl url = loginUrl();
    qCInfo(lcAccount).noquote() << u"Opening the login page"_s << url.toString();
    return m_options.openUrl && m_options.openUrl(url);
}

// --- plumbing -------------------------------------------------------------------------------

template <typename T>
void AuthenticationService::whenDone(const QFuture<T>& future, const std::function<void(T)>& then)
{
    auto* watcher = new QFutureWatcher<T>(this);
    connect(watcher, &QFutureWatcherBase::finished, this, [watcher, then] {
        watcher->deleteLater();
        if (watcher->future().isCanceled())
            return; // the service that would have answered is gone
        then(watcher->future().result());
    });
    watcher->setFuture(future);
}

void AuthenticationService::whenSettled(const QFuture<void>& future,
                                        const std::function<void()>& then)
{
    auto* watcher = new QFutureWatcher<void>(this);
    connect(watcher, &QFutureWatcherBase::finished, this, [watcher, then] {
        watcher->deleteLater();
        if (!watcher->future().isCanceled())
            then();
    });
    watcher->setFuture(future);
}

// --- start-up check -------------------------------------------------------------------------

void AuthenticationService::retryStartupCheck()
{
    if (m_startupPromise)
        return; // one check at a time; the running one settles the state
    m_startupPromise = std::make_shared<QPromise<void>>();
    m_startupPromise->start();
    m_startupCheck = m_startupPromise->future();
    // From the event loop, so that whoever constructed us can bind first.
    QTimer::singleShot(0, this, &AuthenticationService::runStartupCheck);
}

void AuthenticationService::runStartupCheck()
{
    auto settle = [this] {
        setAuthenticating(false);
        if (auto promise = std::exchange(m_startupPromise, nullptr))
            promise->finish();
    };
    whenDone<std::optional<QString>>(
        m_keychain.readKeyAsync(StoredTokens::itemName(accessTokenKeychainKey)),
        [this, settle](std::optional<QString> token) {
            if (!token) {
                authLog(u"No stored access token - user needs to authenticate"_s);
                settle();
                return;
            }
            authLog(u"Access token found in keychain. Checking if valid..."_s);
            setAuthenticating(true);
            validateToken(*token, [this, settle](Validity validity) {
                switch (validity) {
                case Validity::Valid:
                    authLog(u"Token is valid, fetching user profile"_s);
                    whenSettled(fetchAndSetUser(), [settle] { settle(); });
                    return;
                case Validity::Invalid:
                    authLog(u"Token appears expired, attempting refresh..."_s);
                    whenSettled(refreshToken(), [settle] { settle(); });
                    return;
                case Validity::Unreachable:
                    // The stored tokens stay for the next start: a refresh would
                    // fail the same way and only burn the refresh floor.
                    settle();
                    return;
                }
            });
        });
}

void AuthenticationService::validateToken(const QString& accessToken,
                                          const std::function<void(Validity)>& done)
{
    getProfile(accessToken, [this, done](const HttpResponse& reply) {
        if (!reply.answered()) {
            qCWarning(lcAccount).noquote() << u"Token validation failed: "_s + reply.errorString;
            authLog(u"Setting connection error in isTokenValid: Cannot connect to server"_s);
            setAuthenticationError(connectionErrorText);
            done(Validity::Unreachable);
            return;
        }
        done(reply.isSuccess() ? Validity::Valid : Validity::Invalid);
    });
}

// --- redirect and sign-in -------------------------------------------------------------------

QFuture<bool> AuthenticationService::signInWithRedirect(const QUrl& url)
{
    auto answer = [](bool value) {
        QPromise<bool> promise;
        promise.start();
        promise.addResult(value);
        promise.finish();
        return promise.future();
    };
    authLog(u"=== REDIRECT URL ANALYSIS ==="_s);
    authLog(u"Full URL: "_s + LoginRedirect::redacted(url));
    const LoginRedirect redirect = LoginRedirect::parse(url);
    if (!redirect.validComponents) {
        authLog(u"❌ Invalid redirect URL components"_s);
        return answer(false);
    }
    authLog(u"Query items count: %1"_s.arg(redirect.itemDescriptions.size()));
    for (const QString& item : redirect.itemDescriptions)
        authLog(u"Query item: "_s + item);
    const std::pair<const char*, const std::optional<QString>*> found[] = {
        {"access_token", &redirect.accessToken},
        {"refresh_token", &redirect.refreshToken},
        {"expires_at", &redirect.expiresAt},
        {"expires_in", &redirect.expiresIn},
    };
    for (const auto& [name, value] : found) {
        if (value->has_value())
            authLog(u"✅ Found "_s + QString::fromLatin1(name));
    }
    authLog(u"=== EXTRACTION RESULTS ==="_s);
    auto describe = [](const std::optional<QString>& value) {
        return value ? u"present (%1 characters)"_s.arg(value->size()) : u"missing"_s;
    };
    authLog(u"Access token: "_s + describe(redirect.accessToken));
    authLog(u"Refresh token: "_s + describe(redirect.refreshToken));
    authLog(u"Expires at: "_s + (redirect.expiresAt ? *redirect.expiresAt : u"missing"_s));
    authLog(u"Expires in: "_s + (redirect.expiresIn ? *redirect.expiresIn : u"missing"_s));
    if (!redirect.accessToken) {
        authLog(u"❌ Access token not found in redirect URL"_s);
        return answer(false);
    }
    return signIn(*redirect.accessToken, redirect.refreshToken, redirect.expiresAt,
                  redirect.expiresIn)
        .then([] { return true; });
}

QFuture<void> AuthenticationService::signIn(const QString& accessToken,
                                            const std::optional<QString>& refreshToken,
                                            const std::optional<QString>& expiresAt,
                                            const std::optional<QString>& expiresIn)
{
    return promised([=, this](const std::function<void()>& done) {
        setAuthenticating(true);
        setAuthenticationError(QString());
        authLog(u"Setting isAuthenticating=true, authenticationError=nil"_s);
        authLog(u"=== SIGN IN PROCESS ==="_s);
        authLog(u"Access token length: %1"_s.arg(accessToken.size()));
        authLog(u"Refresh token provided: "_s + boolText(refreshToken.has_value()));
        authLog(u"Expires at provided: "_s + boolText(expiresAt.has_value()));
        authLog(u"Expires in provided: "_s + boolText(expiresIn.has_value()));

        auto fetchProfile = [this, done] {
            authLog(u"Attempting to fetch user profile..."_s);
            whenSettled(fetchAndSetUser(), [done] {
                authLog(u"=== SIGN IN COMPLETE ==="_s);
                done();
            });
        };
        auto storeExpiry = [this, expiresAt, expiresIn, fetchProfile] {
            auto storeExpiresIn = [this, expiresIn, fetchProfile] {
                if (!expiresIn) {
                    fetchProfile();
                    return;
                }
                whenDone<bool>(
                    m_keychain.storeKeyAsync(*expiresIn,
                                             StoredTokens::itemName(expiresInKeychainKey)),
                    [fetchProfile](bool stored) {
                        authLog(u"Expires in storage: "_s + (stored ? u"stored"_s : u"failed"_s));
                        fetchProfile();
                    });
            };
            if (!expiresAt) {
                storeExpiresIn();
                return;
            }
            whenDone<bool>(
                m_keychain.storeKeyAsync(*expiresAt, StoredTokens::itemName(expiresAtKeychainKey)),
                [storeExpiresIn](bool stored) {
                    authLog(u"Expires at storage: "_s + (stored ? u"stored"_s : u"failed"_s));
                    storeExpiresIn();
                });
        };
        auto storeRefresh = [this, refreshToken, storeExpiry] {
            if (!refreshToken) {
                authLog(u"⚠️ No refresh token provided to store"_s);
                storeExpiry();
                return;
            }
            authLog(u"Attempting to store refresh token (length: %1)"_s.arg(refreshToken->size()));
            whenDone<bool>(m_keychain.storeKeyAsync(
                               *refreshToken, StoredTokens::itemName(refreshTokenKeychainKey)),
                           [storeExpiry](bool stored) {
                               authLog(stored ? u"✅ Refresh token stored successfully"_s
                                              : u"❌ Failed to store refresh token in Keychain."_s);
                               storeExpiry();
                           });
        };
        whenDone<bool>(
            m_keychain.storeKeyAsync(accessToken, StoredTokens::itemName(accessTokenKeychainKey)),
            [this, done, storeRefresh](bool stored) {
                if (!stored) {
                    authLog(u"❌ Failed to store access token in Keychain."_s);
                    setAuthenticationError(storeFailedText);
                    setAuthenticating(false);
                    done();
                    return;
                }
                storeRefresh();
            });
    });
}

// --- profile --------------------------------------------------------------------------------

void AuthenticationService::getProfile(const QString& accessToken,
                                       const HttpClient::Completion& then)
{
    m_http.send(HttpRequest::get(u"/auth/user"_s)
                    .acceptingJson()
                    .withBearer(accessToken)
                    .withTimeout(m_options.requestTimeout),
                then);
}

QFuture<void> AuthenticationService::fetchAndSetUser()
{
    return promised([this](const std::function<void()>& done) {
        authLog(u"fetchAndSetUser starting..."_s);
        auto fail = [this, done](const QString& error, const QString& message) {
            authLog(u"fetchAndSetUser failed with error: "_s + error);
            qCWarning(lcAccount).noquote() << u"Failed to fetch/set user profile: "_s + error;
            authLog(u"Setting error in fetchAndSetUser: "_s + message);
            setAuthenticationError(message);
            setAuthenticated(false);
            setCurrentUser(std::nullopt);
            setAuthenticating(false);
            done();
        };
        whenDone<std::optional<QString>>(
            m_keychain.readKeyAsync(StoredTokens::itemName(accessTokenKeychainKey)),
            [this, done, fail](std::optional<QString> token) {
                if (!token) {
                    fail(u"No access token available"_s, profileOtherErrorText);
                    return;
                }
                getProfile(*token, [this, done, fail](const HttpResponse& reply) {
                    if (reply.failure == HttpFailure::TimedOut)
                        return fail(reply.errorString, profileTimedOutText);
                    if (reply.failure == HttpFailure::Unreachable)
                        return fail(reply.errorString, profileUnreachableText);
                    if (!reply.answered())
                        return fail(reply.errorString, profileOtherErrorText);
                    const int status = reply.status;
                    const QByteArray& body = reply.body;
                    if (!reply.isSuccess()) {
                        return fail(
                            u"Error fetching user profile. Status code: %1. Body: %2"_s.arg(status)
                                .arg(QString::fromUtf8(body)),
                            profileServerErrorText);
                    }
                    QString decodeError;
                    std::optional<UserModel> user = UserModel::fromJson(body, &decodeError);
                    if (!user) {
                        const QString attempted =
                            body.isEmpty()
                                ? u"No response body for decoding error"_s
                                : u". JSON attempted to decode: "_s + QString::fromUtf8(body);
                        return fail(u"Error decoding user profile: "_s + decodeError + attempted,
                                    profileOtherErrorText);
                    }
                    setCurrentUser(std::move(user));
                    setAuthenticated(true);
                    setAuthenticating(false);
                    authLog(u"fetchAndSetUser success - setting user and isAuthenticated=true"_s);
                    qCInfo(lcAccount).noquote()
                        << u"User profile fetched and set. User is authenticated."_s;
                    done();
                });
            });
    });
}

// --- refresh --------------------------------------------------------------------------------

QFuture<void> AuthenticationService::refreshToken()
{
    if (m_isRefreshingToken) {
        qCInfo(lcAccount).noquote() << u"Token refresh already in progress"_s;
        return m_refresh->future();
    }
    if (m_lastTokenRefresh &&
        m_lastTokenRefresh->secsTo(m_options.clock()) < refreshFloor.count()) {
        qCInfo(lcAccount).noquote() << u"Token was recently refreshed, not attempting again"_s;
        return promised([](const std::function<void()>& done) { done(); });
    }
    // Guarded from here on: a second caller joins this refresh even while the
    // refresh token is still being read.
    m_isRefreshingToken = true;
    m_refresh = std::make_shared<QPromise<void>>();
    m_refresh->start();
    QFuture<void> future = m_refresh->future();

    auto fail = [this](const QString& error, bool network) {
        qCWarning(lcAccount).noquote() << u"❌ Token refresh failed: "_s + error;
        setAuthenticationError(network ? refreshConnectionErrorText : sessionExpiredText);
        setAuthenticated(false);
        finishRefresh();
    };

    whenDone<std::optional<QString>>(
        m_keychain.readKeyAsync(StoredTokens::itemName(refreshTokenKeychainKey)),
        [this, fail](std::optional<QString> refreshToken) {
            if (!refreshToken) {
                qCWarning(lcAccount).noquote()
                    << u"❌ No refresh token available - user needs to re-authenticate"_s;
                finishRefresh();
                return;
            }
            qCInfo(lcAccount).noquote()
                << u"🔄 Attempting automatic token refresh with stored refresh token..."_s;
            const HttpRequest request =
                HttpRequest::postJson(u"/auth/refresh"_s,
                                      QJsonObject{{"refresh_token"_L1, *refreshToken}})
                    .acceptingJson()
                    .withTimeout(m_options.requestTimeout);
            m_http.send(request, [this, fail](const HttpResponse& reply) {
                if (!reply.answered())
                    return fail(reply.errorString, true);
                const int status = reply.status;
                const QByteArray& answer = reply.body;
                if (!reply.isSuccess()) {
                    qCWarning(lcAccount).noquote()
                        << u"❌ Token refresh failed with status %1: %2"_s.arg(status).arg(
                               answer.isEmpty() ? u"No error details"_s
                                                : QString::fromUtf8(answer));
                    return fail(u"the server answered %1"_s.arg(status), false);
                }
                qCInfo(lcAccount).noquote()
                    << u"✅ Token refresh succeeded with status %1"_s.arg(status);

                const QJsonObject root = reply.json().value_or(QJsonValue()).toObject();
                const QJsonObject data = root.value("data"_L1).toObject();
                const QString accessToken = data.value("access_token"_L1).toString();
                if (!root.value("success"_L1).toBool() || accessToken.isEmpty())
                    return fail(u"the refresh response could not be decoded"_s, false);
                qCInfo(lcAccount).noquote()
                    << u"🔄 Successfully parsed refresh response - new tokens ready"_s;
                qCInfo(lcAccount).noquote()
                    << u"🔄 Refresh API call completed - storing new tokens..."_s;

                const QJsonValue refreshValue = data.value("refresh_token"_L1);
                const std::optional<QString> newRefresh =
                    refreshValue.isString() && !refreshValue.toString().isEmpty()
                        ? std::optional(refreshValue.toString())
                        : std::nullopt;
                storeTokens(
                    accessToken, newRefresh, expiryText(data.value("expires_at"_L1)),
                    expiryText(data.value("expires_in"_L1)), [this, fail](bool stored) {
                        if (!stored) {
                            qCWarning(lcAccount).noquote()
                                << u"❌ Failed to store refreshed tokens"_s;
                            return fail(u"the new tokens could not be stored"_s, false);
                        }
                        qCInfo(lcAccount).noquote()
                            << u"✅ Token refresh successful - new tokens stored in keychain"_s;
                        m_lastTokenRefresh = m_options.clock();
                        qCInfo(lcAccount).noquote()
                            << u"🔄 Fetching updated user profile with new access token..."_s;
                        whenSettled(fetchAndSetUser(), [this] { finishRefresh(); });
                    });
            });
        });
    return future;
}

void AuthenticationService::storeTokens(const QString& accessToken,
                                        const std::optional<QString>& refreshToken,
                                        const std::optional<QString>& expiresAt,
                                        const std::optional<QString>& expiresIn,
                                        const std::function<void(bool)>& done)
{
    // Queued on the store's one worker in this order; the last answer comes last.
    QList<QFuture<bool>> writes{
        m_keychain.storeKeyAsync(accessToken, StoredTokens::itemName(accessTokenKeychainKey))};
    if (refreshToken)
        writes << m_keychain.storeKeyAsync(*refreshToken,
                                           StoredTokens::itemName(refreshTokenKeychainKey));
    if (expiresAt)
        writes << m_keychain.storeKeyAsync(*expiresAt,
                                           StoredTokens::itemName(expiresAtKeychainKey));
    if (expiresIn)
        writes << m_keychain.storeKeyAsync(*expiresIn,
                                           StoredTokens::itemName(expiresInKeychainKey));
    whenDone<bool>(writes.last(), [writes, done](bool) {
        bool all = true;
        for (const QFuture<bool>& write : writes)
            all = all && write.result();
        done(all);
    });
}

void AuthenticationService::finishRefresh()
{
    m_isRefreshingToken = false;
    if (auto promise = std::exchange(m_refresh, nullptr))
        promise->finish();
}

// --- valid token ----------------------------------------------------------------------------

QFuture<std::optional<QString>> AuthenticationService::getValidAccessToken()
{
    auto promise = std::make_shared<QPromise<std::optional<QString>>>();
    promise->start();
    auto answer = [promise](std::optional<QString> token) {
        promise->addResult(std::move(token));
        promise->finish();
    };
    whenDone<std::optional<QString>>(
        m_keychain.readKeyAsync(StoredTokens::itemName(accessTokenKeychainKey)),
        [this, answer](std::optional<QString> token) {
            if (!token) {
                qCInfo(lcAccount).noquote() << u"🔐 No access token available"_s;
                answer(std::nullopt);
                return;
            }
            validateToken(*token, [this, answer, token](Validity validity) {
                if (validity != Validity::Invalid) {
                    // Unreachable: the caller's own request fails the same way and
                    // reports it in its own words; the token may well be good.
                    answer(token);
                    return;
                }
                qCInfo(lcAccount).noquote() << u"🔄 Token expired, attempting refresh..."_s;
                whenSettled(refreshToken(), [this, answer] {
                    whenDone<std::optional<QString>>(
                        m_keychain.readKeyAsync(StoredTokens::itemName(accessTokenKeychainKey)),
                        answer);
                });
            });
        });
    return promise->future();
}

// --- sign-out -------------------------------------------------------------------------------

QFuture<void> AuthenticationService::signOut()
{
    return promised([this](const std::function<void()>& done) {
        const std::pair<const char*, QString> keys[] = {
            {accessTokenKeychainKey,
             u"Failed to delete access token from Keychain during sign out."_s},
            {sessionTokenKeychainKey,
             u"Note: Session token might not have been present or failed to delete from Keychain."_s},
            {refreshTokenKeychainKey,
             u"Note: Refresh token might not have been present or failed to delete from Keychain."_s},
            {expiresAtKeychainKey,
             u"Note: Expires at might not have been present or failed to delete from Keychain."_s},
            {expiresInKeychainKey,
             u"Note: Expires in might not have been present or failed to delete from Keychain."_s},
        };
        QList<QFuture<bool>> deletions;
        QStringList failureTexts;
        for (const auto& [key, failureText] : keys) {
            deletions << m_keychain.deleteKeyAsync(StoredTokens::itemName(key));
            failureTexts << failureText;
        }
        whenDone<bool>(deletions.last(), [this, done, deletions, failureTexts](bool) {
            for (qsizetype i = 0; i < deletions.size(); ++i) {
                if (!deletions[i].result())
                    qCWarning(lcAccount).noquote() << failureTexts[i];
            }
            setAuthenticated(false);
            setCurrentUser(std::nullopt);
            setAuthenticating(false);
            authLog(u"Setting isAuthenticated=false, currentUser=nil, isAuthenticating=false"_s);
            // A signed-out user sees the login screen, not the last failure; the
            // next session starts with its own refresh allowance.
            setAuthenticationError(QString());
            m_lastTokenRefresh.reset();
            qCInfo(lcAccount).noquote()
                << u"User signed out. All tokens and expiration data removed from Keychain and local state cleared."_s;
            done();
        });
    });
}

void AuthenticationService::setAuthenticated(bool value)
{
    if (m_isAuthenticated == value)
        return;
    m_isAuthenticated = value;
    Q_EMIT isAuthenticatedChanged();
}

void AuthenticationService::setCurrentUser(std::optional<UserModel> user)
{
    if (m_currentUser == user)
        return;
    m_currentUser = std::move(user);
    Q_EMIT currentUserChanged();
}

void AuthenticationService::setAuthenticating(bool value)
{
    if (m_isAuthenticating == value)
        return;
    m_isAuthenticating = value;
    Q_EMIT isAuthenticatingChanged();
}

void AuthenticationService::setAuthenticationError(const QString& text)
{
    if (m_authenticationError == text)
        return;
    m_authenticationError = text;
    authLog(u"authenticationError changed: '"_s + text + u"'"_s);
    Q_EMIT authenticationErrorChanged();
}
