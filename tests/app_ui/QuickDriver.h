// Drives a Qt Quick window as a user would: finds items by objectName and
// clicks them, types into them and reads their text.
#pragma once

#include <QPointer>
#include <QQuickItem>
#include <QQuickWindow>
#include <QString>
#include <QVariant>

class QuickDriver
{
public:
    explicit QuickDriver(QQuickWindow* window) : m_window(window) {}

    // The first object of that name anywhere below the window (popups included).
    QObject* find(const QString& name) const;
    QQuickItem* item(const QString& name) const;
    // Shown, and every ancestor too.
    bool isShown(const QString& name) const;
    QVariant property(const QString& name, const char* property) const;
    QString text(const QString& name) const;

    // Clicks the middle of a shown, enabled item with the mouse; an item
    // scrolled out of the window is activated as a keyboard user would.
    bool click(const QString& name);

private:
    QPointer<QQuickWindow> m_window;
};
