// quillmoss integrations: which integrations the assistant may use, and their
// credentials, through the same configuration and credential sheet as the app.
#include "cli/Cli.h"
#include "store/SettingsStore.h"
#include "tools/APIKeyConfigurationForm.h"
#include "tools/ConfigurationManager.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

// NAME is the name as listed, in any case; a name with spaces is one quoted argument.
const auto usage =
    u"integrations list [--json]\n"
    u"integrations enable NAME                   (e.g. \"brave search\")\n"
    u"integrations disable NAME\n"
    u"integrations set-key NAME                  (the key is read from standard input)\n"
    u"integrations set-field NAME FIELD VALUE    (an empty VALUE removes it)\n"
    u"integrations remove-key NAME\n"_s;

QString yesNo(bool value)
{
    return value ? u"yes"_s : u"no"_s;
}

QStringList toolsOf(const IntegrationItem& item)
{
    return item.toolIdentifiers.value_or(QStringList());
}

// Never the key itself: whether one is stored is all a listing tells.
QJsonObject describe(const IntegrationItem& item, const ConfigurationManager& configuration)
{
    return {{u"name"_s, item.name},
            {u"category"_s, item.category},
            {u"enabled"_s, item.isEnabled},
            {u"comingSoon"_s, item.isComingSoon},
            {u"keyStored"_s, configuration.hasAPIKey(item.name)},
            {u"authType"_s, IntegrationCatalogue::authTypeName(item.authType)},
            {u"tools"_s, QJsonArray::fromStringList(toolsOf(item))}};
}

int list(CliContext& context, const ConfigurationManager& configuration, bool json)
{
    const QList<IntegrationItem>& items = configuration.integrationsConfig().integrations;
    if (json) {
        QJsonArray array;
        for (const IntegrationItem& item : items)
            array.append(describe(item, configuration));
        context.out << QJsonDocument(array).toJson(QJsonDocument::Compact) << Qt::endl;
        return ExitDone;
    }
    qsizetype nameWidth = 4;
    qsizetype categoryWidth = 8;
    for (const IntegrationItem& item : items) {
        nameWidth = std::max(nameWidth, item.name.size());
        categoryWidth = std::max(categoryWidth, item.category.size());
    }
    const auto line = [&](const QString& name, const QString& category, const QString& enabled,
                          const QString& key, const QString& tools) {
        context.out << name.leftJustified(nameWidth) << u"  "_s
                    << category.leftJustified(categoryWidth) << u"  "_s << enabled.leftJustified(7)
                    << u"  "_s << key.leftJustified(3) << u"  "_s << tools << u'\n';
    };
    line(u"NAME"_s, u"CATEGORY"_s, u"ENABLED"_s, u"KEY"_s, u"TOOLS"_s);
    for (const IntegrationItem& item : items) {
        line(item.name, item.category, yesNo(item.isEnabled),
             yesNo(configuration.hasAPIKey(item.name)),
             item.isComingSoon ? u"coming soon"_s : QString::number(toolsOf(item).size()));
    }
    context.out.flush();
    return ExitDone;
}

int toggle(CliContext& context, ConfigurationManager& configuration, const IntegrationItem& item,
           bool enabled)
{
    if (!configuration.toggleIntegration(item.name, enabled)) {
        if (enabled && item.isComingSoon)
            return context.fail(u"%1 is coming soon and cannot be enabled yet"_s.arg(item.name));
        return context.fail(u"Could not save the integrations: "_s +
                            context.settings().lastError());
    }
    context.out << item.name << (enabled ? u" enabled"_s : u" disabled"_s) << Qt::endl;
    return ExitDone;
}

// Through the app's credential sheet, so that the key is checked, stored and
// refused with the same sentences.
int setKey(CliContext& context, Services& services, const IntegrationItem& item)
{
    if (item.authType != AuthType::apiKey)
        return context.fail(u"%1 does not take an API key (it signs in with %2)"_s.arg(
            item.name, IntegrationCatalogue::authTypeName(item.authType)));
    const QString key = context.readSecret(u"API key for %1: "_s.arg(item.name));
    APIKeyConfigurationForm form(services.keychain(), services.configurationManager());
    if (!form.save(item.name, key))
        return context.fail(form.errorMessage());
    context.out << item.name << u" API key stored"_s << Qt::endl;
    return ExitDone;
}

int setField(CliContext& context, ConfigurationManager& configuration, const IntegrationItem& item,
             const QString& fieldKey, const QString& value)
{
    const QList<IntegrationField> fields =
        item.additionalFields.value_or(QList<IntegrationField>());
    const auto field =
        std::find_if(fields.cbegin(), fields.cend(),
                     [&](const IntegrationField& each) { return each.key == fieldKey; });
    if (field == fields.cend()) {
        if (fields.isEmpty())
            return context.fail(u"%1 has no fields to set"_s.arg(item.name));
        QStringList keys;
        for (const IntegrationField& each : fields)
            keys.append(each.key);
        return context.fail(u"%1 has no field \"%2\"; its fields: %3"_s.arg(item.name, fieldKey,
                                                                            keys.join(u", "_s)));
    }
    // As the sheet takes what was typed: surrounding blanks are not part of it.
    const QString trimmed = value.trimmed();
    if (!configuration.setFieldValue(item.name, field->key, trimmed)) {
        return context.fail(trimmed.isEmpty()
                                ? u"Failed to remove %1 of %2"_s.arg(field->label, item.name)
                                : u"Failed to store %1 securely"_s.arg(field->label));
    }
    context.out << item.name << u' ' << field->key
                << (trimmed.isEmpty() ? u" removed"_s : u" stored"_s) << Qt::endl;
    return ExitDone;
}

int removeKey(CliContext& context, ConfigurationManager& configuration, const IntegrationItem& item)
{
    if (!configuration.removeAPIKey(item.name))
        return context.fail(u"Failed to remove the API key of %1"_s.arg(item.name));
    context.out << item.name << u" API key removed"_s << Qt::endl;
    return ExitDone;
}

int run(CliContext& context, const QStringList& arguments)
{
    const QString verb = arguments.value(0);
    const qsizetype count = arguments.size();
    if (verb == u"list"_s) {
        const std::variant<bool, int> json =
            context.parseJsonOnly(u"quillmoss integrations list"_s, arguments.mid(1), usage);
        if (const int* wrong = std::get_if<int>(&json))
            return *wrong;
        const std::unique_ptr<Services> services = context.makeServices();
        return list(context, services->configurationManager(), std::get<bool>(json));
    }
    const QStringList verbsWithName = {u"enable"_s, u"disable"_s, u"set-key"_s, u"remove-key"_s};
    const bool wellFormed =
        (verbsWithName.contains(verb) && count == 2) || (verb == u"set-field"_s && count == 4);
    if (!wellFormed) {
        return context.usageError(verb.isEmpty() ? u"integrations needs a verb"_s
                                                 : u"wrong use of integrations %1"_s.arg(verb),
                                  usage);
    }
    const std::unique_ptr<Services> services = context.makeServices();
    ConfigurationManager& configuration = services->configurationManager();
    const QString& name = arguments.at(1);
    const std::optional<IntegrationItem> item = configuration.integration(name);
    if (!item)
        return context.fail(u"Unknown integration: "_s + name);
    if (verb == u"enable"_s || verb == u"disable"_s)
        return toggle(context, configuration, *item, verb == u"enable"_s);
    if (verb == u"set-key"_s)
        return setKey(context, *services, *item);
    if (verb == u"remove-key"_s)
        return removeKey(context, configuration, *item);
    return setField(context, configuration, *item, arguments.at(2), arguments.at(3));
}

} // namespace

Subcommand integrationsSubcommand()
{
    return {u"integrations"_s,
            u"Enable the assistant's integrations and store their credentials."_s, usage, run};
}
