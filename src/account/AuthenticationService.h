// The signed-in state of the application: the start-up token check, sign-in
// through the web login's redirect, the tokens in the secure store, the user's
// profile, token refresh, the valid access token every backend caller asks
// for, and sign-out.
#pragma once

#include "account/UserModel.h"
#include "core/HttpClient.h"
#include "store/StoredTokens.h"

#include <QDateTime>
#include <QFuture>
#include <QObject>
#include <QPromise>
#include <QString>
#include <QUrl>
#include <QVariant>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class KeychainManager;

// Lives on the GUI thread: every published property changes there. Network
// requests and secure-store calls run asynchronously and answer on it.
class AuthenticationService : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool isAuthenticated READ isAuthenticated NOTIFY isAuthenticatedChanged)
    // A UserModel, or null when nobody is signed in.
    Q_PROPERTY(QVariant currentUser READ currentUserValue NOTIFY currentUserChanged)
    Q_PROPERTY(bool isAuthenticating READ isAuthenticating NOTIFY isAuthenticatingChanged)
    // The user-facing text of the last failure; empty when there is none.
    Q_PROPERTY(
        QString authenticationError READ authenticationError NOTIFY authenticationErrorChanged)
    Q_PROPERTY(QUrl loginUrl READ loginUrl CONSTANT)

public:
    // Secure-store keys of the tokens and their expiry.
    static constexpr auto accessTokenKeychainKey = StoredTokens::accessTokenKey;
    static constexpr auto sessionTokenKeychainKey = StoredTokens::sessionTokenKey;
    static constexpr auto refreshTokenKeychainKey = StoredTokens::refreshTokenKey;
    static constexpr auto expiresAtKeychainKey = StoredTokens::expiresAtKey;
    static constexpr auto expiresInKeychainKey = StoredTokens::expiresInKey;

    // A refresh is never attempted twice within this time.
    static constexpr std::chrono::seconds refreshFloor{300};

    struct Options
    {
        QUrl backendUrl;
        QUrl webUrl;
        // Run the start-up check right after construction (from the event loop).
        bool checkStoredToken = true;
        std::chrono::milliseconds requestTimeout{60'000};
        // Opens a URL in the user's browser; false when that failed.
        std::function<bool(const QUrl&)> openUrl;
        std::function<QDateTime()> clock = [] { return QDateTime::currentDateTimeUtc(); };
    };

    AuthenticationService(KeychainManager& keychain, Options options, QObject* parent = nullptr);
    ~AuthenticationService() override;

    bool isAuthenticated() const { return m_isAuthenticated; }
    const std::optional<UserModel>& currentUser() const { return m_currentUser; }
    QVariant currentUserValue() const;
    bool isAuthenticating() const { return m_isAuthenticating; }
    QString authenticationError() const { return m_authenticationError; }
    QUrl loginUrl() const;

    // Finishes when the start-up check (or the last retry) has settled the state.
    QFuture<void> startupCheck() const { return m_startupCheck; }
    // Runs the start-up check again (the error screen's retry).
    Q_INVOKABLE void retryStartupCheck();

    // Every URL that reaches the application through its "quillmoss" scheme.
    Q_INVOKABLE void handleRedirect(const QUrl& url) { signInWithRedirect(url); }
    // The same, for callers that wait: false when the URL held no sign-in (the
    // state is then unchanged), true once the sign-in it started has finished.
    QFuture<bool> signInWithRedirect(const QUrl& url);
    // Opens the web login page in the browser.
    Q_INVOKABLE bool startLogin();

    QFuture<void> signIn(const QString& accessToken,
                         const std::optional<QString>& refreshToken = {},
                         const std::optional<QString>& expiresAt = {},
                         const std::optional<QString>& expiresIn = {});
    QFuture<void> fetchAndSetUser();
    // Renews the tokens once; a second call while one runs waits for that one.
    QFuture<void> refreshToken();
    // The token the backend accepts now, refreshed when needed; nothing when
    // the user is signed out or the session could not be renewed.
    QFuture<std::optional<QString>> getValidAccessToken();
    QFuture<void> signOut();
    Q_INVOKABLE void requestSignOut() { signOut(); }

Q_SIGNALS:
    void isAuthenticatedChanged();
    void currentUserChanged();
    void isAuthenticatingChanged();
    void authenticationErrorChanged();

private:
    enum class Validity
    {
        Valid,
        Invalid,
        Unreachable,
    };

    void runStartupCheck();
    void validateToken(const QString& accessToken, const std::function<void(Validity)>& done);
    void storeTokens(const QString& accessToken, const std::optional<QString>& refreshToken,
                     const std::optional<QString>& expiresAt,
                     const std::optional<QString>& expiresIn,
                     const std::function<void(bool)>& done);
    void finishRefresh();

    // Continues with the secure store's answer on this object's thread.
    template <typename T>
    void whenDone(const QFuture<T>& future, const std::function<void(T)>& then);
    void whenSettled(const QFuture<void>& future, const std::function<void()>& then);
    void getProfile(const QString& accessToken, const HttpClient::Completion& then);

    void setAuthenticated(bool value);
    void setCurrentUser(std::optional<UserModel> user);
    void setAuthenticating(bool value);
    void setAuthenticationError(const QString& text);

    KeychainManager& m_keychain;
    Options m_options;
    // Requests in flight go with the service, unanswered.
    HttpClient m_http;

    bool m_isAuthenticated = false;
    std::optional<UserModel> m_currentUser;
    bool m_isAuthenticating = false;
    QString m_authenticationError;

    // The single-flight guard of refresh.
    bool m_isRefreshingToken = false;
    std::optional<QDateTime> m_lastTokenRefresh;
    std::shared_ptr<QPromise<void>> m_refresh;

    QFuture<void> m_startupCheck;
    std::shared_ptr<QPromise<void>> m_startupPromise;
};
