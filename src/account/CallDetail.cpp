#include "account/CallDetail.h"

#include "account/CallPresentation.h"

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

QString percentText(double fraction)
{
    return u"%1%"_s.arg(std::lround(fraction * 100.0));
}

QString authorOf(const CallConversationMessage& message)
{
    const QString role = message.roleText();
    if (role == u"user"_s) {
        return u"You"_s;
    }
    if (role == u"assistant"_s) {
        return u"Assistant"_s;
    }
    return role.isEmpty() ? u"Message"_s : role;
}

QString secondsText(double seconds)
{
    return u"%1 s"_s.arg(seconds, 0, 'f', 1);
}

QString shownDate(const RecordDate& date, const QDateTime& now)
{
    return date.moment.isValid() ? CallPresentation::displayDate(date.moment, now) : QString();
}

CallDetailInsights insightsOf(const UserCallData& call, const QDateTime& now)
{
    const std::optional<CallSummaryData>& summary = call.summary;
    CallDetailInsights insights;
    insights.sentiment = summary ? summary->sentiment : QString();
    const std::optional<double> score = summary ? summary->sentimentScore : std::nullopt;
    insights.sentimentScore = score ? QVariant(*score) : QVariant();
    insights.sentimentScoreText =
        score ? (*score > 0 ? u"+"_s : QString()) + QString::number(*score, 'f', 2) : QString();
    if (summary) {
        for (const Speaker& speaker : summary->speakerList()) {
            insights.speakers.append({speaker.name, speaker.roleText(), speaker.mainContributions});
        }
    }

    int timedMessages = 0;
    double processingSeconds = 0.0;
    for (const CallConversationMessage& message : call.messageList()) {
        if (message.metadata && std::isfinite(message.metadata->processingTime)) {
            ++timedMessages;
            processingSeconds += message.metadata->processingTime;
        }
    }
    QList<CallDetailFigure>& processing = insights.processing;
    if (call.transcription) {
        processing.append(
            {u"Transcription confidence"_s, percentText(call.transcription->confidence)});
        processing.append(
            {u"Transcript segments"_s, QString::number(call.transcription->segments.size())});
    }
    processing.append({u"Assistant messages"_s, QString::number(call.messageCount.value_or(
                                                    static_cast<int>(call.messageList().size())))});
    if (timedMessages > 0) {
        processing.append(
            {u"Average response time"_s, secondsText(processingSeconds / timedMessages)});
    }
    if (summary && summary->createdAt.moment.isValid()) {
        processing.append({u"Summary written"_s, shownDate(summary->createdAt, now)});
    }
    if (call.lastSaved.moment.isValid()) {
        processing.append({u"Last saved"_s, shownDate(call.lastSaved, now)});
    }
    return insights;
}

} // namespace

CallDetail CallDetail::of(const UserCallData& call, const QDateTime& now)
{
    const std::optional<CallSummaryData>& summary = call.summary;

    CallDetail detail;
    detail.id = call.id;
    detail.title = CallPresentation::title(call);
    detail.dateText = shownDate(call.createdAt, now);
    detail.durationText = CallPresentation::displayDuration(call);
    detail.status = call.status;
    detail.direction = call.direction;
    detail.decryptionError = call.decryptionErrorText();
    detail.hasSummary = summary.has_value();

    if (summary) {
        detail.summary = {summary->content, summary->keyPoints, summary->sentiment};
        for (const ActionItem& item : summary->actionItems) {
            detail.actions.append(
                {item.description, item.assigneeText(), item.priorityText(), item.deadlineText()});
        }
        for (const Topic& topic : summary->topicList()) {
            detail.topics.append(
                {topic.topic, topic.importance, percentText(topic.importance), topic.mentions});
        }
    }

    if (call.transcription) {
        for (const CallTranscriptionSegment& segment : call.transcription->segments) {
            detail.transcript.segments.append({segment.speaker,
                                               CallPresentation::displayDuration(segment.startTime),
                                               segment.text});
        }
        detail.transcript.text = call.transcription->text;
    }

    for (const CallConversationMessage& message : call.messageList()) {
        detail.comments.append({message.roleText(), authorOf(message), message.content,
                                shownDate(message.timestamp, now)});
    }

    detail.insights = insightsOf(call, now);
    return detail;
}
