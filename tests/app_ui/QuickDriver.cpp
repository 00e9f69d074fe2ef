#include "QuickDriver.h"

#include <QTest>

namespace {

QObject* findIn(QObject* root, const QString& name)
{
    if (!root)
        return nullptr;
    if (root->objectName() == name)
        return root;
    for (QObject* child : root->children()) {
        if (QObject* found = findIn(child, name))
            return found;
    }
    // Items reparented visually (popups, loaders) are reached through their item tree too.
    if (auto* item = qobject_cast<QQuickItem*>(root)) {
        for (QQuickItem* child : item->childItems()) {
            if (child->parent() == root)
                continue; // already searched
            if (QObject* found = findIn(child, name))
                return found;
        }
    }
    return nullptr;
}

} // namespace

QObject* QuickDriver::find(const QString& name) const
{
    if (!m_window)
        return nullptr;
    if (QObject* found = findIn(m_window->contentItem(), name))
        return found;
    return findIn(m_window, name);
}

QQuickItem* QuickDriver::item(const QString& name) const
{
    return qobject_cast<QQuickItem*>(find(name));
}

bool QuickDriver::isShown(const QString& name) const
{
    const QQuickItem* target = item(name);
    if (!target)
        return false;
    for (const QQuickItem* at = target; at; at = at->parentItem()) {
        if (!at->isVisible() || at->opacity() <= 0.0)
            return false;
    }
    return true;
}

QVariant QuickDriver::property(const QString& name, const char* property) const
{
    const QObject* target = find(name);
    return target ? target->property(property) : QVariant();
}

QString QuickDriver::text(const QString& name) const
{
    return property(name, "text").toString();
}

bool QuickDriver::click(const QString& name)
{
    QQuickItem* target = item(name);
    if (!target || !isShown(name) || !target->isEnabled())
        return false;
    const QPointF centre = target->mapToScene({target->width() / 2, target->height() / 2});
    const QRectF inside(0, 0, m_window->width(), m_window->height());
    if (inside.contains(centre)) {
        QTest::mouseClick(m_window, Qt::LeftButton, {}, centre.toPoint());
        return true;
    }
    target->forceActiveFocus(Qt::TabFocusReason);
    QTest::keyClick(m_window, Qt::Key_Space);
    return true;
}
