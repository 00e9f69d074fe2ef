#include "app/ThemeManager.h"

#include "TestPaths.h"
#include "store/SettingsStore.h"

#include <QGuiApplication>
#include <QJsonValue>
#include <QPalette>
#include <QSignalSpy>
#include <QTest>

#include <memory>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

const QString themeKey = QString::fromLatin1(ThemeManager::themeKey);
const QString reduceMotionKey = QString::fromLatin1(ThemeManager::reduceMotionKey);

using DesktopAnswer = std::optional<bool>;

} // namespace

class ThemeManagerTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<TemporaryHome> m_home;
    std::unique_ptr<SettingsStore> m_settings;
    DesktopAnswer m_desktopIsDark;

    QString settingsPath() const { return m_home->path() + u"/settings.json"_s; }

    std::unique_ptr<ThemeManager> manager()
    {
        return std::make_unique<ThemeManager>(*m_settings, [this] { return m_desktopIsDark; });
    }

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<TemporaryHome>();
        m_settings = std::make_unique<SettingsStore>(settingsPath());
        m_desktopIsDark = false;
        qunsetenv(ThemeManager::reduceMotionVariable);
    }

    void cleanup()
    {
        m_settings.reset();
        m_home.reset();
        qunsetenv(ThemeManager::reduceMotionVariable);
    }

    void storedValue_data()
    {
        QTest::addColumn<QJsonValue>("stored");
        QTest::addColumn<DesktopAnswer>("desktopIsDark");
        QTest::addColumn<QString>("theme");
        QTest::addColumn<QString>("resolved");
        const QJsonValue never(QJsonValue::Undefined);
        QTest::newRow("never chosen, light desktop")
            << never << DesktopAnswer(false) << u"system"_s << u"light"_s;
        QTest::newRow("system, dark desktop")
            << QJsonValue(u"system"_s) << DesktopAnswer(true) << u"system"_s << u"dark"_s;
        QTest::newRow("system, desktop cannot tell")
            << QJsonValue(u"system"_s) << DesktopAnswer() << u"system"_s << u"light"_s;
        QTest::newRow("light on a dark desktop")
            << QJsonValue(u"light"_s) << DesktopAnswer(true) << u"light"_s << u"light"_s;
        QTest::newRow("sepia") << QJsonValue(u"sepia"_s) << DesktopAnswer(true) << u"sepia"_s
                               << u"sepia"_s;
        QTest::newRow("unknown name")
            << QJsonValue(u"purple"_s) << DesktopAnswer(true) << u"system"_s << u"dark"_s;
        QTest::newRow("label, not value")
            << QJsonValue(u"Dark"_s) << DesktopAnswer(false) << u"system"_s << u"light"_s;
        QTest::newRow("a number") << QJsonValue(2) << DesktopAnswer(false) << u"system"_s
                                  << u"light"_s;
    }

    void storedValue()
    {
        QFETCH(QJsonValue, stored);
        QFETCH(DesktopAnswer, desktopIsDark);
        QFETCH(QString, theme);
        QFETCH(QString, resolved);
        if (!stored.isUndefined()) {
            QVERIFY(m_settings->setValue(themeKey, stored));
        }
        m_desktopIsDark = desktopIsDark;
        auto themes = manager();
        QCOMPARE(themes->currentTheme(), theme);
        QCOMPARE(themes->resolvedTheme(), resolved);
    }

    // The choice survives a restart, also over a corrupt value; nonsense is refused.
    void choicePersists()
    {
        QVERIFY(m_settings->setString(themeKey, u"purple"_s));
        {
            auto themes = manager();
            themes->setCurrentTheme(u"system"_s);
            themes->setCurrentTheme(u"neon"_s);
            QCOMPARE(themes->currentTheme(), u"system"_s);
        }
        m_settings = std::make_unique<SettingsStore>(settingsPath());
        QCOMPARE(m_settings->stringValue(themeKey), u"system"_s);
        manager()->setCurrentTheme(u"sepia"_s);
        m_settings = std::make_unique<SettingsStore>(settingsPath());
        QCOMPARE(manager()->currentTheme(), u"sepia"_s);
    }

    // Only a change the screens would draw differently is announced.
    void changeSignals()
    {
        auto themes = manager();
        QSignalSpy chosen(themes.get(), &ThemeManager::currentThemeChanged);
        QSignalSpy resolved(themes.get(), &ThemeManager::resolvedThemeChanged);

        m_desktopIsDark = true;
        themes->refreshDesktopAppearance();
        themes->refreshDesktopAppearance();
        QCOMPARE(themes->resolvedTheme(), u"dark"_s);
        QCOMPARE(resolved.size(), 1);

        themes->setCurrentTheme(u"sepia"_s);
        m_desktopIsDark = false;
        themes->refreshDesktopAppearance();
        QCOMPARE(resolved.size(), 2);

        // Written by someone else (the command line, another screen).
        QVERIFY(m_settings->remove(themeKey));
        QCOMPARE(themes->currentTheme(), u"system"_s);
        QCOMPARE(themes->resolvedTheme(), u"light"_s);
        QCOMPARE(chosen.size(), 2);
        QCOMPARE(resolved.size(), 3);
    }

    // The real probe: a new application palette (the desktop went dark) is
    // picked up without anyone asking.
    void applicationPaletteDecidesByDefault()
    {
        const QPalette original = QGuiApplication::palette();
        ThemeManager themes(*m_settings);
        QPalette light;
        light.setColor(QPalette::Window, QColor(u"#f0f0f0"_s));
        QGuiApplication::setPalette(light);
        QCOMPARE(themes.resolvedTheme(), u"light"_s);

        QSignalSpy resolved(&themes, &ThemeManager::resolvedThemeChanged);
        QPalette dark;
        dark.setColor(QPalette::Window, QColor(u"#202225"_s));
        QGuiApplication::setPalette(dark);
        QCOMPARE(themes.resolvedTheme(), u"dark"_s);
        QCOMPARE(resolved.size(), 1);
        QGuiApplication::setPalette(original);
    }

    void reduceMotion_data()
    {
        QTest::addColumn<QByteArray>("environment"); // empty: not set
        QTest::addColumn<QJsonValue>("setting");
        QTest::addColumn<bool>("reduce");
        const QJsonValue unset(QJsonValue::Undefined);
        QTest::newRow("nothing asks") << QByteArray() << unset << false;
        QTest::newRow("environment 1") << QByteArray("1") << unset << true;
        QTest::newRow("environment 0") << QByteArray("0") << unset << false;
        QTest::newRow("setting on") << QByteArray() << QJsonValue(true) << true;
        QTest::newRow("setting not a Bool") << QByteArray() << QJsonValue(u"true"_s) << false;
        QTest::newRow("environment wins") << QByteArray("1") << QJsonValue(false) << true;
    }

    void reduceMotion()
    {
        QFETCH(QByteArray, environment);
        QFETCH(QJsonValue, setting);
        QFETCH(bool, reduce);
        if (!environment.isEmpty()) {
            qputenv(ThemeManager::reduceMotionVariable, environment);
        }
        if (!setting.isUndefined()) {
            QVERIFY(m_settings->setValue(reduceMotionKey, setting));
        }
        auto themes = manager();
        QCOMPARE(themes->reduceMotion(), reduce);
        QVERIFY(m_settings->setBool(reduceMotionKey, true));
        QVERIFY(themes->reduceMotion());
    }
};

QTEST_MAIN(ThemeManagerTest)
#include "ThemeManagerTest.moc"
