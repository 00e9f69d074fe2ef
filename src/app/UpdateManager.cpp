#include "app/UpdateManager.h"

#include "core/Logging.h"

#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

// A feed that has not answered by then will not; the user can simply ask again.
constexpr std::chrono::milliseconds checkTimeout{30'000};
// A release description is a few lines; anything much larger is not one.
constexpr qint64 largestFeed = 256 * 1024;

const QString notConfiguredText = u"Update checks are off in this build."_s;
const QString checkingText = u"Checking for updates…"_s;
const QString upToDateText = u"You're up to date"_s;
const QString unreachableText =
    u"Couldn't check for updates: the update server cannot be reached. Check your internet "
    "connection and try again."_s;
const QString unreadableText =
    u"Couldn't check for updates: the update server sent a release description Quillmoss "
    "cannot read."_s;

QString statusErrorText(int status)
{
    return u"Couldn't check for updates: the update server answered with status %1."_s.arg(status);
}

bool isWebAddress(const QUrl& url)
{
    return url.isValid() && !url.host().isEmpty() &&
           (url.scheme() == u"https"_s || url.scheme() == u"http"_s);
}

// "1.2.3" exactly: numbers and dots, nothing after them. A null version otherwise.
QVersionNumber numericVersion(const QString& text)
{
    qsizetype suffix = 0;
    QVersionNumber version = QVersionNumber::fromString(text, &suffix);
    return suffix == text.size() ? version : QVersionNumber();
}

} // namespace

std::optional<ReleaseDescription> ReleaseDescription::parse(const QByteArray& body)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(body, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()) {
        return std::nullopt;
    }
    const QJsonObject object = document.object();
    const QJsonValue version = object.value(u"version"_s);
    const QJsonValue url = object.value(u"url"_s);
    const QJsonValue notes = object.value(u"notes"_s);
    if (!version.isString() || !url.isString() || !(notes.isString() || notes.isUndefined())) {
        return std::nullopt;
    }
    ReleaseDescription release;
    release.versionText = version.toString().trimmed();
    release.version = numericVersion(release.versionText);
    if (release.version.isNull()) {
        return std::nullopt;
    }
    release.downloadUrl = QUrl(url.toString(), QUrl::StrictMode);
    if (!isWebAddress(release.downloadUrl)) {
        return std::nullopt;
    }
    release.notes = notes.toString();
    return release;
}

UpdateManager::UpdateManager(QUrl feedUrl, QString currentVersion, QObject* parent)
    : QObject(parent), m_feedUrl(std::move(feedUrl)), m_configured(isWebAddress(m_feedUrl)),
      m_currentVersionText(std::move(currentVersion)),
      m_currentVersion(QVersionNumber::fromString(m_currentVersionText)),
      m_http(new HttpClient({}, {}, this))
{
    if (!isConfigured()) {
        m_statusText = notConfiguredText;
    }
}

UpdateManager::~UpdateManager()
{
    if (m_check) {
        m_check->cancel();
    }
}

void UpdateManager::checkForUpdates()
{
    if (!canCheckForUpdates()) {
        return;
    }
    qCInfo(lcApp).noquote() << u"Checking for updates at "_s + m_feedUrl.toString();
    HttpRequest request = HttpRequest::get(m_feedUrl).acceptingJson().withTimeout(checkTimeout);
    request.followRedirects = true;
    m_check = m_http->send(request, [this](const HttpResponse& reply) { replyFinished(reply); });
    Q_EMIT canCheckForUpdatesChanged();
    setStatusText(checkingText);
}

void UpdateManager::replyFinished(const HttpResponse& reply)
{
    m_check = nullptr;
    const int status = reply.status;
    if (status == 0) {
        qCWarning(lcApp).noquote() << u"Update check failed: "_s + reply.errorString;
        finish(false, unreachableText);
        return;
    }
    if (status != 200) {
        qCWarning(lcApp).noquote() << u"Update check failed: the feed answered %1"_s.arg(status);
        finish(false, statusErrorText(status));
        return;
    }
    if (reply.networkError != QNetworkReply::NoError) {
        qCWarning(lcApp).noquote() << u"Update check failed: "_s + reply.errorString;
        finish(false, unreachableText);
        return;
    }
    const std::optional<ReleaseDescription> release =
        ReleaseDescription::parse(reply.body.left(largestFeed));
    if (!release) {
        qCWarning(lcApp).noquote() << u"Update check failed: the feed's answer does not decode"_s;
        finish(false, unreadableText);
        return;
    }
    // 1.2 and 1.2.0 are the same release.
    if (release->version.normalized() > m_currentVersion.normalized()) {
        qCInfo(lcApp).noquote() << u"Update available: "_s + release->versionText;
        setRelease(release->versionText, release->downloadUrl, release->notes);
        finish(true, u"Quillmoss %1 is available"_s.arg(release->versionText));
    } else {
        qCInfo(lcApp).noquote() << u"No update: the feed offers "_s + release->versionText;
        setRelease({}, {}, {});
        finish(true, upToDateText);
    }
}

void UpdateManager::finish(bool ok, const QString& status)
{
    // A failed check says nothing new about releases: what an earlier check
    // found stays on offer.
    setStatusText(status);
    Q_EMIT canCheckForUpdatesChanged();
    Q_EMIT checkFinished(ok);
}

void UpdateManager::setStatusText(const QString& text)
{
    if (m_statusText != text) {
        m_statusText = text;
        Q_EMIT statusTextChanged();
    }
}

void UpdateManager::setRelease(const QString& version, const QUrl& url, const QString& notes)
{
    if (m_availableVersion != version || m_downloadUrl != url || m_releaseNotes != notes) {
        m_availableVersion = version;
        m_downloadUrl = url;
        m_releaseNotes = notes;
        Q_EMIT releaseChanged();
    }
}
