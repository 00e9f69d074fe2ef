// Where the mini window appears, over screen layouts given to the manager:
// no remembered place, one on screen, one off screen, one on a monitor since
// unplugged, no screen at all; what is then remembered and logged; and a
// window the screens moved away from brought back when shown.
#include "LogCapture.h"
#include "account/Analytics.h"
#include "app/UtilityWindowManager.h"
#include "store/SettingsStore.h"

#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(std::optional<PrimaryScreenGeometry>)
Q_DECLARE_METATYPE(std::optional<QPointF>)

namespace {

// A 1920x1080 primary screen with a 32-point panel along its top; its bottom
// edge (where remembered y counts from) is at 1080.
PrimaryScreenGeometry laptop()
{
    return {QRectF(0, 0, 1920, 1080), QRectF(0, 32, 1920, 1048)};
}

// The primary screen to the right of another monitor, panel at the bottom.
PrimaryScreenGeometry rightOfAnother()
{
    return {QRectF(1280, 0, 1920, 1080), QRectF(1280, 0, 1920, 1040)};
}

class CountingAnalytics : public Analytics
{
public:
    void track(const QString& event, const QVariantMap&) override { events << event; }
    QStringList events;
};

} // namespace

class UtilityWindowPlacementTest : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_directory;

    std::unique_ptr<SettingsStore> freshSettings()
    {
        static int count = 0;
        return std::make_unique<SettingsStore>(
            m_directory.filePath(u"settings-%1.json"_s.arg(++count)));
    }

    static UtilityWindowManager::WindowFactory plainWindow()
    {
        return [] {
            auto* window = new QWindow;
            window->resize(450, 60);
            return window;
        };
    }

    static std::optional<QPointF> stored(const SettingsStore& settings)
    {
        const auto value = settings.doubleDictionary(u"utilityWindowPosition"_s);
        if (!value)
            return std::nullopt;
        return QPointF(value->value(u"x"_s), value->value(u"y"_s));
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY(m_directory.isValid()); }

    void placesTheWindowAtItsFirstShow_data()
    {
        QTest::addColumn<std::optional<PrimaryScreenGeometry>>("screen");
        QTest::addColumn<std::optional<QPointF>>("remembered");
        QTest::addColumn<QPoint>("topLeft");
        QTest::addColumn<std::optional<QPointF>>("rememberedAfter");
        QTest::addColumn<QString>("logLine");

        // The default: 470 in from the available right edge, its bottom 100
        // below the available top (1080 - 132 = 948 counted up from the bottom).
        const QPointF laptopDefault(1450, 948);
        QTest::newRow("first run: the top-right, tested like any point, not written")
            << std::optional(laptop()) << std::optional<QPointF>() << QPoint(1450, 72)
            << std::optional<QPointF>()
            << u"🪟 [UtilityWindow] Using saved position: (1450, 948)"_s;
        QTest::newRow("remembered on screen: used, bottom-left converted to top-left")
            << std::optional(laptop()) << std::optional(QPointF(200, 300)) << QPoint(200, 720)
            << std::optional(QPointF(200, 300))
            << u"🪟 [UtilityWindow] Using saved position: (200, 300)"_s;
        QTest::newRow("peeking in from the left by 10: still on screen")
            << std::optional(laptop()) << std::optional(QPointF(-440, 300)) << QPoint(-440, 720)
            << std::optional(QPointF(-440, 300))
            << u"🪟 [UtilityWindow] Using saved position: (-440, 300)"_s;
        // The test rectangle is 80 tall: a point 70 below the bottom edge still
        // reaches in, though the 60-point window itself is off screen, and the
        // show then brings it back.
        QTest::newRow("below the bottom, within the taller test rectangle")
            << std::optional(laptop()) << std::optional(QPointF(300, -70)) << QPoint(1450, 72)
            << std::optional(QPointF(300, -70))
            << u"🪟 [UtilityWindow] Using saved position: (300, -70)"_s;
        QTest::newRow("below the bottom, beyond the test rectangle: default, written")
            << std::optional(laptop()) << std::optional(QPointF(300, -80)) << QPoint(1450, 72)
            << std::optional(laptopDefault)
            << u"🪟 [UtilityWindow] Reset position to default: (1450, 948)"_s;
        QTest::newRow("above the panel: off the available area, default")
            << std::optional(laptop()) << std::optional(QPointF(300, 1048)) << QPoint(1450, 72)
            << std::optional(laptopDefault)
            << u"🪟 [UtilityWindow] Reset position to default: (1450, 948)"_s;
        QTest::newRow("off to the right: default, written")
            << std::optional(laptop()) << std::optional(QPointF(5000, 300)) << QPoint(1450, 72)
            << std::optional(laptopDefault)
            << u"🪟 [UtilityWindow] Reset position to default: (1450, 948)"_s;
        QTest::newRow("on a monitor left of the primary, since unplugged: default")
            << std::optional(laptop()) << std::optional(QPointF(-1500, 500)) << QPoint(1450, 72)
            << std::optional(laptopDefault)
            << u"🪟 [UtilityWindow] Reset position to default: (1450, 948)"_s;
        QTest::newRow("the primary right of another monitor: default on the primary")
            << std::optional(rightOfAnother()) << std::optional(QPointF(100, 500))
            << QPoint(2730, 40) << std::optional(QPointF(2730, 980))
            << u"🪟 [UtilityWindow] Reset position to default: (2730, 980)"_s;
        QTest::newRow("no screen: the fallback as the top-left, nothing written")
            << std::optional<PrimaryScreenGeometry>() << std::optional(QPointF(200, 300))
            << QPoint(100, 100) << std::optional(QPointF(200, 300))
            << u"🪟 [UtilityWindow] Using fallback position: (100, 100)"_s;
    }

    void placesTheWindowAtItsFirstShow()
    {
        QFETCH(std::optional<PrimaryScreenGeometry>, screen);
        QFETCH(std::optional<QPointF>, remembered);
        QFETCH(QPoint, topLeft);
        QFETCH(std::optional<QPointF>, rememberedAfter);
        QFETCH(QString, logLine);

        auto settings = freshSettings();
        if (remembered)
            settings->setDoubleDictionary(u"utilityWindowPosition"_s,
                                          {{u"x"_s, remembered->x()}, {u"y"_s, remembered->y()}});
        // The stored preference must not change the level: the window floats anyway.
        settings->setBool(u"utilityWindowStaysOnTop"_s, false);
        CountingAnalytics analytics;
        LogCapture log;
        UtilityWindowManager manager(*settings, analytics, plainWindow(),
                                     [screen] { return screen; });
        QVERIFY(!manager.isVisible());
        QVERIFY(manager.show());
        QVERIFY(manager.isVisible());
        QWindow* window = manager.utilityWindow();
        QVERIFY(window);
        QCOMPARE(window->position(), topLeft);
        QVERIFY(window->flags().testFlag(Qt::WindowStaysOnTopHint));
        QVERIFY(window->flags().testFlag(Qt::Tool));
        QVERIFY(window->flags().testFlag(Qt::FramelessWindowHint));
        QCOMPARE(stored(*settings), rememberedAfter);
        const QStringList lines = log.lines({u"🪟"_s, u"✅"_s, u"❌"_s});
        QCOMPARE(lines.mid(0, 4),
                 (QStringList{
                     u"🪟 [UtilityWindow] Attempting to show utility window..."_s,
                     u"🪟 [UtilityWindow] Creating new utility window..."_s,
                     logLine,
                     u"✅ [UtilityWindow] Window created successfully"_s,
                 }));
        QVERIFY(lines.last().startsWith(
            u"✅ [UtilityWindow] Utility window shown successfully at position: "_s));
    }

    // Shown again after the screens changed: a window now wholly off the
    // primary screen comes back to its top-right; one still on it stays.
    void bringsAWindowBackOnScreenWhenShown_data()
    {
        QTest::addColumn<PrimaryScreenGeometry>("screenAfter");
        QTest::addColumn<QPoint>("topLeftAfter");
        QTest::addColumn<QString>("movedLine");

        // Created at (200, 720) on the laptop.
        QTest::newRow("still on screen") << laptop() << QPoint(200, 720) << QString();
        QTest::newRow("a smaller screen now")
            << PrimaryScreenGeometry{QRectF(0, 0, 800, 600), QRectF(0, 0, 800, 600)}
            << QPoint(330, 40)
            << u"🪟 [UtilityWindow] Moved window back on screen "
               u"to: (330, 500)"_s;
        QTest::newRow("the primary moved to the right")
            << rightOfAnother() << QPoint(2730, 40)
            << u"🪟 [UtilityWindow] Moved window back on screen to: (2730, 980)"_s;
    }

    void bringsAWindowBackOnScreenWhenShown()
    {
        QFETCH(PrimaryScreenGeometry, screenAfter);
        QFETCH(QPoint, topLeftAfter);
        QFETCH(QString, movedLine);

        auto settings = freshSettings();
        settings->setDoubleDictionary(u"utilityWindowPosition"_s, {{u"x"_s, 200}, {u"y"_s, 300}});
        CountingAnalytics analytics;
        PrimaryScreenGeometry screen = laptop();
        UtilityWindowManager manager(*settings, analytics, plainWindow(),
                                     [&screen] { return std::optional(screen); });
        QVERIFY(manager.show());
        manager.hide();
        QVERIFY(!manager.isVisible());
        QCOMPARE(analytics.events, QStringList{u"Utility Window Closed"_s});

        screen = screenAfter;
        LogCapture log;
        manager.toggle();
        QVERIFY(manager.isVisible());
        QCOMPARE(manager.utilityWindow()->position(), topLeftAfter);
        QCOMPARE(log.lines().first(),
                 u"🪟 [UtilityWindow] Toggling utility window. Current visibility: false"_s);
        QCOMPARE(log.lines().contains(movedLine), !movedLine.isEmpty());
        // Kept, not made again.
        QVERIFY(!log.lines().contains(u"🪟 [UtilityWindow] Creating new utility window..."_s));
    }

    // Hiding remembers where the window is, in the remembered form.
    void hidingRemembersTheWindowsPlace()
    {
        auto settings = freshSettings();
        CountingAnalytics analytics;
        UtilityWindowManager manager(*settings, analytics, plainWindow(),
                                     [] { return std::optional(laptop()); });
        QVERIFY(manager.show());
        manager.utilityWindow()->setPosition(600, 500);
        manager.toggle();
        QVERIFY(!manager.isVisible());
        QCOMPARE(stored(*settings), std::optional(QPointF(600, 520)));
    }

    void aWindowThatCannotBeMadeIsNotShown()
    {
        auto settings = freshSettings();
        CountingAnalytics analytics;
        LogCapture log;
        UtilityWindowManager manager(
            *settings, analytics, [] { return nullptr; }, [] { return std::optional(laptop()); });
        QVERIFY(!manager.show());
        QVERIFY(!manager.isVisible());
        QVERIFY(log.lines().contains(u"❌ [UtilityWindow] Failed to create NSWindow"_s));
        QVERIFY(log.lines().contains(u"❌ [UtilityWindow] Failed to create utility window"_s));
    }
};

QTEST_MAIN(UtilityWindowPlacementTest)
#include "UtilityWindowPlacementTest.moc"
