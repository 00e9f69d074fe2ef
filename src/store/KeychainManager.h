// The one secure credential store: secrets kept as items of the desktop's
// Secret Service (gnome-keyring, KWallet) under the service "Quillmoss".
#pragma once

#include "core/SerialWorker.h"

#include <QFuture>
#include <QMutex>
#include <QPromise>
#include <QString>
#include <QStringList>
#include <QThread>

#include <optional>

// Every operation is synchronous and safe from any thread; each is one or two
// D-Bus round trips, so code on the GUI thread that a screen waits on uses the
// *Async variants, which run in call order on the store's own worker thread.
// Nothing ever falls back to a plaintext file: without a reachable Secret
// Service every operation fails with its log line.
class KeychainManager
{
public:
    explicit KeychainManager(QString serviceName = QStringLiteral("Quillmoss"));
    ~KeychainManager() = default;
    KeychainManager(const KeychainManager&) = delete;
    KeychainManager& operator=(const KeychainManager&) = delete;

    // The instance every caller shares.
    static KeychainManager& shared();

    const QString& serviceName() const { return m_serviceName; }

    // Adds the item, or updates the value of the existing one. False when the
    // key or value breaks the rules (nothing logged) or the store refused.
    bool storeKey(const QString& value, const QString& key) const;
    // The stored value; nothing when the key is invalid or no item exists.
    std::optional<QString> readKey(const QString& key) const;
    // True when the item is gone, including when it never existed.
    bool deleteKey(const QString& key) const;
    // Deletes every item of this service; true when none remains.
    bool deleteAllKeys() const;
    // The keys of this service's items (only those that pass the key rules).
    QStringList allKeys() const;
    // Whether a Secret Service answers at all (tells "nothing stored" from
    // "store unreachable" where the operations' results cannot).
    bool isReachable() const;

    QFuture<bool> storeKeyAsync(const QString& value, const QString& key);
    QFuture<std::optional<QString>> readKeyAsync(const QString& key);
    QFuture<bool> deleteKeyAsync(const QString& key);
    QFuture<bool> deleteAllKeysAsync();
    QFuture<QStringList> allKeysAsync();

    // Keys: 1 to 100 characters, each a letter, mark or digit, '-', '.' or '_'.
    static bool isValidKey(const QString& key);
    // Values: 1 to 3000 characters of valid Unicode.
    static bool isValidValue(const QString& value);

    static constexpr int maxKeyLength = 100;
    static constexpr int maxValueLength = 3000;

private:
    bool addItem(const QString& value, const QString& key) const;
    bool updateItem(const QString& value, const QString& key) const;
    bool writeItem(const QString& value, const QString& key, const QString& failureText) const;

    const QString m_serviceName;
    // Asynchronous calls run here, in the order made.
    SerialWorker m_worker{QStringLiteral("KeychainWorker")};
};
