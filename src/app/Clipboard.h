// The desktop clipboard for the screens: copying a call's action items, say.
#pragma once

#include <QObject>
#include <QString>

// Lives on the GUI thread; without a GUI application (the command line, tests
// on QCoreApplication) it holds nothing and copying does nothing.
class Clipboard : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    Q_INVOKABLE void setText(const QString& text);
    Q_INVOKABLE QString text() const;
};
