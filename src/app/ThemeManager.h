// The app's colour theme as the user chose it (Light, Dark, Sepia or System),
// remembered in the settings document, and the palette the screens actually use.
#pragma once

#include <QObject>
#include <QString>
#include <QVariantList>

#include <functional>
#include <optional>

class SettingsStore;

// Lives on the GUI thread. "System" follows the desktop: the manager asks a
// probe whether the desktop is dark whenever the application palette changes,
// so the screens never poll.
class ThemeManager : public QObject
{
    Q_OBJECT
    Q_PROPERTY(
        QString currentTheme READ currentTheme WRITE setCurrentTheme NOTIFY currentThemeChanged)
    Q_PROPERTY(QVariantList themeOptions READ themeOptions CONSTANT)
    Q_PROPERTY(QString resolvedTheme READ resolvedTheme NOTIFY resolvedThemeChanged)
    Q_PROPERTY(bool reduceMotion READ reduceMotion NOTIFY reduceMotionChanged)

public:
    // True when the desktop is dark, false when light, nothing when it cannot tell.
    using DesktopProbe = std::function<std::optional<bool>()>;

    static constexpr auto themeKey = "appTheme";
    static constexpr auto reduceMotionKey = "reduceMotion";
    static constexpr auto reduceMotionVariable = "QUILLMOSS_REDUCE_MOTION";

    // `settings` must outlive the manager. Without a probe the application
    // palette decides (paletteProbe()).
    explicit ThemeManager(SettingsStore& settings, QObject* parent = nullptr);
    ThemeManager(SettingsStore& settings, DesktopProbe desktopIsDark, QObject* parent = nullptr);
    ~ThemeManager() override;
    ThemeManager(const ThemeManager&) = delete;
    ThemeManager& operator=(const ThemeManager&) = delete;

    // "light", "dark", "sepia" or "system"; a stored value that is none of
    // these reads as "system".
    QString currentTheme() const { return m_currentTheme; }
    // Stores the choice; a value that is not a theme is ignored.
    void setCurrentTheme(const QString& theme);
    // {value, label} pairs in the order the settings screen offers them.
    static QVariantList themeOptions();
    static bool isTheme(const QString& value);
    // What the screens draw: "light", "dark" or "sepia".
    QString resolvedTheme() const { return m_resolvedTheme; }
    bool reduceMotion() const { return m_reduceMotion; }

    // Asks the probe again; called on every application palette change.
    Q_INVOKABLE void refreshDesktopAppearance();

    // Dark when the application palette's window colour is dark; nothing
    // without a GUI application.
    static DesktopProbe paletteProbe();

Q_SIGNALS:
    void currentThemeChanged();
    void resolvedThemeChanged();
    void reduceMotionChanged();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void readSettings();
    void settingChanged(const QString& key);
    void updateResolvedTheme();
    void updateReduceMotion();

    SettingsStore& m_settings;
    const DesktopProbe m_desktopIsDark;
    const bool m_reduceMotionRequestedByEnvironment;
    QString m_currentTheme;
    QString m_resolvedTheme;
    bool m_reduceMotion = false;
};
