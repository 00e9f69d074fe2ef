#include "app/UtilityWindowPlacement.h"

#include <QGuiApplication>
#include <QScreen>

using namespace Qt::StringLiterals;

namespace UtilityWindowPlacement {

namespace {

// The primary screen's bottom edge: where remembered y counts up from.
double bottomEdge(const PrimaryScreenGeometry& screen)
{
    return screen.geometry.top() + screen.geometry.height();
}

// The Qt top-left of a window whose bottom sits `defaultDropFromTop` below the
// available area's top and whose right side is `inset` in from its right edge.
QPointF topRightCorner(const PrimaryScreenGeometry& screen, double inset, double windowHeight)
{
    const QRectF& area = screen.available;
    return {area.left() + area.width() - inset, area.top() + defaultDropFromTop - windowHeight};
}

} // namespace

std::optional<PrimaryScreenGeometry> primaryScreenNow()
{
    const QScreen* screen = QGuiApplication::primaryScreen();
    if (!screen)
        return std::nullopt;
    return PrimaryScreenGeometry{QRectF(screen->geometry()), QRectF(screen->availableGeometry())};
}

QPointF toTopLeft(QPointF remembered, double windowHeight, const PrimaryScreenGeometry& screen)
{
    return {remembered.x(), bottomEdge(screen) - remembered.y() - windowHeight};
}

QPointF toRemembered(QPointF topLeft, double windowHeight, const PrimaryScreenGeometry& screen)
{
    return {topLeft.x(), bottomEdge(screen) - (topLeft.y() + windowHeight)};
}

QPointF defaultPoint(const PrimaryScreenGeometry& screen)
{
    // The window's height cancels out: the remembered form names the bottom edge.
    return toRemembered(topRightCorner(screen, defaultInsetFromRight, 0), 0, screen);
}

Placement placeAtCreation(std::optional<QPointF> remembered, double windowHeight,
                          const std::optional<PrimaryScreenGeometry>& screen)
{
    Placement placement;
    if (!screen) {
        placement.source = Source::Fallback;
        placement.remembered = fallbackPoint;
        placement.topLeft = fallbackPoint;
        return placement;
    }
    // Without a remembered point the default is the candidate, tested like any other.
    const QPointF candidate = remembered.value_or(defaultPoint(*screen));
    const QPointF bottomLeft = toTopLeft(candidate, 0, *screen);
    const QRectF tested(bottomLeft.x(), bottomLeft.y() - testHeight, windowWidth, testHeight);
    if (tested.intersects(screen->available)) {
        placement.source = Source::Saved;
        placement.remembered = candidate;
        placement.topLeft = toTopLeft(candidate, windowHeight, *screen);
        return placement;
    }
    placement.source = Source::Default;
    placement.remembered = defaultPoint(*screen);
    placement.topLeft = toTopLeft(placement.remembered, windowHeight, *screen);
    placement.saveBack = true;
    return placement;
}

std::optional<QPointF> moveBackOnScreen(const QRectF& frame,
                                        const std::optional<PrimaryScreenGeometry>& screen)
{
    if (!screen || frame.intersects(screen->available))
        return std::nullopt;
    return topRightCorner(*screen, frame.width() + onScreenMargin, frame.height());
}

QString describe(QPointF point)
{
    return u"(%1, %2)"_s.arg(point.x()).arg(point.y());
}

} // namespace UtilityWindowPlacement
