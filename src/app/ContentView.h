// What the main window shows: the sign-in gate (loading, error, login screen
// or the main application) and the sidebar selection of the main application.
#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QVariantList>

class Analytics;
class AuthenticationService;
class CallController;
class SettingsStore;
class UtilityWindowManager;

// Lives on the GUI thread. Re-evaluates the gate whenever the sign-in state
// changes and logs each screen it decides on once.
class ContentView : public QObject
{
    Q_OBJECT
    // "loading", "error", "login" or "main".
    Q_PROPERTY(QString screen READ screen NOTIFY screenChanged)
    Q_PROPERTY(QString errorText READ errorText NOTIFY screenChanged)
    // {key, label} of the four sections, in order.
    Q_PROPERTY(QVariantList sidebarItems READ sidebarItems CONSTANT)
    Q_PROPERTY(
        QString selectedItem READ selectedItem WRITE setSelectedItem NOTIFY selectedItemChanged)

public:
    static constexpr auto selectedItemKey = "selectedSidebarItem";

    ContentView(AuthenticationService& auth, SettingsStore& settings, QObject* parent = nullptr);

    QString screen() const { return m_screen; }
    QString errorText() const { return m_errorText; }
    static QVariantList sidebarItems();
    static QStringList sidebarKeys();
    QString selectedItem() const { return m_selectedItem; }
    // Unknown keys are ignored; the choice is remembered across launches.
    void setSelectedItem(const QString& key);

    // The mini window's show and hide as the main window and the call go:
    // "Auto Show Mini Window" shows it when a call starts (and when the main
    // window is minimized during one), and the call's end hides it.
    void attachUtilityWindow(UtilityWindowManager& manager, CallController& call,
                             Analytics& analytics);
    // The menu command, its shortcut and a later launch's --toggle-mini-window;
    // `source` names which, for analytics.
    Q_INVOKABLE void toggleUtilityWindow(const QString& source);
    // Told by the main window as it is minimized.
    Q_INVOKABLE void mainWindowMinimized();

Q_SIGNALS:
    void screenChanged();
    void selectedItemChanged();

private:
    void evaluate();
    bool autoShowEnabled() const;
    void followCall();

    AuthenticationService& m_auth;
    SettingsStore& m_settings;
    // Until the start-up check has settled, a stored sign-in may still turn
    // out valid: the loading screen shows instead of a flash of the login.
    bool m_startupSettled = false;
    QString m_screen;
    QString m_errorText;
    QString m_loggedUser;
    QString m_selectedItem;
    QPointer<UtilityWindowManager> m_utilityWindow;
    QPointer<CallController> m_call;
    Analytics* m_analytics = nullptr; // outlives this
};
