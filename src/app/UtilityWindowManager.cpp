#include "app/UtilityWindowManager.h"

#include "account/Analytics.h"
#include "app/X11WindowHints.h"
#include "core/Logging.h"
#include "store/SettingsStore.h"

#include <QTimer>

using namespace Qt::StringLiterals;
namespace Placement = UtilityWindowPlacement;

namespace {

constexpr int moveSettleMs = 250;

} // namespace

UtilityWindowManager::UtilityWindowManager(SettingsStore& settings, Analytics& analytics,
                                           WindowFactory makeWindow, ScreenGeometryProvider screens,
                                           QObject* parent)
    : QObject(parent), m_settings(settings), m_analytics(analytics),
      m_makeWindow(std::move(makeWindow)),
      m_screens(screens ? std::move(screens) : ScreenGeometryProvider(Placement::primaryScreenNow)),
      m_moveSettled(new QTimer(this))
{
    m_moveSettled->setSingleShot(true);
    m_moveSettled->setInterval(moveSettleMs);
    connect(m_moveSettled, &QTimer::timeout, this, &UtilityWindowManager::rememberPositionNow);
}

UtilityWindowManager::~UtilityWindowManager()
{
    releaseWindow();
}

bool UtilityWindowManager::autoShow() const
{
    return m_settings.boolValue(QString::fromLatin1(autoShowKey));
}

void UtilityWindowManager::setAutoShow(bool enabled)
{
    if (enabled == autoShow())
        return;
    m_settings.setBool(QString::fromLatin1(autoShowKey), enabled);
    Q_EMIT autoShowChanged();
}

void UtilityWindowManager::releaseWindow()
{
    if (!m_window)
        return;
    if (m_moveSettled->isActive()) {
        m_moveSettled->stop();
        rememberPositionNow();
    }
    m_window->disconnect(this);
    m_window.reset();
    setVisible(false);
}

bool UtilityWindowManager::show()
{
    qCInfo(lcApp) << "🪟 [UtilityWindow] Attempting to show utility window...";
    if (!m_window && !createWindow()) {
        qCWarning(lcApp) << "❌ [UtilityWindow] Failed to create utility window";
        return false;
    }
    // The screens may have changed since it was last shown.
    if (const auto moved =
            Placement::moveBackOnScreen(QRectF(m_window->frameGeometry()), m_screens())) {
        m_window->setPosition(moved->toPoint());
        qCInfo(lcApp).noquote() << u"🪟 [UtilityWindow] Moved window back on screen to: "_s +
                                       Placement::describe(rememberedFormOf(m_window->geometry()));
    }
    m_window->show();
    X11WindowHints::requestSticky(*m_window);
    // In front of every application, not only of ours.
    m_window->raise();
    m_window->requestActivate();
    setVisible(true);
    qCInfo(lcApp).noquote()
        << u"✅ [UtilityWindow] Utility window shown successfully at position: "_s +
               Placement::describe(rememberedFormOf(m_window->geometry()));
    return true;
}

void UtilityWindowManager::hide()
{
    qCInfo(lcApp) << "🪟 [UtilityWindow] Hiding utility window...";
    if (m_window) {
        m_moveSettled->stop();
        rememberPositionNow();
        m_window->hide();
    }
    setVisible(false);
    m_analytics.track(u"Utility Window Closed"_s, {});
}

void UtilityWindowManager::toggle()
{
    qCInfo(lcApp).noquote()
        << u"🪟 [UtilityWindow] Toggling utility window. Current visibility: "_s +
               (m_isVisible ? u"true"_s : u"false"_s);
    if (m_isVisible)
        hide();
    else
        show();
}

bool UtilityWindowManager::createWindow()
{
    qCInfo(lcApp) << "🪟 [UtilityWindow] Creating new utility window...";
    std::unique_ptr<QWindow> window(m_makeWindow ? m_makeWindow() : nullptr);
    if (!window) {
        qCWarning(lcApp) << "❌ [UtilityWindow] Failed to create NSWindow";
        return false;
    }
    // Read, as it always was; the window floats above other applications
    // whatever it says, since a mini window hidden behind the call defeats it.
    const bool staysOnTop = m_settings.boolValue(QString::fromLatin1(staysOnTopKey));
    qCDebug(lcApp) << "utilityWindowStaysOnTop is" << staysOnTop << "- the window floats anyway";
    // A tool window never becomes the app's main window, yet takes the
    // keyboard when clicked, for the chat field.
    window->setFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    X11WindowHints::requestAllWorkspacesBeforeMap(*window);

    const Placement::Placement placement =
        Placement::placeAtCreation(rememberedPosition(), window->height(), m_screens());
    window->setPosition(placement.topLeft.toPoint());
    switch (placement.source) {
    case Placement::Source::Saved:
        qCInfo(lcApp).noquote() << u"🪟 [UtilityWindow] Using saved position: "_s +
                                       Placement::describe(placement.remembered);
        break;
    case Placement::Source::Default:
        qCInfo(lcApp).noquote() << u"🪟 [UtilityWindow] Reset position to default: "_s +
                                       Placement::describe(placement.remembered);
        break;
    case Placement::Source::Fallback:
        qCInfo(lcApp).noquote() << u"🪟 [UtilityWindow] Using fallback position: "_s +
                                       Placement::describe(placement.remembered);
        break;
    }
    if (placement.saveBack)
        storePosition(placement.remembered);

    m_window = std::move(window);
    for (auto changed : {&QWindow::xChanged, &QWindow::yChanged, &QWindow::heightChanged})
        connect(m_window.get(), changed, this, &UtilityWindowManager::windowDidMove);
    qCInfo(lcApp) << "✅ [UtilityWindow] Window created successfully";
    return true;
}

void UtilityWindowManager::setVisible(bool visible)
{
    if (m_isVisible == visible)
        return;
    m_isVisible = visible;
    Q_EMIT isVisibleChanged();
}

void UtilityWindowManager::windowDidMove()
{
    // A hidden window's coordinates are the window manager's business, not a move.
    if (m_window && m_window->isVisible())
        m_moveSettled->start();
}

void UtilityWindowManager::rememberPositionNow()
{
    if (m_window)
        storePosition(rememberedFormOf(m_window->geometry()));
}

std::optional<QPointF> UtilityWindowManager::rememberedPosition() const
{
    const auto stored = m_settings.doubleDictionary(QString::fromLatin1(positionKey));
    if (!stored || !stored->contains(u"x"_s) || !stored->contains(u"y"_s))
        return std::nullopt;
    return QPointF(stored->value(u"x"_s), stored->value(u"y"_s));
}

void UtilityWindowManager::storePosition(QPointF remembered)
{
    m_settings.setDoubleDictionary(QString::fromLatin1(positionKey),
                                   {{u"x"_s, remembered.x()}, {u"y"_s, remembered.y()}});
}

QPointF UtilityWindowManager::rememberedFormOf(const QRect& frame) const
{
    const auto screen = m_screens();
    if (!screen)
        return QPointF(frame.topLeft());
    return Placement::toRemembered(QPointF(frame.topLeft()), frame.height(), *screen);
}
