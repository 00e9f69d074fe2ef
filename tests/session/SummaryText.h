// Test support for the live summary: payloads written with single quotes,
// and summaries described one line per field or entry, so that tables of
// cases stay readable.
#pragma once

#include "session/LiveSessionRecords.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

namespace SummaryText {

using namespace Qt::StringLiterals;

// A JSON object from text that quotes with ' (the tables hold no apostrophes).
inline QJsonObject object(const QString& text)
{
    QString json = text;
    json.replace(u'\'', u'"');
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(json.toUtf8(), &error);
    Q_ASSERT_X(error.error == QJsonParseError::NoError, "SummaryText::object", qPrintable(json));
    return document.object();
}

// "overview:…", "key:…", "speaker:name|role|contributions", "item:description|
// priority|assignee|deadline", "topic:name|importance|mentions",
// "sentiment:overall|score" (or "sentiment:default"), "duration:…",
// "confidence:…"; empty fields and absent values leave their line out.
inline QStringList describe(const LiveSession::CallSummary& summary)
{
    QStringList lines;
    if (!summary.overview.isEmpty()) {
        lines.append(u"overview:"_s + summary.overview);
    }
    for (const QString& point : summary.keyPoints) {
        lines.append(u"key:"_s + point);
    }
    for (const LiveSession::Speaker& speaker : summary.speakers) {
        lines.append(u"speaker:"_s + speaker.name + u'|' + speaker.roleText() + u'|' +
                     speaker.mainContributions.join(u','));
    }
    for (const LiveSession::ActionItem& item : summary.actionItems) {
        lines.append(u"item:"_s + item.description + u'|' + item.priorityText() + u'|' +
                     item.assigneeText() + u'|' + item.deadlineText());
    }
    for (const LiveSession::Topic& topic : summary.topics) {
        lines.append(u"topic:"_s + topic.topic + u'|' + QString::number(topic.importance) + u'|' +
                     QString::number(topic.mentions));
    }
    lines.append(summary.sentimentIsDefault ? u"sentiment:default"_s
                                            : u"sentiment:"_s + summary.sentiment.overallText() +
                                                  u'|' + QString::number(summary.sentiment.score));
    if (!summary.duration.isEmpty()) {
        lines.append(u"duration:"_s + summary.duration);
    }
    if (summary.confidence) {
        lines.append(u"confidence:"_s + QString::number(*summary.confidence));
    }
    return lines;
}

} // namespace SummaryText
