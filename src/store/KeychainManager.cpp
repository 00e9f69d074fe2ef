#include "store/KeychainManager.h"

#include "core/Logging.h"

#include <QMutex>
#include <QTextBoundaryFinder>

#include <algorithm>
#include <libsecret/secret.h>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

// Items carry the attributes "service" and "account" and are matched on those
// alone, whatever schema name another tool wrote them with (secret-tool, say).
const SecretSchema itemSchema = {
    "com.quillmoss.Secret",
    SECRET_SCHEMA_DONT_MATCH_NAME,
    {
        {"service", SECRET_SCHEMA_ATTRIBUTE_STRING},
        {"account", SECRET_SCHEMA_ATTRIBUTE_STRING},
        {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING},
    },
    0,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
};

// Every operation goes through here. The Secret Service is reached over the
// session bus, whose one shared connection GDBus makes on first use and by
// default answers the bus going away by raising SIGTERM in the process. A
// store that cannot be reached fails its operations instead (each with its
// log line), so the connection libsecret is about to use is told not to end
// the process, and is held so that it stays the shared one. A connection that
// closed is replaced by the next operation.
const SecretSchema* schema()
{
    static QMutex mutex;
    static GDBusConnection* held = nullptr;
    const QMutexLocker lock(&mutex);
    if (held != nullptr && g_dbus_connection_is_closed(held)) {
        g_object_unref(held);
        held = nullptr;
    }
    if (held == nullptr) {
        GError* error = nullptr;
        held = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error);
        if (held != nullptr)
            g_dbus_connection_set_exit_on_close(held, FALSE);
        g_clear_error(&error);
    }
    return &itemSchema;
}

struct GErrorFree
{
    void operator()(GError* error) const { g_error_free(error); }
};
using ErrorPtr = std::unique_ptr<GError, GErrorFree>;

struct SecretValueUnref
{
    void operator()(SecretValue* value) const { secret_value_unref(value); }
};

struct GListOfObjectsFree
{
    void operator()(GList* list) const { g_list_free_full(list, g_object_unref); }
};

// The status printed in log lines: the Secret Service's (GLib) error code.
int statusOf(const ErrorPtr& error)
{
    return error ? error->code : 0;
}

void logDetail(const ErrorPtr& error)
{
    if (error) {
        qCDebug(lcKeychain).noquote() << u"Secret Service error: %1 (%2)"_s.arg(
            QString::fromUtf8(error->message), QString::fromUtf8(g_quark_to_string(error->domain)));
    }
}

// What a person counts as one character: a grapheme cluster.
int characterCount(const QString& text)
{
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    int count = 0;
    while (finder.toNextBoundary() != -1) {
        ++count;
    }
    return count;
}

bool isKeyCharacter(char32_t c)
{
    if (c == U'-' || c == U'.' || c == U'_') {
        return true;
    }
    switch (QChar::category(c)) {
    case QChar::Letter_Uppercase:
    case QChar::Letter_Lowercase:
    case QChar::Letter_Titlecase:
    case QChar::Letter_Modifier:
    case QChar::Letter_Other:
    case QChar::Mark_NonSpacing:
    case QChar::Mark_SpacingCombining:
    case QChar::Mark_Enclosing:
    case QChar::Number_DecimalDigit:
    case QChar::Number_Letter:
    case QChar::Number_Other:
        return true;
    default:
        return false;
    }
}

} // namespace

KeychainManager::KeychainManager(QString serviceName) : m_serviceName(std::move(serviceName)) {}

KeychainManager& KeychainManager::shared()
{
    static KeychainManager instance;
    return instance;
}

bool KeychainManager::isValidKey(const QString& key)
{
    if (key.isEmpty() || !key.isValidUtf16() || characterCount(key) > maxKeyLength) {
        return false;
    }
    const auto codePoints = key.toUcs4();
    return std::all_of(codePoints.begin(), codePoints.end(), isKeyCharacter);
}

bool KeychainManager::isValidValue(const QString& value)
{
    return !value.isEmpty() && value.isValidUtf16() && characterCount(value) <= maxValueLength;
}

bool KeychainManager::storeKey(const QString& value, const QString& key) const
{
    if (!isValidKey(key) || !isValidValue(value)) {
        return false;
    }
    return readKey(key).has_value() ? updateItem(value, key) : addItem(value, key);
}

bool KeychainManager::addItem(const QString& value, const QString& key) const
{
    return writeItem(value, key, u"Failed to store API key with status: "_s);
}

bool KeychainManager::updateItem(const QString& value, const QString& key) const
{
    // The Secret Service replaces the secret of the item with the same
    // attributes in place; label and attributes stay as they are.
    return writeItem(value, key, u"Failed to update API key with status: "_s);
}

bool KeychainManager::writeItem(const QString& value, const QString& key,
                                const QString& failureText) const
{
    const QByteArray service = m_serviceName.toUtf8();
    const QByteArray account = key.toUtf8();
    // The label names the item in keyring browsers; it never holds the secret.
    const QByteArray label = (m_serviceName + u": "_s + key).toUtf8();
    QByteArray secret = value.toUtf8();
    GError* rawError = nullptr;
    const gboolean stored = secret_password_store_sync(
        schema(), SECRET_COLLECTION_DEFAULT, label.constData(), secret.constData(), nullptr,
        &rawError, "service", service.constData(), "account", account.constData(), nullptr);
    secret.fill('\0');
    const ErrorPtr error(rawError);
    if (stored == FALSE) {
        qCWarning(lcKeychain).noquote() << failureText + QString::number(statusOf(error));
        logDetail(error);
        return false;
    }
    return true;
}

std::optional<QString> KeychainManager::readKey(const QString& key) const
{
    if (!isValidKey(key)) {
        return std::nullopt;
    }
    const QByteArray service = m_serviceName.toUtf8();
    const QByteArray account = key.toUtf8();
    GError* rawError = nullptr;
    const std::unique_ptr<SecretValue, SecretValueUnref> found(secret_password_lookup_binary_sync(
        schema(), nullptr, &rawError, "service", service.constData(), "account",
        account.constData(), nullptr));
    const ErrorPtr error(rawError);
    if (!error && !found) {
        return std::nullopt; // no such item: not worth a log line
    }
    if (!error) {
        gsize length = 0;
        const gchar* data = secret_value_get(found.get(), &length);
        if (data != nullptr && g_utf8_validate(data, static_cast<gssize>(length), nullptr)) {
            return QString::fromUtf8(data, static_cast<qsizetype>(length));
        }
    }
    qCWarning(lcKeychain).noquote()
        << u"Keychain access failed with status: "_s + QString::number(statusOf(error));
    logDetail(error);
    return std::nullopt;
}

bool KeychainManager::deleteKey(const QString& key) const
{
    if (!isValidKey(key)) {
        return false;
    }
    const QByteArray service = m_serviceName.toUtf8();
    const QByteArray account = key.toUtf8();
    GError* rawError = nullptr;
    // False without an error means there was nothing to delete: success, so that
    // sign-out can delete every token key unconditionally.
    secret_password_clear_sync(schema(), nullptr, &rawError, "service", service.constData(),
                               "account", account.constData(), nullptr);
    const ErrorPtr error(rawError);
    if (error) {
        qCWarning(lcKeychain).noquote()
            << u"Keychain deletion failed with status: "_s + QString::number(statusOf(error));
        logDetail(error);
        return false;
    }
    return true;
}

bool KeychainManager::deleteAllKeys() const
{
    const QByteArray service = m_serviceName.toUtf8();
    GError* rawError = nullptr;
    secret_password_clear_sync(schema(), nullptr, &rawError, "service", service.constData(),
                               nullptr);
    const ErrorPtr error(rawError);
    if (error) {
        qCWarning(lcKeychain).noquote()
            << u"Keychain bulk deletion failed with status: "_s + QString::number(statusOf(error));
        logDetail(error);
        return false;
    }
    return true;
}

QStringList KeychainManager::allKeys() const
{
    const QByteArray service = m_serviceName.toUtf8();
    GHashTable* attributes =
        secret_attributes_build(schema(), "service", service.constData(), nullptr);
    GError* rawError = nullptr;
    const std::unique_ptr<GList, GListOfObjectsFree> items(secret_service_search_sync(
        nullptr, schema(), attributes,
        static_cast<SecretSearchFlags>(SECRET_SEARCH_ALL | SECRET_SEARCH_UNLOCK), nullptr,
        &rawError));
    g_hash_table_unref(attributes);
    const ErrorPtr error(rawError);
    if (error) {
        qCWarning(lcKeychain).noquote()
            << u"Keychain search failed with status: "_s + QString::number(statusOf(error));
        logDetail(error);
        return {};
    }
    QStringList keys;
    for (GList* node = items.get(); node != nullptr; node = node->next) {
        GHashTable* itemAttributes = secret_item_get_attributes(SECRET_ITEM(node->data));
        const auto* account =
            static_cast<const gchar*>(g_hash_table_lookup(itemAttributes, "account"));
        if (account != nullptr) {
            const QString key = QString::fromUtf8(account);
            if (isValidKey(key)) {
                keys.append(key);
            }
        }
        g_hash_table_unref(itemAttributes);
    }
    keys.sort();
    return keys;
}

bool KeychainManager::isReachable() const
{
    // A real round trip: the service object itself is cached by libsecret and
    // outlives the daemon and even the bus.
    const QByteArray service = m_serviceName.toUtf8();
    GHashTable* attributes =
        secret_attributes_build(schema(), "service", service.constData(), nullptr);
    GError* rawError = nullptr;
    const std::unique_ptr<GList, GListOfObjectsFree> items(secret_service_search_sync(
        nullptr, schema(), attributes, SECRET_SEARCH_NONE, nullptr, &rawError));
    g_hash_table_unref(attributes);
    const ErrorPtr error(rawError);
    logDetail(error);
    return !error;
}

QFuture<bool> KeychainManager::storeKeyAsync(const QString& value, const QString& key)
{
    return m_worker.run<bool>([this, value, key] { return storeKey(value, key); });
}

QFuture<std::optional<QString>> KeychainManager::readKeyAsync(const QString& key)
{
    return m_worker.run<std::optional<QString>>([this, key] { return readKey(key); });
}

QFuture<bool> KeychainManager::deleteKeyAsync(const QString& key)
{
    return m_worker.run<bool>([this, key] { return deleteKey(key); });
}

QFuture<bool> KeychainManager::deleteAllKeysAsync()
{
    return m_worker.run<bool>([this] { return deleteAllKeys(); });
}

QFuture<QStringList> KeychainManager::allKeysAsync()
{
    return m_worker.run<QStringList>([this] { return allKeys(); });
}
