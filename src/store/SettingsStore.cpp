#include "store/SettingsStore.h"

#include "core/Logging.h"
#include "store/AppPaths.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QMutexLocker>
#include <QSaveFile>

#include <cmath>

using namespace Qt::StringLiterals;

SettingsStore::SettingsStore(QString filePath, QObject* parent)
    : QObject(parent), m_filePath(std::move(filePath))
{
    load();
}

void SettingsStore::load()
{
    QFile file(m_filePath);
    if (!file.exists()) {
        return;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        m_writable = false;
        setLastError(
            u"Settings file %1 could not be read: %2"_s.arg(m_filePath, file.errorString()));
        qCWarning(lcSettings).noquote() << u"❌ "_s + m_lastError;
        return;
    }
    const QByteArray content = file.readAll();
    file.close();
    if (content.trimmed().isEmpty()) {
        return; // nothing to keep
    }
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(content, &error);
    if (error.error == QJsonParseError::NoError && document.isObject()) {
        m_document = document.object();
        return;
    }
    const QString reason = error.error != QJsonParseError::NoError
                               ? error.errorString()
                               : u"the top level is not an object"_s;
    const QString stamp = QDateTime::currentDateTimeUtc().toString(u"yyyyMMdd-HHmmss-zzz"_s);
    const QString aside = m_filePath + u".corrupt-"_s + stamp;
    if (QFile::rename(m_filePath, aside)) {
        qCWarning(lcSettings).noquote()
            << u"⚠️ Settings file %1 is unreadable (%2); moved it to %3 and started with empty settings"_s
                   .arg(m_filePath, reason, aside);
        return;
    }
    m_writable = false;
    setLastError(u"Settings file %1 is unreadable (%2) and could not be moved aside"_s.arg(
        m_filePath, reason));
    qCWarning(lcSettings).noquote() << u"❌ "_s + m_lastError;
}

bool SettingsStore::save()
{
    if (!m_writable) {
        return false;
    }
    const QFileInfo info(m_filePath);
    if (!AppPaths::ensureDirectory(info.absolutePath())) {
        setLastError(u"Settings could not be saved: the folder %1 cannot be created"_s.arg(
            info.absolutePath()));
        return false;
    }
    QSaveFile file(m_filePath);
    const QByteArray content = QJsonDocument(m_document).toJson(QJsonDocument::Indented);
    // QSaveFile writes a temporary file beside the target and renames it over
    // the target only on commit. Unbuffered, because a buffered write on a full
    // disk ends in a short write that flush() does not report, and commit()
    // would then rename a truncated file into place.
    bool written = file.open(QIODevice::WriteOnly | QIODevice::Unbuffered);
    for (qint64 offset = 0; written && offset < content.size();) {
        const qint64 count = file.write(content.constData() + offset, content.size() - offset);
        written = count > 0;
        offset += count;
    }
    if (!written || !file.commit()) {
        setLastError(
            u"Settings could not be saved to %1: %2"_s.arg(m_filePath, file.errorString()));
        qCWarning(lcSettings).noquote() << u"❌ "_s + m_lastError;
        return false;
    }
    setLastError({});
    return true;
}

void SettingsStore::setLastError(const QString& error)
{
    if (m_lastError == error) {
        return;
    }
    m_lastError = error;
    // Queued: this runs with m_mutex held, and a listener reads lastError().
    QMetaObject::invokeMethod(this, &SettingsStore::lastErrorChanged, Qt::QueuedConnection);
}

QString SettingsStore::lastError() const
{
    const QMutexLocker lock(&m_mutex);
    return m_lastError;
}

bool SettingsStore::contains(const QString& key) const
{
    const QMutexLocker lock(&m_mutex);
    return m_document.contains(key);
}

QJsonValue SettingsStore::value(const QString& key) const
{
    const QMutexLocker lock(&m_mutex);
    return m_document.value(key);
}

QJsonObject SettingsStore::allValues() const
{
    const QMutexLocker lock(&m_mutex);
    return m_document;
}

bool SettingsStore::boolValue(const QString& key) const
{
    return value(key).toBool(false);
}

std::optional<QString> SettingsStore::stringValue(const QString& key) const
{
    const QJsonValue v = value(key);
    return v.isString() ? std::optional(v.toString()) : std::nullopt;
}

std::optional<double> SettingsStore::doubleValue(const QString& key) const
{
    const QJsonValue v = value(key);
    return v.isDouble() ? std::optional(v.toDouble()) : std::nullopt;
}

std::optional<QHash<QString, double>> SettingsStore::doubleDictionary(const QString& key) const
{
    const QJsonValue v = value(key);
    if (!v.isObject()) {
        return std::nullopt;
    }
    const QJsonObject object = v.toObject();
    QHash<QString, double> result;
    for (auto it = object.begin(); it != object.end(); ++it) {
        if (!it.value().isDouble()) {
            return std::nullopt;
        }
        result.insert(it.key(), it.value().toDouble());
    }
    return result;
}

std::optional<QStringList> SettingsStore::stringList(const QString& key) const
{
    const QJsonValue v = value(key);
    if (!v.isArray()) {
        return std::nullopt;
    }
    QStringList result;
    const QJsonArray array = v.toArray();
    for (const QJsonValue item : array) {
        if (!item.isString()) {
            return std::nullopt;
        }
        result.append(item.toString());
    }
    return result;
}

std::optional<QDateTime> SettingsStore::dateValue(const QString& key) const
{
    const QJsonValue v = value(key);
    if (!v.isString()) {
        return std::nullopt;
    }
    const QDateTime date = QDateTime::fromString(v.toString(), Qt::ISODateWithMs);
    return date.isValid() ? std::optional(date) : std::nullopt;
}

QString SettingsStore::encodeDate(const QDateTime& value)
{
    return value.toUTC().toString(Qt::ISODateWithMs);
}

bool SettingsStore::setValue(const QString& key, const QJsonValue& value)
{
    bool saved = false;
    {
        const QMutexLocker lock(&m_mutex);
        if (value.isUndefined()) {
            m_document.remove(key);
        } else {
            m_document.insert(key, value);
        }
        saved = save();
    }
    Q_EMIT valueChanged(key);
    return saved;
}

bool SettingsStore::remove(const QString& key)
{
    return setValue(key, QJsonValue(QJsonValue::Undefined));
}

bool SettingsStore::setBool(const QString& key, bool value)
{
    return setValue(key, value);
}

bool SettingsStore::setString(const QString& key, const QString& value)
{
    return setValue(key, value);
}

bool SettingsStore::setDouble(const QString& key, double value)
{
    if (!std::isfinite(value)) {
        return false; // JSON has no NaN or infinity
    }
    return setValue(key, value);
}

bool SettingsStore::setDoubleDictionary(const QString& key, const QHash<QString, double>& value)
{
    QJsonObject object;
    for (auto it = value.begin(); it != value.end(); ++it) {
        if (!std::isfinite(it.value())) {
            return false;
        }
        object.insert(it.key(), it.value());
    }
    return setValue(key, object);
}

bool SettingsStore::setStringList(const QString& key, const QStringList& value)
{
    return setValue(key, QJsonArray::fromStringList(value));
}

bool SettingsStore::setDate(const QString& key, const QDateTime& value)
{
    return setValue(key, encodeDate(value));
}
