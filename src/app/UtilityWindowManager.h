// The mini window's keeper: makes the floating window on its first show,
// places it, shows, hides and toggles it, and remembers where the user left
// it (see UtilityWindowPlacement.h for the remembered form).
#pragma once

#include "app/UtilityWindowPlacement.h"

#include <QObject>
#include <QPointer>
#include <QWindow>

#include <functional>
#include <memory>

class Analytics;
class QTimer;
class SettingsStore;

// Lives on the GUI thread. The window, once made, lives until the manager
// (or releaseWindow) ends it: hiding only takes it off the screen.
class UtilityWindowManager : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool isVisible READ isVisible NOTIFY isVisibleChanged)
    // The setting "Auto Show Mini Window" (a missing key reads as off).
    Q_PROPERTY(bool autoShow READ autoShow WRITE setAutoShow NOTIFY autoShowChanged)

public:
    static constexpr auto positionKey = "utilityWindowPosition";
    static constexpr auto staysOnTopKey = "utilityWindowStaysOnTop";
    static constexpr auto autoShowKey = "utilityWindowAutoShow";

    // Makes the window, not yet shown; null when it cannot be made.
    using WindowFactory = std::function<QWindow*()>;

    // `settings` and `analytics` outlive the manager. Without `screens` the
    // primary screen is asked.
    UtilityWindowManager(SettingsStore& settings, Analytics& analytics, WindowFactory makeWindow,
                         ScreenGeometryProvider screens = {}, QObject* parent = nullptr);
    ~UtilityWindowManager() override;
    UtilityWindowManager(const UtilityWindowManager&) = delete;
    UtilityWindowManager& operator=(const UtilityWindowManager&) = delete;

    bool isVisible() const { return m_isVisible; }
    bool autoShow() const;
    void setAutoShow(bool enabled);
    // Null until the first show.
    QWindow* utilityWindow() const { return m_window.get(); }

    // False when the window could not be made.
    Q_INVOKABLE bool show();
    Q_INVOKABLE void hide();
    Q_INVOKABLE void toggle();

    // Ends the window now, its place remembered: what made it (the screens'
    // engine) may go before the manager does.
    void releaseWindow();

Q_SIGNALS:
    void isVisibleChanged();
    void autoShowChanged();

private:
    bool createWindow();
    void setVisible(bool visible);
    // The window moved (or changed height, which moves its bottom-left corner).
    void windowDidMove();
    void rememberPositionNow();
    std::optional<QPointF> rememberedPosition() const;
    void storePosition(QPointF remembered);
    // The window's top-left in the remembered form.
    QPointF rememberedFormOf(const QRect& frame) const;

    SettingsStore& m_settings;
    Analytics& m_analytics;
    WindowFactory m_makeWindow;
    ScreenGeometryProvider m_screens;
    std::unique_ptr<QWindow> m_window;
    // A drag moves the window many times a second; its place is written once
    // the moves settle (and at once on hide and on release).
    QTimer* m_moveSettled; // child
    bool m_isVisible = false;
};
