#include "app/Clipboard.h"

#include <QClipboard>
#include <QGuiApplication>

namespace {

QClipboard* desktopClipboard()
{
    return qobject_cast<QGuiApplication*>(QCoreApplication::instance()) != nullptr
               ? QGuiApplication::clipboard()
               : nullptr;
}

} // namespace

void Clipboard::setText(const QString& text)
{
    if (QClipboard* clipboard = desktopClipboard()) {
        clipboard->setText(text);
    }
}

QString Clipboard::text() const
{
    const QClipboard* clipboard = desktopClipboard();
    return clipboard != nullptr ? clipboard->text() : QString();
}
