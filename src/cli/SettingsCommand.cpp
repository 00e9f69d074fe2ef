// quillmoss settings: the settings document from the command line.
#include "cli/Cli.h"
#include "store/SettingsStore.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <optional>

using namespace Qt::StringLiterals;

namespace {

const auto usage = u"settings list\n"
                   u"settings get KEY\n"
                   u"settings set KEY JSON    (e.g. true, 2.5, '\"text\"', '[\"a\",\"b\"]')\n"_s;

// Any JSON value, scalars included (a document alone takes only objects and arrays).
std::optional<QJsonValue> parseJsonValue(const QString& text)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(u'[' + text.toUtf8() + u']', &error);
    if (error.error != QJsonParseError::NoError || document.array().size() != 1) {
        return std::nullopt;
    }
    return document.array().first();
}

QString encode(const QJsonValue& value, QJsonDocument::JsonFormat format)
{
    const QByteArray wrapped = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    if (format == QJsonDocument::Compact || !(value.isObject() || value.isArray())) {
        return QString::fromUtf8(wrapped.mid(1, wrapped.size() - 2));
    }
    const QJsonDocument document =
        value.isObject() ? QJsonDocument(value.toObject()) : QJsonDocument(value.toArray());
    return QString::fromUtf8(document.toJson(format)).trimmed();
}

int run(CliContext& context, const QStringList& arguments)
{
    const QString verb = arguments.value(0);
    const qsizetype count = arguments.size();
    if (verb == u"list"_s && count == 1) {
        context.out << encode(context.settings().allValues(),
                              context.json ? QJsonDocument::Compact : QJsonDocument::Indented)
                    << Qt::endl;
        return ExitDone;
    }
    if (verb == u"get"_s && count == 2) {
        const QJsonValue value = context.settings().value(arguments.at(1));
        if (value.isUndefined()) {
            return ExitFailed; // not set: nothing to print
        }
        context.out << encode(value, QJsonDocument::Compact) << Qt::endl;
        return ExitDone;
    }
    if (verb == u"set"_s && count == 3 && !arguments.at(1).isEmpty()) {
        const std::optional<QJsonValue> value = parseJsonValue(arguments.at(2));
        if (!value) {
            return context.usageError(
                u"\"%1\" is not a JSON value (quote strings: '\"text\"')"_s.arg(arguments.at(2)),
                usage);
        }
        SettingsStore& settings = context.settings();
        if (!settings.setValue(arguments.at(1), *value)) {
            return context.fail(settings.lastError());
        }
        return ExitDone;
    }
    return context.usageError(verb.isEmpty() ? u"settings needs a verb"_s
                                             : u"wrong use of settings %1"_s.arg(verb),
                              usage);
}

} // namespace

Subcommand settingsSubcommand()
{
    return {u"settings"_s, u"Read and change the user settings."_s, usage, run};
}
