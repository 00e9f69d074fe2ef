// What the integration sheet does when the user saves a credential: checks
// it, keeps it and the integration's extra fields in the secure store, and
// says in one sentence what went wrong when something did.
#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QVariantMap>

class ConfigurationManager;
class KeychainManager;

// Lives on the GUI thread. The key passes through `save` only: the sheet's
// input field is the one place it is held on screen.
class APIKeyConfigurationForm : public QObject
{
    Q_OBJECT
    // The last failure's sentence; empty after a save that worked.
    Q_PROPERTY(QString errorMessage READ errorMessage NOTIFY errorMessageChanged)

public:
    // `keychain` and `configuration` outlive the form.
    APIKeyConfigurationForm(KeychainManager& keychain, ConfigurationManager& configuration,
                            QObject* parent = nullptr);

    QString errorMessage() const { return m_errorMessage; }

    // `fields` maps extra field keys ("database_id", "sender_email") to what
    // was typed; empty values leave what is stored. True when the sheet can close.
    Q_INVOKABLE bool save(const QString& name, const QString& key, const QVariantMap& fields = {});
    // The integration's extra fields as stored, by key, for the sheet to show.
    Q_INVOKABLE QVariantMap storedFields(const QString& name) const;
    Q_INVOKABLE void clearError();

Q_SIGNALS:
    void errorMessageChanged();

private:
    bool fail(const QString& message);
    bool storeField(const QString& name, const QVariantMap& fields, const QString& fieldKey,
                    const QString& failure);

    KeychainManager& m_keychain;
    QPointer<ConfigurationManager> m_configuration;
    QString m_errorMessage;
};
