// The user-defaults store: one JSON document of typed settings, written
// atomically so that a crash or a full disk never leaves a half-written file.
#pragma once

#include <QDateTime>
#include <QHash>
#include <QJsonObject>
#include <QJsonValue>
#include <QMutex>
#include <QObject>
#include <QStringList>

#include <optional>

class SettingsStore : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString lastError READ lastError NOTIFY lastErrorChanged)

public:
    // Loads `filePath` (a missing file is an empty store). A file that does not
    // parse is moved aside to "<file>.corrupt-<timestamp>" and the store starts empty.
    explicit SettingsStore(QString filePath, QObject* parent = nullptr);

    QString filePath() const { return m_filePath; }

    bool contains(const QString& key) const;
    // Typed reads: absent when the key is missing or holds another type.
    bool boolValue(const QString& key) const; // a missing Bool reads false
    std::optional<QString> stringValue(const QString& key) const;
    std::optional<double> doubleValue(const QString& key) const;
    std::optional<QHash<QString, double>> doubleDictionary(const QString& key) const;
    std::optional<QStringList> stringList(const QString& key) const;
    std::optional<QDateTime> dateValue(const QString& key) const;
    // The raw JSON value (Undefined when missing) and the whole document.
    QJsonValue value(const QString& key) const;
    QJsonObject allValues() const;

    // Typed writes. Each one saves the document; false when saving failed (the
    // value is kept in memory and saved with the next successful write, and the
    // previous file stays as it was).
    bool setBool(const QString& key, bool value);
    bool setString(const QString& key, const QString& value);
    bool setDouble(const QString& key, double value);
    bool setDoubleDictionary(const QString& key, const QHash<QString, double>& value);
    bool setStringList(const QString& key, const QStringList& value);
    bool setDate(const QString& key, const QDateTime& value);
    bool setValue(const QString& key, const QJsonValue& value);
    bool remove(const QString& key);

    // The last save or load failure, empty when the last save succeeded.
    QString lastError() const;

    // How dates are written: ISO 8601 in UTC with milliseconds.
    static QString encodeDate(const QDateTime& value);

Q_SIGNALS:
    void valueChanged(const QString& key);
    void lastErrorChanged();

private:
    void load();
    bool save(); // called with m_mutex held
    void setLastError(const QString& error);

    const QString m_filePath;
    mutable QMutex m_mutex; // guards the fields below; settings are read from worker threads too
    QJsonObject m_document;
    // False when the file on disk could not be read or moved aside: writing
    // would destroy whatever it holds.
    bool m_writable = true;
    QString m_lastError;
};
