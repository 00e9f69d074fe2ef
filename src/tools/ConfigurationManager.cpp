#include "tools/ConfigurationManager.h"

#include "core/Logging.h"
#include "store/KeychainManager.h"
#include "store/SettingsStore.h"
#include "tools/LocalToolManager.h"

#include <QDateTime>
#include <QJsonArray>

using namespace Qt::StringLiterals;

namespace {

const auto enabledIntegrationsKey = u"enabledIntegrations"_s;
const auto lastSyncDateKey = u"lastSyncDate"_s;

// The names in the stored list; whatever else a damaged list holds is passed over.
QStringList storedNames(const QJsonValue& stored)
{
    QStringList names;
    if (stored.isUndefined())
        return names;
    if (!stored.isArray()) {
        qCWarning(lcTools).noquote()
            << u"⚠️ \"enabledIntegrations\" is not a list; every integration starts disabled"_s;
        return names;
    }
    for (const QJsonValue name : stored.toArray()) {
        if (name.isString())
            names.append(name.toString());
        else
            qCWarning(lcTools).noquote()
                << u"⚠️ Ignoring an entry of \"enabledIntegrations\" that is not a name"_s;
    }
    return names;
}

} // namespace

ConfigurationManager::ConfigurationManager(SettingsStore& settings, KeychainManager& keychain,
                                           LocalToolManager& tools, QObject* parent)
    : QObject(parent), m_settings(settings), m_keychain(keychain), m_tools(&tools)
{
    m_config.integrations = IntegrationCatalogue::build();
    loadConfiguration();
    // Remote tools coming and going change the document too.
    connect(&tools, &LocalToolManager::toolsUpdatedChanged, this,
            &ConfigurationManager::announceToolConfiguration);
}

std::optional<IntegrationItem> ConfigurationManager::integration(const QString& name) const
{
    for (const IntegrationItem& item : m_config.integrations) {
        if (item.name.compare(name, Qt::CaseInsensitive) == 0)
            return item;
    }
    return std::nullopt;
}

IntegrationItem* ConfigurationManager::find(const QString& name)
{
    for (IntegrationItem& item : m_config.integrations) {
        if (item.name.compare(name, Qt::CaseInsensitive) == 0)
            return &item;
    }
    return nullptr;
}

void ConfigurationManager::loadConfiguration()
{
    const QStringList enabled = storedNames(m_settings.value(enabledIntegrationsKey));
    IntegrationsConfig config = m_config;
    for (IntegrationItem& item : config.integrations) {
        item.isEnabled = enabled.contains(item.name);
        item.apiKey.reset();
        if (item.requiresAPIKey) {
            const std::optional<QString> key =
                m_keychain.readKey(IntegrationCatalogue::serviceName(item.name));
            if (key && !key->trimmed().isEmpty())
                item.apiKey = key;
        }
    }
    setConfig(std::move(config));
}

bool ConfigurationManager::saveConfiguration()
{
    QStringList enabled;
    for (const IntegrationItem& item : std::as_const(m_config.integrations)) {
        if (item.isEnabled)
            enabled.append(item.name);
    }
    const bool saved = m_settings.setStringList(enabledIntegrationsKey, enabled) &&
                       m_settings.setDate(lastSyncDateKey, QDateTime::currentDateTimeUtc());
    if (!saved)
        qCWarning(lcTools).noquote()
            << u"❌ Could not save the integrations: "_s + m_settings.lastError();
    if (onIntegrationsChange)
        onIntegrationsChange(enabled);
    return saved;
}

bool ConfigurationManager::setAPIKey(const QString& name, const QString& key)
{
    const std::optional<IntegrationItem> item = integration(name);
    if (!item || key.isEmpty() ||
        !m_keychain.storeKey(key, IntegrationCatalogue::serviceName(item->name)))
        return false;
    IntegrationsConfig config = m_config;
    for (IntegrationItem& each : config.integrations) {
        if (each.name == item->name)
            each.apiKey = key;
    }
    setConfig(std::move(config));
    return saveConfiguration();
}

bool ConfigurationManager::removeAPIKey(const QString& name)
{
    const std::optional<IntegrationItem> item = integration(name);
    if (!item || !m_keychain.deleteKey(IntegrationCatalogue::serviceName(item->name)))
        return false;
    IntegrationsConfig config = m_config;
    for (IntegrationItem& each : config.integrations) {
        if (each.name == item->name)
            each.apiKey.reset();
    }
    setConfig(std::move(config));
    return saveConfiguration();
}

bool ConfigurationManager::toggleIntegration(const QString& name, bool enabled)
{
    const std::optional<IntegrationItem> item = integration(name);
    if (!item || (enabled && item->isComingSoon))
        return false;
    IntegrationsConfig config = m_config;
    for (IntegrationItem& each : config.integrations) {
        if (each.name == item->name)
            each.isEnabled = enabled;
    }
    setConfig(std::move(config));
    return saveConfiguration();
}

bool ConfigurationManager::hasAPIKey(const QString& name) const
{
    const std::optional<IntegrationItem> item = integration(name);
    return item && item->apiKey && !item->apiKey->isEmpty();
}

std::optional<QString> ConfigurationManager::fieldValue(const QString& name,
                                                        const QString& fieldKey) const
{
    const std::optional<IntegrationItem> item = integration(name);
    if (!item)
        return std::nullopt;
    return m_keychain.readKey(IntegrationCatalogue::fieldItemName(item->name, fieldKey));
}

bool ConfigurationManager::setFieldValue(const QString& name, const QString& fieldKey,
                                         const QString& value)
{
    const std::optional<IntegrationItem> item = integration(name);
    if (!item)
        return false;
    const QString itemName = IntegrationCatalogue::fieldItemName(item->name, fieldKey);
    return value.isEmpty() ? m_keychain.deleteKey(itemName) : m_keychain.storeKey(value, itemName);
}

std::optional<QString> ConfigurationManager::toolConfiguration() const
{
    if (!m_tools)
        return std::nullopt;
    return m_tools->toolConfiguration(m_config.integrations);
}

void ConfigurationManager::setConfig(IntegrationsConfig config)
{
    // Ids stay with their entries, so equal states compare equal.
    if (m_revision > 0 && m_config == config)
        return;
    m_config = std::move(config);
    ++m_revision;
    Q_EMIT integrationsConfigChanged();
    announceToolConfiguration();
}

void ConfigurationManager::announceToolConfiguration()
{
    if (!onToolConfigChange)
        return;
    if (const std::optional<QString> document = toolConfiguration())
        onToolConfigChange(*document);
}
