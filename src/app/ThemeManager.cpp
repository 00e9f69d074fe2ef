#include "app/ThemeManager.h"

#include "core/Logging.h"
#include "store/SettingsStore.h"

#include <QColor>
#include <QEvent>
#include <QGuiApplication>
#include <QPalette>
#include <QVariantMap>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

const QString systemTheme = u"system"_s;

struct ThemeOption
{
    QString value;
    QString label;
};

const QList<ThemeOption>& options()
{
    static const QList<ThemeOption> all = {
        {u"light"_s, u"Light"_s},
        {u"dark"_s, u"Dark"_s},
        {u"sepia"_s, u"Sepia"_s},
        {systemTheme, u"System"_s},
    };
    return all;
}

bool environmentAsksForReducedMotion()
{
    return qEnvironmentVariable(ThemeManager::reduceMotionVariable).trimmed() == u"1"_s;
}

} // namespace

ThemeManager::ThemeManager(SettingsStore& settings, QObject* parent)
    : ThemeManager(settings, paletteProbe(), parent)
{}

ThemeManager::ThemeManager(SettingsStore& settings, DesktopProbe desktopIsDark, QObject* parent)
    : QObject(parent), m_settings(settings), m_desktopIsDark(std::move(desktopIsDark)),
      m_reduceMotionRequestedByEnvironment(environmentAsksForReducedMotion())
{
    readSettings();
    connect(&m_settings, &SettingsStore::valueChanged, this, &ThemeManager::settingChanged);
    // Qt announces a new application palette (the desktop switched between
    // light and dark) as an event to the application object only.
    if (QCoreApplication* application = QCoreApplication::instance()) {
        application->installEventFilter(this);
    }
}

ThemeManager::~ThemeManager()
{
    if (QCoreApplication* application = QCoreApplication::instance()) {
        application->removeEventFilter(this);
    }
}

void ThemeManager::setCurrentTheme(const QString& theme)
{
    if (!isTheme(theme)) {
        qCWarning(lcApp).noquote() << u"Ignoring unknown theme: "_s + theme;
        return;
    }
    const QString key = QString::fromLatin1(themeKey);
    if (m_settings.stringValue(key) == theme) {
        return;
    }
    // The store announces the write (kept in memory even when saving failed),
    // and that brings the published values up to date.
    if (!m_settings.setString(key, theme)) {
        qCWarning(lcApp).noquote()
            << u"The theme choice could not be saved: "_s + m_settings.lastError();
    }
}

QVariantList ThemeManager::themeOptions()
{
    QVariantList list;
    for (const ThemeOption& option : options()) {
        list.append(QVariantMap{{u"value"_s, option.value}, {u"label"_s, option.label}});
    }
    return list;
}

bool ThemeManager::isTheme(const QString& value)
{
    return std::any_of(options().begin(), options().end(),
                       [&](const ThemeOption& option) { return option.value == value; });
}

void ThemeManager::refreshDesktopAppearance()
{
    updateResolvedTheme();
}

ThemeManager::DesktopProbe ThemeManager::paletteProbe()
{
    return []() -> std::optional<bool> {
        if (qobject_cast<QGuiApplication*>(QCoreApplication::instance()) == nullptr) {
            return std::nullopt;
        }
        // Desktops that switch to a dark style hand Qt a palette with a dark
        // window colour; its lightness is the one signal every platform gives.
        const QColor window = QGuiApplication::palette().color(QPalette::Window);
        return window.lightnessF() < 0.5;
    };
}

bool ThemeManager::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::ApplicationPaletteChange &&
        watched == QCoreApplication::instance()) {
        updateResolvedTheme();
    }
    return QObject::eventFilter(watched, event);
}

void ThemeManager::readSettings()
{
    const std::optional<QString> stored = m_settings.stringValue(QString::fromLatin1(themeKey));
    const QString theme = stored && isTheme(*stored) ? *stored : systemTheme;
    if (theme != m_currentTheme) {
        m_currentTheme = theme;
        Q_EMIT currentThemeChanged();
    }
    updateResolvedTheme();
    updateReduceMotion();
}

void ThemeManager::settingChanged(const QString& key)
{
    if (key == QLatin1String(themeKey) || key == QLatin1String(reduceMotionKey)) {
        readSettings();
    }
}

void ThemeManager::updateResolvedTheme()
{
    QString resolved = m_currentTheme;
    if (m_currentTheme == systemTheme) {
        const std::optional<bool> dark = m_desktopIsDark ? m_desktopIsDark() : std::nullopt;
        resolved = dark.value_or(false) ? u"dark"_s : u"light"_s;
    }
    if (resolved != m_resolvedTheme) {
        m_resolvedTheme = resolved;
        Q_EMIT resolvedThemeChanged();
    }
}

void ThemeManager::updateReduceMotion()
{
    const bool reduce = m_reduceMotionRequestedByEnvironment ||
                        m_settings.boolValue(QString::fromLatin1(reduceMotionKey));
    if (reduce != m_reduceMotion) {
        m_reduceMotion = reduce;
        Q_EMIT reduceMotionChanged();
    }
}
