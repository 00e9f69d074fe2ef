// quillmoss keychain: the secure credential store from the command line.
#include "cli/Cli.h"
#include "store/KeychainManager.h"

#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace {

const auto usage = u"keychain list\n"
                   u"keychain get KEY\n"
                   u"keychain set KEY        (the value is read from standard input)\n"
                   u"keychain delete KEY\n"
                   u"keychain clear\n"_s;

const auto invalidKeyText = u"refused: a key is 1 to 100 letters, digits, '-', '.' or '_'"_s;
const auto unreachableText = u"the secure credential store (Secret Service) cannot be reached"_s;

int list(CliContext& context, const KeychainManager& keychain)
{
    const QStringList keys = keychain.allKeys();
    if (keys.isEmpty() && !keychain.isReachable()) {
        return context.fail(unreachableText);
    }
    if (context.json) {
        context.out
            << QJsonDocument(QJsonArray::fromStringList(keys)).toJson(QJsonDocument::Compact)
            << Qt::endl;
    } else {
        for (const QString& key : keys) {
            context.out << key << u'\n';
        }
    }
    return ExitDone;
}

int get(CliContext& context, const KeychainManager& keychain, const QString& key)
{
    if (!KeychainManager::isValidKey(key)) {
        return context.fail(invalidKeyText);
    }
    const std::optional<QString> value = keychain.readKey(key);
    if (!value) {
        // Nothing stored prints nothing; an unreachable store says so.
        return keychain.isReachable() ? ExitFailed : context.fail(unreachableText);
    }
    context.out << *value << Qt::endl;
    return ExitDone;
}

int set(CliContext& context, const KeychainManager& keychain, const QString& key)
{
    if (!KeychainManager::isValidKey(key)) {
        return context.fail(invalidKeyText);
    }
    const QString value = context.readSecret(u"Value for %1: "_s.arg(key));
    if (!KeychainManager::isValidValue(value)) {
        return context.fail(u"refused: a value is 1 to 3000 characters of text"_s);
    }
    if (!keychain.storeKey(value, key)) {
        return context.fail(u"Failed to store the value securely"_s);
    }
    return ExitDone;
}

int remove(CliContext& context, const KeychainManager& keychain, const QString& key)
{
    if (!KeychainManager::isValidKey(key)) {
        return context.fail(invalidKeyText);
    }
    return keychain.deleteKey(key) ? ExitDone : context.fail(u"Failed to delete %1"_s.arg(key));
}

int run(CliContext& context, const QStringList& arguments)
{
    const KeychainManager& keychain = KeychainManager::shared();
    const QString verb = arguments.value(0);
    const qsizetype count = arguments.size();
    if (verb == u"list"_s && count == 1) {
        return list(context, keychain);
    }
    if (verb == u"get"_s && count == 2) {
        return get(context, keychain, arguments.at(1));
    }
    if (verb == u"set"_s && count == 2) {
        return set(context, keychain, arguments.at(1));
    }
    if (verb == u"delete"_s && count == 2) {
        return remove(context, keychain, arguments.at(1));
    }
    if (verb == u"clear"_s && count == 1) {
        return keychain.deleteAllKeys() ? ExitDone
                                        : context.fail(u"Failed to delete the stored keys"_s);
    }
    return context.usageError(verb.isEmpty() ? u"keychain needs a verb"_s
                                             : u"wrong use of keychain %1"_s.arg(verb),
                              usage);
}

} // namespace

Subcommand keychainSubcommand()
{
    return {u"keychain"_s, u"Read and change the secrets in the secure credential store."_s, usage,
            run};
}
