// What the parts of the backend session share about events: the session's log
// lines, reading the first item of an incoming event, showing a payload in a
// log line, and the timestamps of outgoing payloads.
#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QStringList>

#include <optional>

namespace SessionPayload {

// One line of the session's log, as information or as a warning.
void say(const QString& line);
void warn(const QString& line);

// A payload as a log line shows it: compact JSON, cut short, since payloads
// carry whole transcripts and a hostile one can be huge.
QString compact(const QJsonValue& value);

// What the handlers read: the first item, when it is an object.
std::optional<QJsonObject> firstObject(const QJsonArray& items);

// The strings of a JSON array; anything else in it is skipped.
QStringList stringList(const QJsonValue& value);

// ISO 8601 in UTC with a "Z", to the second.
QString timestampNow();

} // namespace SessionPayload
