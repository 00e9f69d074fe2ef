#include "tools/IntegrationListModel.h"

#include "tools/ConfigurationManager.h"

using namespace Qt::StringLiterals;

IntegrationListModel::IntegrationListModel(ConfigurationManager& configuration, QObject* parent)
    : QAbstractListModel(parent), m_configuration(&configuration),
      m_rows(static_cast<int>(configuration.integrationsConfig().integrations.size()))
{
    connect(&configuration, &ConfigurationManager::integrationsConfigChanged, this,
            &IntegrationListModel::refresh);
}

int IntegrationListModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : m_rows;
}

QVariant IntegrationListModel::data(const QModelIndex& index, int role) const
{
    if (!m_configuration || !index.isValid() || index.row() >= m_rows)
        return {};
    const IntegrationItem& item =
        m_configuration->integrationsConfig().integrations.at(index.row());
    switch (role) {
    case NameRole:
        return item.name;
    case DescriptionRole:
        return item.description;
    case IconNameRole:
        return item.iconName;
    case IconColorRole:
        return item.iconColor;
    case IsEnabledRole:
        return item.isEnabled;
    case CategoryRole:
        return item.category;
    case IsComingSoonRole:
        return item.isComingSoon;
    case RequiresAPIKeyRole:
        return item.requiresAPIKey;
    case AuthTypeRole:
        return IntegrationCatalogue::authTypeName(item.authType);
    case ApiKeyPlaceholderRole:
        return item.apiKeyPlaceholder;
    case HasAPIKeyRole:
        return item.apiKey.has_value() && !item.apiKey->isEmpty();
    case ToolIdentifiersRole:
        return item.toolIdentifiers.value_or(QStringList());
    case AdditionalFieldsRole: {
        QVariantList fields;
        for (const IntegrationField& field :
             item.additionalFields.value_or(QList<IntegrationField>()))
            fields.append(QVariantMap{
                {u"key"_s, field.key},
                {u"label"_s, field.label},
                {u"placeholder"_s, field.placeholder},
                {u"isRequired"_s, field.isRequired},
                {u"fieldType"_s, IntegrationCatalogue::fieldTypeName(field.fieldType)},
            });
        return fields;
    }
    default:
        return {};
    }
}

QHash<int, QByteArray> IntegrationListModel::roleNames() const
{
    return {
        {NameRole, "name"},
        {DescriptionRole, "description"},
        {IconNameRole, "iconName"},
        {IconColorRole, "iconColor"},
        {IsEnabledRole, "isEnabled"},
        {CategoryRole, "category"},
        {IsComingSoonRole, "isComingSoon"},
        {RequiresAPIKeyRole, "requiresAPIKey"},
        {AuthTypeRole, "authType"},
        {ApiKeyPlaceholderRole, "apiKeyPlaceholder"},
        {HasAPIKeyRole, "hasAPIKey"},
        {ToolIdentifiersRole, "toolIdentifiers"},
        {AdditionalFieldsRole, "additionalFields"},
    };
}

int IntegrationListModel::indexOf(const QString& name) const
{
    if (!m_configuration)
        return -1;
    const auto& items = m_configuration->integrationsConfig().integrations;
    for (qsizetype i = 0; i < items.size(); ++i) {
        if (items.at(i).name.compare(name, Qt::CaseInsensitive) == 0)
            return static_cast<int>(i);
    }
    return -1;
}

QVariantMap IntegrationListModel::get(int row) const
{
    QVariantMap values;
    const QModelIndex at = index(row);
    if (!at.isValid())
        return values;
    const QHash<int, QByteArray> names = roleNames();
    for (auto it = names.constBegin(); it != names.constEnd(); ++it)
        values.insert(QString::fromUtf8(it.value()), data(at, it.key()));
    return values;
}

void IntegrationListModel::refresh()
{
    if (!m_configuration)
        return;
    const int rows = static_cast<int>(m_configuration->integrationsConfig().integrations.size());
    if (rows != m_rows) {
        beginResetModel();
        m_rows = rows;
        endResetModel();
        Q_EMIT countChanged();
        return;
    }
    if (rows > 0)
        Q_EMIT dataChanged(index(0), index(rows - 1));
}
