// The integration catalogue as a list for the Integrations screen: one row
// per integration, grouped by category, with whether a credential is stored
// but never the credential itself.
#pragma once

#include <QAbstractListModel>
#include <QPointer>

class ConfigurationManager;

// Lives on the GUI thread; follows the configuration's changes.
class IntegrationListModel : public QAbstractListModel
{
    Q_OBJECT
    Q_PROPERTY(int count READ rowCount NOTIFY countChanged)

public:
    enum Role
    {
        NameRole = Qt::UserRole + 1,
        DescriptionRole,
        IconNameRole,
        IconColorRole,
        IsEnabledRole,
        CategoryRole,
        IsComingSoonRole,
        RequiresAPIKeyRole,
        AuthTypeRole,
        ApiKeyPlaceholderRole,
        HasAPIKeyRole,
        ToolIdentifiersRole,
        AdditionalFieldsRole, // list of {key, label, placeholder, isRequired, fieldType}
    };

    explicit IntegrationListModel(ConfigurationManager& configuration, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    // The row of `name`, or -1.
    Q_INVOKABLE int indexOf(const QString& name) const;
    // One row as a map of its role names, for the sheet.
    Q_INVOKABLE QVariantMap get(int row) const;

Q_SIGNALS:
    void countChanged();

private:
    void refresh();

    QPointer<ConfigurationManager> m_configuration;
    int m_rows = 0;
};
