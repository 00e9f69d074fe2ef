// One past call as the call-history detail view shows it, tab by tab: texts
// ready to show (dates, durations, percentages written out), as value types
// the screens read by property name.
#pragma once

#include "account/CallRecords.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>
#include <QVariant>

class CallDetailSummary
{
    Q_GADGET
    Q_PROPERTY(QString content MEMBER content)
    Q_PROPERTY(QStringList keyPoints MEMBER keyPoints)
    Q_PROPERTY(QString sentiment MEMBER sentiment)

public:
    QString content;
    QStringList keyPoints;
    QString sentiment;

    bool operator==(const CallDetailSummary&) const = default;
};

class CallDetailTranscriptLine
{
    Q_GADGET
    Q_PROPERTY(QString speaker MEMBER speaker)
    Q_PROPERTY(QString time MEMBER time)
    Q_PROPERTY(QString text MEMBER text)

public:
    QString speaker;
    QString time; // from the start of the call, "0:12"
    QString text;

    bool operator==(const CallDetailTranscriptLine&) const = default;
};

class CallDetailTranscript
{
    Q_GADGET
    Q_PROPERTY(QList<CallDetailTranscriptLine> segments MEMBER segments)
    Q_PROPERTY(QString text MEMBER text)

public:
    QList<CallDetailTranscriptLine> segments;
    // The whole text, shown when the backend sent no segments.
    QString text;

    bool operator==(const CallDetailTranscript&) const = default;
};

class CallDetailAction
{
    Q_GADGET
    Q_PROPERTY(QString description MEMBER description)
    Q_PROPERTY(QString assignee MEMBER assignee)
    Q_PROPERTY(QString priority MEMBER priority)
    Q_PROPERTY(QString deadline MEMBER deadline)

public:
    QString description;
    QString assignee;
    QString priority; // "high", "medium", "low" or empty
    QString deadline;

    bool operator==(const CallDetailAction&) const = default;
};

// A message of the conversation with the assistant during the call.
class CallDetailComment
{
    Q_GADGET
    Q_PROPERTY(QString role MEMBER role)
    Q_PROPERTY(QString author MEMBER author)
    Q_PROPERTY(QString content MEMBER content)
    Q_PROPERTY(QString time MEMBER time)

public:
    QString role;   // as the backend sent it: "user", "assistant", …
    QString author; // "You", "Assistant", …
    QString content;
    QString time;

    bool operator==(const CallDetailComment&) const = default;
};

class CallDetailTopic
{
    Q_GADGET
    Q_PROPERTY(QString topic MEMBER topic)
    Q_PROPERTY(double importance MEMBER importance)
    Q_PROPERTY(QString importanceText MEMBER importanceText)
    Q_PROPERTY(int mentions MEMBER mentions)

public:
    QString topic;
    double importance = 0.0; // 0…1
    QString importanceText;  // "90%"
    int mentions = 0;

    bool operator==(const CallDetailTopic&) const = default;
};

class CallDetailSpeaker
{
    Q_GADGET
    Q_PROPERTY(QString name MEMBER name)
    Q_PROPERTY(QString role MEMBER role)
    Q_PROPERTY(QStringList contributions MEMBER contributions)

public:
    QString name;
    QString role;
    QStringList contributions;

    bool operator==(const CallDetailSpeaker&) const = default;
};

// One line of the "Processing" figures: "Transcription confidence", "92%".
class CallDetailFigure
{
    Q_GADGET
    Q_PROPERTY(QString label MEMBER label)
    Q_PROPERTY(QString value MEMBER value)

public:
    QString label;
    QString value;

    bool operator==(const CallDetailFigure&) const = default;
};

class CallDetailInsights
{
    Q_GADGET
    Q_PROPERTY(QString sentiment MEMBER sentiment)
    Q_PROPERTY(QVariant sentimentScore MEMBER sentimentScore)
    Q_PROPERTY(QString sentimentScoreText MEMBER sentimentScoreText)
    Q_PROPERTY(QList<CallDetailSpeaker> speakers MEMBER speakers)
    Q_PROPERTY(QList<CallDetailFigure> processing MEMBER processing)

public:
    QString sentiment;
    QVariant sentimentScore;    // −1…1, null when the summary gave none
    QString sentimentScoreText; // "+0.55", empty without a score
    QList<CallDetailSpeaker> speakers;
    QList<CallDetailFigure> processing;

    bool operator==(const CallDetailInsights&) const = default;
};

class CallDetail
{
    Q_GADGET
    Q_PROPERTY(QString id MEMBER id)
    Q_PROPERTY(QString title MEMBER title)
    Q_PROPERTY(QString dateText MEMBER dateText)
    Q_PROPERTY(QString durationText MEMBER durationText)
    Q_PROPERTY(QString status MEMBER status)
    Q_PROPERTY(QString direction MEMBER direction)
    Q_PROPERTY(QString decryptionError MEMBER decryptionError)
    Q_PROPERTY(bool hasSummary MEMBER hasSummary)
    Q_PROPERTY(CallDetailSummary summary MEMBER summary)
    Q_PROPERTY(CallDetailTranscript transcript MEMBER transcript)
    Q_PROPERTY(QList<CallDetailAction> actions MEMBER actions)
    Q_PROPERTY(QList<CallDetailComment> comments MEMBER comments)
    Q_PROPERTY(QList<CallDetailTopic> topics MEMBER topics)
    Q_PROPERTY(CallDetailInsights insights MEMBER insights)

public:
    QString id; // empty: no such call
    QString title;
    QString dateText;
    QString durationText;
    QString status;
    QString direction;
    // The server's words when it could not open the call; its tabs are then empty.
    QString decryptionError;
    bool hasSummary = false;
    CallDetailSummary summary;
    CallDetailTranscript transcript;
    QList<CallDetailAction> actions;
    QList<CallDetailComment> comments;
    QList<CallDetailTopic> topics;
    CallDetailInsights insights;

    bool isEmpty() const { return id.isEmpty(); }

    // The call's details, with dates relative to `now` ("Today 3:05 PM").
    static CallDetail of(const UserCallData& call, const QDateTime& now);

    bool operator==(const CallDetail&) const = default;
};
