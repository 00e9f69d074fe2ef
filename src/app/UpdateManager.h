// "Check for Updates": asks the release feed which version is current and says
// whether this build is behind it.
#pragma once

#include "core/HttpClient.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>
#include <QVersionNumber>

#include <optional>

// What the release feed describes: {"version": "0.2.0", "url": "https://…", "notes": "…"}.
struct ReleaseDescription
{
    QVersionNumber version;
    QString versionText; // as the feed wrote it, for the status line
    QUrl downloadUrl;    // http or https only: it is offered to the user to open
    QString notes;

    // Nothing when the body is not such an object, the version is not made of
    // numbers ("1.2.3") or the address is not a web address.
    static std::optional<ReleaseDescription> parse(const QByteArray& body);
};

// Lives on the GUI thread. One check at a time; the feed is only asked when the
// user asks. Builds without a feed address cannot check at all.
class UpdateManager : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool isConfigured READ isConfigured CONSTANT)
    Q_PROPERTY(bool canCheckForUpdates READ canCheckForUpdates NOTIFY canCheckForUpdatesChanged)
    Q_PROPERTY(bool isChecking READ isChecking NOTIFY canCheckForUpdatesChanged)
    Q_PROPERTY(QString currentVersion READ currentVersion CONSTANT)
    Q_PROPERTY(QString statusText READ statusText NOTIFY statusTextChanged)
    Q_PROPERTY(QString availableVersion READ availableVersion NOTIFY releaseChanged)
    Q_PROPERTY(QUrl downloadUrl READ downloadUrl NOTIFY releaseChanged)
    Q_PROPERTY(QString releaseNotes READ releaseNotes NOTIFY releaseChanged)

public:
    // An empty or unusable `feedUrl` switches checking off.
    UpdateManager(QUrl feedUrl, QString currentVersion, QObject* parent = nullptr);
    // Aborts a check in flight.
    ~UpdateManager() override;
    UpdateManager(const UpdateManager&) = delete;
    UpdateManager& operator=(const UpdateManager&) = delete;

    // A web address (http or https) was given for the feed.
    bool isConfigured() const { return m_configured; }
    bool canCheckForUpdates() const { return isConfigured() && !isChecking(); }
    bool isChecking() const { return !m_check.isNull(); }
    QString currentVersion() const { return m_currentVersionText; }
    QString statusText() const { return m_statusText; }
    // The newer version the feed offers; empty when this build is current.
    QString availableVersion() const { return m_availableVersion; }
    QUrl downloadUrl() const { return m_downloadUrl; }
    QString releaseNotes() const { return m_releaseNotes; }

    // Starts a check unless one runs or checking is off; the outcome lands in
    // statusText and the release properties, then checkFinished.
    Q_INVOKABLE void checkForUpdates();

Q_SIGNALS:
    void canCheckForUpdatesChanged();
    void statusTextChanged();
    void releaseChanged();
    void checkFinished(bool ok);

private:
    void replyFinished(const HttpResponse& reply);
    void finish(bool ok, const QString& status);
    void setStatusText(const QString& text);
    void setRelease(const QString& version, const QUrl& url, const QString& notes);

    const QUrl m_feedUrl;
    const bool m_configured;
    const QString m_currentVersionText;
    const QVersionNumber m_currentVersion;
    HttpClient* m_http;         // child
    QPointer<HttpCall> m_check; // the check in flight
    QString m_statusText;
    QString m_availableVersion;
    QUrl m_downloadUrl;
    QString m_releaseNotes;
};
