// The parts of a call's summary that the call history and the live session
// describe alike: a participant, a topic, and the priority of a task. Both
// carry them under the same JSON keys ("name", "role", "mainContributions";
// "topic", "importance", "mentions"; "high", "medium", "low"), so there is one
// definition of each here; how strictly a side reads them stays with that
// side (the history refuses a malformed record, the live session drops it).
#pragma once

#include <QMetaType>
#include <QString>
#include <QStringList>

#include <optional>

// A new local identifier, unique within the process and beyond.
QString newLocalId();

enum class Priority
{
    High,
    Medium,
    Low
};

// "high", "medium", "low"
QString priorityName(Priority priority);
// Exactly one of those names; nothing for any other text.
std::optional<Priority> priorityFromName(const QString& name);

// An auto-identified participant.
//
// `id` is made fresh whenever the record is created (so each decoding gives
// new ids) and is never on the wire: it only keeps a list row stable, so
// equality compares the contents and ignores it.
class Speaker
{
    Q_GADGET
    Q_PROPERTY(QString id MEMBER id)
    Q_PROPERTY(QString name MEMBER name)
    Q_PROPERTY(QString role READ roleText)
    Q_PROPERTY(QStringList mainContributions MEMBER mainContributions)

public:
    QString id = newLocalId();
    QString name;
    std::optional<QString> role;
    QStringList mainContributions;

    QString roleText() const { return role.value_or(QString()); }

    friend bool operator==(const Speaker& a, const Speaker& b)
    {
        return a.name == b.name && a.role == b.role && a.mainContributions == b.mainContributions;
    }
};

// A topic of the call; it has no identifier of its own.
class Topic
{
    Q_GADGET
    Q_PROPERTY(QString topic MEMBER topic)
    Q_PROPERTY(double importance MEMBER importance)
    Q_PROPERTY(int mentions MEMBER mentions)

public:
    QString topic;
    double importance = 0.0;
    int mentions = 0;

    friend bool operator==(const Topic&, const Topic&) = default;
};
