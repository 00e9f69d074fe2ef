#include "app/WindowState.h"

#include "store/SettingsStore.h"

#include <QJsonObject>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

// A stored value that is missing, of the wrong type or absurd is ignored: a
// corrupt settings document must never open an unusable window.
std::optional<int> storedInt(const QJsonObject& object, const QString& key, int low, int high)
{
    const QJsonValue value = object.value(key);
    if (!value.isDouble())
        return std::nullopt;
    const double number = value.toDouble();
    if (number < low || number > high)
        return std::nullopt;
    return int(number);
}

constexpr int maxCoordinate = 100'000;

} // namespace

WindowState::WindowState(SettingsStore& settings, QObject* parent)
    : QObject(parent), m_settings(settings)
{
    const QJsonObject stored = m_settings.value(QString::fromLatin1(geometryKey)).toObject();
    const auto width = storedInt(stored, u"width"_s, minimumWidth, maxCoordinate);
    const auto height = storedInt(stored, u"height"_s, minimumHeight, maxCoordinate);
    if (width && height) {
        m_geometry.setSize({*width, *height});
        const auto x = storedInt(stored, u"x"_s, -maxCoordinate, maxCoordinate);
        const auto y = storedInt(stored, u"y"_s, -maxCoordinate, maxCoordinate);
        if (x && y)
            m_geometry.moveTopLeft({*x, *y});
    }
    m_maximized = stored.value(u"maximized"_s).toBool(false);
}

void WindowState::save(int x, int y, int width, int height, bool maximized)
{
    QJsonObject stored{
        {u"x"_s, x},
        {u"y"_s, y},
        {u"width"_s, std::max(width, minimumWidth)},
        {u"height"_s, std::max(height, minimumHeight)},
        {u"maximized"_s, maximized},
    };
    m_settings.setValue(QString::fromLatin1(geometryKey), stored);
}
