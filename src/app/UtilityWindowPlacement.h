// Where the mini window goes: the remembered point checked against the
// primary screen, the top-right default, the fallback without a screen, and
// the conversion between the remembered point and Qt's window coordinates.
//
// The remembered "utilityWindowPosition" is {"x", "y"}: the window's
// bottom-left corner, with y counted upwards from the bottom edge of the
// primary screen (the form the setting has always had, and the one other
// installations share). Qt places a window by its top-left corner with y
// counted downwards from the top of the virtual desktop. With B the primary
// screen's bottom edge in Qt coordinates (its top + its height) and h the
// window's height:
//
//     Qt top-left (qx, qy)  ->  remembered (qx, B - (qy + h))
//     remembered (x, y)     ->  Qt top-left (x, B - y - h)
//
// Rectangles in the rules below ("size 450 x 80 at the point") extend upwards
// from the remembered point, so they become Qt rectangles ending at B - y.
// Without any screen there is no edge to count from: the fallback point is
// then used as the top-left as it stands.
#pragma once

#include <QPointF>
#include <QRectF>
#include <QString>

#include <functional>
#include <optional>

// What the placement needs to know of the primary screen, in Qt coordinates.
struct PrimaryScreenGeometry
{
    QRectF geometry;  // the whole screen
    QRectF available; // without panels and docks
};

// Answers the primary screen's geometry now; nothing when there is no screen.
using ScreenGeometryProvider = std::function<std::optional<PrimaryScreenGeometry>()>;

namespace UtilityWindowPlacement {

constexpr double windowWidth = 450;
// The height the window is created with (collapsed).
constexpr double createdHeight = 60;
// The height of the rectangle a remembered point is tested with; taller than
// the created window on purpose, so a window peeking in by a few points counts.
constexpr double testHeight = 80;
// The default sits this far in from the right edge (20 points of margin for a
// 450-point window) and its bottom this far below the top.
constexpr double defaultInsetFromRight = 470;
constexpr double defaultDropFromTop = 100;
constexpr double onScreenMargin = 20;
// Without a screen at all.
constexpr QPointF fallbackPoint{100, 100};

enum class Source
{
    Saved,
    Default,
    Fallback
};

struct Placement
{
    Source source = Source::Fallback;
    // The window's remembered form (bottom-left, y up).
    QPointF remembered;
    // Where Qt puts the window's top-left corner.
    QPointF topLeft;
    // The default replaced an unusable remembered point and is to be kept.
    bool saveBack = false;
};

// The Qt reading of the system queried live (the primary screen).
std::optional<PrimaryScreenGeometry> primaryScreenNow();

QPointF toTopLeft(QPointF remembered, double windowHeight, const PrimaryScreenGeometry& screen);
QPointF toRemembered(QPointF topLeft, double windowHeight, const PrimaryScreenGeometry& screen);

// The top-right default, in the remembered form.
QPointF defaultPoint(const PrimaryScreenGeometry& screen);

// Where a window of `windowHeight` goes when it is created, from the
// remembered point (if any) and the screen (if any).
Placement placeAtCreation(std::optional<QPointF> remembered, double windowHeight,
                          const std::optional<PrimaryScreenGeometry>& screen);

// At show: a window whose frame (Qt coordinates) is off the primary screen's
// available area moves back to the top-right; the new top-left, or nothing
// when it may stay.
std::optional<QPointF> moveBackOnScreen(const QRectF& frame,
                                        const std::optional<PrimaryScreenGeometry>& screen);

// "(x, y)" as the log lines print points.
QString describe(QPointF point);

} // namespace UtilityWindowPlacement
