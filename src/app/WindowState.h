// The main window's place and size, remembered across launches.
#pragma once

#include <QObject>
#include <QRect>

class SettingsStore;

class WindowState : public QObject
{
    Q_OBJECT
    // The geometry to open with; x and y are -1 when the window manager should place it.
    Q_PROPERTY(QRect geometry READ geometry CONSTANT)
    Q_PROPERTY(bool maximized READ maximized CONSTANT)

public:
    static constexpr auto geometryKey = "mainWindowGeometry";
    static constexpr int defaultWidth = 1320;
    static constexpr int defaultHeight = 780;
    static constexpr int minimumWidth = 880;
    static constexpr int minimumHeight = 600;

    explicit WindowState(SettingsStore& settings, QObject* parent = nullptr);

    QRect geometry() const { return m_geometry; }
    bool maximized() const { return m_maximized; }

    // Called as the window closes.
    Q_INVOKABLE void save(int x, int y, int width, int height, bool maximized);

private:
    SettingsStore& m_settings;
    QRect m_geometry{-1, -1, defaultWidth, defaultHeight};
    bool m_maximized = false;
};
