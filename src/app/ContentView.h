// What the main window shows: the sign-in gate (loading, error, login screen
// or the main application) and the sidebar selection of the main application.
#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QVariantList>

class AuthenticationService;
class SettingsStore;

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

Q_SIGNALS:
    void screenChanged();
    void selectedItemChanged();

private:
    void evaluate();

    AuthenticationService& m_auth;
    SettingsStore& m_settings;
    // Until the start-up check has settled, a stored sign-in may still turn
    // out valid: the loading screen shows instead of a flash of the login.
    bool m_startupSettled = false;
    QString m_screen;
    QString m_errorText;
    QString m_loggedUser;
    QString m_selectedItem;
};
