// Product analytics: named events with flat properties. Nothing is sent unless
// an analytics sink is configured.
#pragma once

#include <QString>
#include <QVariantMap>

class Analytics
{
public:
    virtual ~Analytics() = default;
    virtual void track(const QString& event, const QVariantMap& properties) = 0;

    // The sink used when none is configured: drops every event.
    static Analytics& none();
};
