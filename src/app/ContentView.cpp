#include "app/ContentView.h"

#include "account/Analytics.h"
#include "account/AuthenticationService.h"
#include "app/UtilityWindowManager.h"
#include "call/CallController.h"
#include "core/Logging.h"
#include "store/SettingsStore.h"

#include <QFutureWatcher>

using namespace Qt::StringLiterals;

ContentView::ContentView(AuthenticationService& auth, SettingsStore& settings, QObject* parent)
    : QObject(parent), m_auth(auth), m_settings(settings)
{
    const QString stored =
        m_settings.stringValue(QString::fromLatin1(selectedItemKey)).value_or(QString());
    m_selectedItem = sidebarKeys().contains(stored) ? stored : sidebarKeys().first();

    auto* startup = new QFutureWatcher<void>(this);
    connect(startup, &QFutureWatcher<void>::finished, this, [this, startup] {
        m_startupSettled = true;
        startup->deleteLater();
        evaluate();
    });
    startup->setFuture(m_auth.startupCheck());

    connect(&m_auth, &AuthenticationService::isAuthenticatedChanged, this, &ContentView::evaluate);
    connect(&m_auth, &AuthenticationService::isAuthenticatingChanged, this, &ContentView::evaluate);
    connect(&m_auth, &AuthenticationService::currentUserChanged, this, &ContentView::evaluate);
    connect(&m_auth, &AuthenticationService::authenticationErrorChanged, this,
            &ContentView::evaluate);
    evaluate();
}

QVariantList ContentView::sidebarItems()
{
    return {
        QVariantMap{{u"key"_s, u"callControl"_s}, {u"label"_s, u"Call Control"_s}},
        QVariantMap{{u"key"_s, u"callHistory"_s}, {u"label"_s, u"Call History"_s}},
        QVariantMap{{u"key"_s, u"integrations"_s}, {u"label"_s, u"Integrations"_s}},
        QVariantMap{{u"key"_s, u"settings"_s}, {u"label"_s, u"Settings"_s}},
    };
}

QStringList ContentView::sidebarKeys()
{
    return {u"callControl"_s, u"callHistory"_s, u"integrations"_s, u"settings"_s};
}

void ContentView::setSelectedItem(const QString& key)
{
    if (key == m_selectedItem || !sidebarKeys().contains(key))
        return;
    m_selectedItem = key;
    m_settings.setString(QString::fromLatin1(selectedItemKey), key);
    Q_EMIT selectedItemChanged();
}

void ContentView::evaluate()
{
    QString screen;
    QString error;
    QString user;
    const auto& currentUser = m_auth.currentUser();
    if (m_auth.isAuthenticating() || !m_startupSettled) {
        screen = u"loading"_s;
    } else if (m_auth.isAuthenticated() && currentUser) {
        screen = u"main"_s;
        user = currentUser->email;
    } else if (!m_auth.authenticationError().isEmpty()) {
        screen = u"error"_s;
        error = m_auth.authenticationError();
    } else {
        screen = u"login"_s;
    }
    if (screen == m_screen && error == m_errorText && user == m_loggedUser)
        return;

    if (screen == u"loading"_s) {
        qCInfo(lcApp) << "🔐 [ContentView] Showing loading state (isAuthenticating=true)";
    } else if (screen == u"main"_s) {
        qCInfo(lcApp).noquote() << u"🔐 [ContentView] Showing main app for user: %1"_s.arg(user);
    } else if (screen == u"error"_s) {
        qCInfo(lcApp).noquote() << u"🔐 [ContentView] Showing error state: %1"_s.arg(error);
    } else {
        qCInfo(lcApp) << "🔐 [ContentView] Showing login screen (not authenticated, no error)";
        if (m_screen != screen)
            qCInfo(lcApp) << "🔐 AuthenticationView appeared - login screen should be visible";
    }
    m_screen = screen;
    m_errorText = error;
    m_loggedUser = user;
    Q_EMIT screenChanged();
}

void ContentView::attachUtilityWindow(UtilityWindowManager& manager, CallController& call,
                                      Analytics& analytics)
{
    m_utilityWindow = &manager;
    m_call = &call;
    m_analytics = &analytics;
    connect(&call, &CallController::isLiveChanged, this, &ContentView::followCall);
}

bool ContentView::autoShowEnabled() const
{
    return m_utilityWindow && m_utilityWindow->autoShow();
}

void ContentView::followCall()
{
    if (!m_utilityWindow || !m_call || !autoShowEnabled())
        return;
    if (m_call->isLive()) {
        qCInfo(lcApp) << "[ContentView] Auto-showing utility window (call active: true)";
        m_utilityWindow->show();
    } else if (m_utilityWindow->isVisible()) {
        m_utilityWindow->hide();
    }
}

void ContentView::toggleUtilityWindow(const QString& source)
{
    if (!m_utilityWindow)
        return;
    qCInfo(lcApp) << "[ContentView] Keyboard shortcut received for utility window toggle";
    if (m_analytics) {
        m_analytics->track(u"Utility Window Toggle"_s,
                           {{u"source"_s, source}, {u"visible"_s, !m_utilityWindow->isVisible()}});
    }
    m_utilityWindow->toggle();
}

void ContentView::mainWindowMinimized()
{
    qCInfo(lcApp) << "[ContentView] Main window minimized notification received";
    if (!m_utilityWindow || !m_call)
        return;
    const bool autoShow = autoShowEnabled();
    const bool callActive = m_call->isLive();
    const auto text = [](bool value) { return value ? u"true"_s : u"false"_s; };
    if (m_analytics) {
        m_analytics->track(u"Utility Window Toggle"_s,
                           {{u"window_minimized"_s, true}, {u"auto_show_enabled"_s, autoShow}});
    }
    if (autoShow && callActive) {
        qCInfo(lcApp).noquote() << u"[ContentView] Auto-showing utility window (call active: %1)"_s
                                       .arg(text(callActive));
        m_utilityWindow->show();
    } else {
        qCInfo(lcApp).noquote()
            << u"[ContentView] Not auto-showing utility window (auto-show enabled: %1, call active: %2)"_s
                   .arg(text(autoShow), text(callActive));
    }
}
