// Product analytics for the app: named events with flat properties, sent to a
// PostHog-style capture endpoint — only when a project key is configured.
// Never call contents: no transcript, summary or chat text goes into an event.
#pragma once

#include "account/Analytics.h"

#include <QObject>
#include <QString>
#include <QUrl>
#include <QVariantMap>

class HttpClient;
class SettingsStore;

// Lives on the GUI thread. Events are fire-and-forget: a failed send is
// logged once and dropped, never retried, never shown to the user.
class PostHogService : public QObject, public Analytics
{
    Q_OBJECT
    Q_PROPERTY(bool isEnabled READ isEnabled CONSTANT)

public:
    // The anonymous id of this installation, made once and kept in the settings.
    static constexpr auto distinctIdKey = "analyticsDistinctId";
    // Property values longer than this are cut: events describe, they do not carry text.
    static constexpr int maxValueLength = 200;

    // Off when `apiKey` or `host` is empty.
    PostHogService(SettingsStore& settings, QString apiKey, QUrl host, QObject* parent = nullptr);
    ~PostHogService() override;
    PostHogService(const PostHogService&) = delete;
    PostHogService& operator=(const PostHogService&) = delete;

    bool isEnabled() const { return m_enabled; }

    void track(const QString& event, const QVariantMap& properties) override;
    // For the screens: "Call Control View", "Insight Tab Selected", …
    Q_INVOKABLE void capture(const QString& event, const QVariantMap& properties = {});

    // The body sent for one event (what the capture endpoint receives).
    QByteArray eventBody(const QString& event, const QVariantMap& properties) const;

private:
    SettingsStore& m_settings;
    const QString m_apiKey;
    const QUrl m_host;
    const bool m_enabled;
    QString m_distinctId;
    HttpClient* m_http = nullptr; // child, only when enabled
    bool m_reportedFailure = false;
};
