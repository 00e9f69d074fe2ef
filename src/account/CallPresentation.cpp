#include "account/CallPresentation.h"

#include <QLocale>
#include <QRegularExpression>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace CallPresentation {

namespace {

// The texts are English whatever the desktop's locale, like the rest of the app.
const QLocale& english()
{
    static const QLocale locale(QLocale::English, QLocale::UnitedStates);
    return locale;
}

// Long enough to tell calls apart, short enough for one line of the list.
constexpr qsizetype longestTitle = 64;

QString directionTitle(const QString& direction)
{
    if (direction == u"outbound"_s) {
        return u"Outbound call"_s;
    }
    if (direction == u"inbound"_s) {
        return u"Inbound call"_s;
    }
    return u"Call"_s;
}

bool newerFirst(const UserCallData& a, const UserCallData& b)
{
    return a.createdAt.moment > b.createdAt.moment;
}

// A line break inside a description would end the bullet and leave the rest
// of the text outside the checklist.
QString singleLine(const QString& text)
{
    static const QRegularExpression lineBreaks(u"\\s*[\\r\\n]+\\s*"_s);
    return QString(text).replace(lineBreaks, u" "_s).trimmed();
}

} // namespace

const QList<SortOrder>& sortOrders()
{
    static const QList<SortOrder> orders = {SortOrder::DateNewest, SortOrder::DateOldest,
                                            SortOrder::Duration, SortOrder::Status};
    return orders;
}

QString displayName(SortOrder order)
{
    switch (order) {
    case SortOrder::DateNewest:
        return u"Date (Newest)"_s;
    case SortOrder::DateOldest:
        return u"Date (Oldest)"_s;
    case SortOrder::Duration:
        return u"Duration"_s;
    case SortOrder::Status:
        return u"Status"_s;
    }
    return {};
}

QString cliName(SortOrder order)
{
    switch (order) {
    case SortOrder::DateNewest:
        return u"newest"_s;
    case SortOrder::DateOldest:
        return u"oldest"_s;
    case SortOrder::Duration:
        return u"duration"_s;
    case SortOrder::Status:
        return u"status"_s;
    }
    return {};
}

std::optional<SortOrder> sortOrderFromCliName(const QString& name)
{
    for (const SortOrder order : sortOrders()) {
        if (cliName(order) == name) {
            return order;
        }
    }
    return std::nullopt;
}

QList<UserCallData> sorted(QList<UserCallData> calls, SortOrder order)
{
    switch (order) {
    case SortOrder::DateNewest:
        std::stable_sort(calls.begin(), calls.end(), newerFirst);
        break;
    case SortOrder::DateOldest:
        std::stable_sort(calls.begin(), calls.end(), [](const auto& a, const auto& b) {
            return a.createdAt.moment < b.createdAt.moment;
        });
        break;
    case SortOrder::Duration:
        std::stable_sort(calls.begin(), calls.end(), [](const auto& a, const auto& b) {
            const std::optional<double> left = a.durationInSeconds();
            const std::optional<double> right = b.durationInSeconds();
            if (!left || !right) {
                return left.has_value() && !right.has_value();
            }
            return *left > *right;
        });
        break;
    case SortOrder::Status:
        std::stable_sort(calls.begin(), calls.end(), [](const auto& a, const auto& b) {
            const int byStatus = a.status.compare(b.status, Qt::CaseInsensitive);
            return byStatus != 0 ? byStatus < 0 : newerFirst(a, b);
        });
        break;
    }
    return calls;
}

QString displayDate(const QDateTime& moment, const QDateTime& now)
{
    const QDateTime local = moment.toLocalTime();
    const QDate today = now.toLocalTime().date();
    const QString time = english().toString(local.time(), u"h:mm AP"_s);
    if (local.date() == today) {
        return u"Today "_s + time;
    }
    if (local.date() == today.addDays(-1)) {
        return u"Yesterday "_s + time;
    }
    if (local.date().year() == today.year()) {
        return english().toString(local.date(), u"MMM d"_s) + u", "_s + time;
    }
    return english().toString(local.date(), u"MMM d, yyyy"_s) + u' ' + time;
}

QString displayDuration(double seconds)
{
    // Beyond this no integer holds the rounded value, and no call lasts that long.
    constexpr double longest = 1e15;
    if (!std::isfinite(seconds) || seconds < 0 || seconds > longest) {
        return {};
    }
    // Rounded like the backend's own "call_duration" text, so both agree.
    const auto total = static_cast<qint64>(std::llround(seconds));
    const qint64 hours = total / 3600;
    const qint64 minutes = total / 60 % 60;
    const QString secondsText = u"%1"_s.arg(total % 60, 2, 10, QLatin1Char('0'));
    if (hours > 0) {
        return u"%1:%2:%3"_s.arg(hours).arg(minutes, 2, 10, QLatin1Char('0')).arg(secondsText);
    }
    return u"%1:%2"_s.arg(minutes).arg(secondsText);
}

QString displayDuration(const UserCallData& call)
{
    if (call.callDuration) {
        if (const QString* text = std::get_if<QString>(&*call.callDuration)) {
            return *text;
        }
    }
    const std::optional<double> seconds = call.durationInSeconds();
    return seconds ? displayDuration(*seconds) : QString();
}

QString title(const UserCallData& call)
{
    QString text = call.summary ? call.summary->content.simplified() : QString();
    // The first sentence is the summarizer's own headline for the call.
    static const QRegularExpression sentenceEnd(u"[.!?](?=\\s|$)"_s);
    if (const QRegularExpressionMatch end = sentenceEnd.match(text); end.hasMatch()) {
        text.truncate(end.capturedStart());
    }
    if (text.isEmpty()) {
        return directionTitle(call.direction);
    }
    if (text.size() <= longestTitle) {
        return text;
    }
    qsizetype cut = text.lastIndexOf(u' ', longestTitle);
    if (cut < longestTitle / 2) {
        cut = longestTitle; // one very long word: cut inside it
    }
    text.truncate(cut);
    while (!text.isEmpty() && (text.back().isSpace() || text.back().isPunct())) {
        text.chop(1);
    }
    return text + u'…';
}

QString actionItemsMarkdown(const UserCallData& call)
{
    QString markdown = u"# Action Items from Call\n\n"_s;
    const QList<ActionItem> items = call.summary ? call.summary->actionItems : QList<ActionItem>();
    if (items.isEmpty()) {
        return markdown + u"_No action items._\n"_s;
    }
    for (const ActionItem& item : items) {
        markdown += u"- [ ] "_s + singleLine(item.description);
        if (item.assignee && !item.assignee->trimmed().isEmpty()) {
            markdown += u" — "_s + singleLine(*item.assignee);
        }
        if (item.priority) {
            markdown += u" (priority: "_s + priorityName(*item.priority) + u')';
        }
        if (item.deadline && !item.deadline->trimmed().isEmpty()) {
            markdown += u" (due: "_s + singleLine(*item.deadline) + u')';
        }
        markdown += u'\n';
    }
    return markdown;
}

} // namespace CallPresentation
