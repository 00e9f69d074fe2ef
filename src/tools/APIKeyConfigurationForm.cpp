#include "tools/APIKeyConfigurationForm.h"

#include "core/Logging.h"
#include "store/KeychainManager.h"
#include "tools/ConfigurationManager.h"

using namespace Qt::StringLiterals;

APIKeyConfigurationForm::APIKeyConfigurationForm(KeychainManager& keychain,
                                                 ConfigurationManager& configuration,
                                                 QObject* parent)
    : QObject(parent), m_keychain(keychain), m_configuration(&configuration)
{}

bool APIKeyConfigurationForm::save(const QString& name, const QString& key,
                                   const QVariantMap& fields)
{
    const std::optional<IntegrationItem> item =
        m_configuration ? m_configuration->integration(name) : std::nullopt;
    if (!item)
        return fail(u"Unknown integration: "_s + name);
    const QString trimmed = key.trimmed();
    if (trimmed.isEmpty())
        return fail(u"Please enter a valid API key"_s);
    const QString service = IntegrationCatalogue::serviceName(item->name);
    // Stored, and the integration's state and document updated, in one step.
    if (!m_configuration->setAPIKey(item->name, trimmed))
        return fail(u"Failed to store API key securely"_s);
    if (item->name == u"Notion"_s && !storeField(item->name, fields, u"database_id"_s,
                                                 u"Failed to store database ID securely"_s))
        return false;
    if (item->name == u"Resend"_s && !storeField(item->name, fields, u"sender_email"_s,
                                                 u"Failed to store sender email securely"_s))
        return false;
    qCInfo(lcTools).noquote() << u"✅ Stored API key for "_s + item->name +
                                     u" using service name: "_s + service;
    clearError();
    return true;
}

bool APIKeyConfigurationForm::storeField(const QString& name, const QVariantMap& fields,
                                         const QString& fieldKey, const QString& failure)
{
    const QString value = fields.value(fieldKey).toString().trimmed();
    if (value.isEmpty())
        return true;
    if (!m_keychain.storeKey(value, IntegrationCatalogue::fieldItemName(name, fieldKey)))
        return fail(failure);
    return true;
}

QVariantMap APIKeyConfigurationForm::storedFields(const QString& name) const
{
    QVariantMap values;
    const std::optional<IntegrationItem> item =
        m_configuration ? m_configuration->integration(name) : std::nullopt;
    if (!item)
        return values;
    for (const IntegrationField& field : item->additionalFields.value_or(QList<IntegrationField>()))
        values.insert(field.key,
                      m_configuration->fieldValue(item->name, field.key).value_or(QString()));
    return values;
}

void APIKeyConfigurationForm::clearError()
{
    if (m_errorMessage.isEmpty())
        return;
    m_errorMessage.clear();
    Q_EMIT errorMessageChanged();
}

bool APIKeyConfigurationForm::fail(const QString& message)
{
    qCWarning(lcTools).noquote() << u"❌ "_s + message;
    m_errorMessage = message;
    Q_EMIT errorMessageChanged();
    return false;
}
