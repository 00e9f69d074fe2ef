// Which integrations the user lets the assistant use, and their credentials:
// the catalogue with each entry's enabled state and stored key, kept in the
// settings and the secure store, and the fresh tool-configuration document
// handed on whenever any of it changes.
#pragma once

#include "tools/IntegrationCatalogue.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

class KeychainManager;
class LocalToolManager;
class SettingsStore;

// Lives on the GUI thread; the callbacks are called there. Secure-store
// reads and writes are made in place: each is one short round trip to the
// desktop's secret service.
class ConfigurationManager : public QObject
{
    Q_OBJECT
    // Changes with every change of the catalogue's state.
    Q_PROPERTY(int revision READ revision NOTIFY integrationsConfigChanged)

public:
    // `settings`, `keychain` and `tools` outlive the manager. Loads the stored
    // configuration.
    ConfigurationManager(SettingsStore& settings, KeychainManager& keychain,
                         LocalToolManager& tools, QObject* parent = nullptr);

    const IntegrationsConfig& integrationsConfig() const { return m_config; }
    int revision() const { return m_revision; }

    // The entry named `name`, matched without regard to case.
    std::optional<IntegrationItem> integration(const QString& name) const;

    // Reads "enabledIntegrations" and every stored key; a missing or unusable
    // list leaves every integration disabled.
    void loadConfiguration();
    // Writes "enabledIntegrations" and "lastSyncDate", then tells
    // onIntegrationsChange; false when the settings could not be written.
    bool saveConfiguration();

    // Stores the key (as given) under the integration's item and saves; false,
    // with nothing changed, when the store refused it or there is no such
    // integration.
    bool setAPIKey(const QString& name, const QString& key);
    Q_INVOKABLE bool removeAPIKey(const QString& name);
    // False for an unknown integration, and for switching on one that is
    // still to come.
    Q_INVOKABLE bool toggleIntegration(const QString& name, bool enabled);
    Q_INVOKABLE bool hasAPIKey(const QString& name) const;

    // One of an integration's extra fields ("database_id"), from its own item
    // in the secure store; an empty value removes the item.
    std::optional<QString> fieldValue(const QString& name, const QString& fieldKey) const;
    bool setFieldValue(const QString& name, const QString& fieldKey, const QString& value);

    // The document for the current state, as it would be sent.
    std::optional<QString> toolConfiguration() const;

    // Called with the names of the enabled integrations after every save.
    std::function<void(const QStringList&)> onIntegrationsChange;
    // Called with the fresh document's JSON text whenever the catalogue's
    // state or the remote tools change.
    std::function<void(const QString&)> onToolConfigChange;

Q_SIGNALS:
    void integrationsConfigChanged();

private:
    IntegrationItem* find(const QString& name);
    void setConfig(IntegrationsConfig config);
    void announceToolConfiguration();

    SettingsStore& m_settings;
    KeychainManager& m_keychain;
    QPointer<LocalToolManager> m_tools;
    IntegrationsConfig m_config;
    int m_revision = 0;
};
