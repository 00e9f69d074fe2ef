#include "app/ScreenServices.h"

#include <QQmlApplicationEngine>

using namespace Qt::StringLiterals;

ScreenServices& ScreenServices::exposeTo(QQmlApplicationEngine& engine)
{
    auto* services = new ScreenServices(&engine);
    // Read when a root is created, so the fields may be filled in after this.
    engine.setInitialProperties(
        {{QString::fromLatin1(rootProperty), QVariant::fromValue<QObject*>(services)}});
    return *services;
}
