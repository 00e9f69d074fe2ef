#include "app/PostHogService.h"

#include "core/HttpClient.h"
#include "core/Logging.h"
#include "store/SettingsStore.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUuid>

using namespace Qt::StringLiterals;

PostHogService::PostHogService(SettingsStore& settings, QString apiKey, QUrl host, QObject* parent)
    : QObject(parent), m_settings(settings), m_apiKey(std::move(apiKey)), m_host(std::move(host)),
      m_enabled(!m_apiKey.isEmpty() && m_host.isValid() && !m_host.isEmpty())
{
    if (!m_enabled)
        return;
    m_http = new HttpClient(m_host, {}, this);
    const QString key = QString::fromLatin1(distinctIdKey);
    m_distinctId = m_settings.stringValue(key).value_or(QString());
    if (m_distinctId.isEmpty()) {
        m_distinctId = QUuid::createUuid().toString(QUuid::WithoutBraces);
        m_settings.setString(key, m_distinctId);
    }
    qCInfo(lcApp).noquote() << u"📊 Analytics on, sending to %1"_s.arg(m_host.host());
}

PostHogService::~PostHogService()
{
    // Events still in flight are dropped with the client, unanswered.
}

void PostHogService::track(const QString& event, const QVariantMap& properties)
{
    if (!m_enabled)
        return;
    HttpRequest request;
    request.method = "POST";
    request.url = m_host.resolved(QUrl(u"/capture/"_s));
    request.body = eventBody(event, properties);
    request.contentType = "application/json";
    request.timeout = std::chrono::milliseconds(10'000);
    // Qt's default for a request of its own, kept for the capture endpoint.
    request.followRedirects = true;
    m_http->send(request, [this](const HttpResponse& reply) {
        if (reply.networkError != QNetworkReply::NoError && !m_reportedFailure) {
            m_reportedFailure = true; // once: an unreachable host must not flood the log
            qCWarning(lcApp).noquote()
                << u"⚠️ Analytics events cannot be sent: %1"_s.arg(reply.errorString);
        }
    });
}

void PostHogService::capture(const QString& event, const QVariantMap& properties)
{
    track(event, properties);
}

QByteArray PostHogService::eventBody(const QString& event, const QVariantMap& properties) const
{
    QJsonObject flat;
    for (auto it = properties.cbegin(); it != properties.cend(); ++it) {
        const QVariant& value = it.value();
        switch (value.typeId()) {
        case QMetaType::Bool:
            flat.insert(it.key(), value.toBool());
            break;
        case QMetaType::Int:
        case QMetaType::LongLong:
        case QMetaType::Double:
            flat.insert(it.key(), value.toDouble());
            break;
        default:
            // Everything else as short text: a property names or counts, never quotes.
            flat.insert(it.key(), value.toString().left(maxValueLength));
        }
    }
    flat.insert(u"$lib"_s, u"quillmoss-desktop"_s);
    const QJsonObject body{
        {u"api_key"_s, m_apiKey},
        {u"event"_s, event},
        {u"distinct_id"_s, m_distinctId},
        {u"timestamp"_s, QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs)},
        {u"properties"_s, flat},
    };
    return QJsonDocument(body).toJson(QJsonDocument::Compact);
}
