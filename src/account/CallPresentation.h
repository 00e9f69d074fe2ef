// How the call history is shown: dates, durations and titles as the list writes
// them, the list's sort orders, and a call's action items as a Markdown checklist.
// Pure functions, so the screens and the command line show the same thing.
#pragma once

#include "account/CallRecords.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QString>

#include <optional>

namespace CallPresentation {
Q_NAMESPACE

enum class SortOrder
{
    DateNewest,
    DateOldest,
    Duration, // longest first; calls without a duration last
    Status,   // alphabetical by status, then newest first
};
Q_ENUM_NS(SortOrder)

// Every order, in the order the screen's menu lists them.
const QList<SortOrder>& sortOrders();
// "Date (Newest)", "Date (Oldest)", "Duration", "Status".
QString displayName(SortOrder order);
// newest, oldest, duration, status: what `quillmoss history --sort` takes.
QString cliName(SortOrder order);
std::optional<SortOrder> sortOrderFromCliName(const QString& name);

// A stable sort: calls that compare equal keep the order the backend sent them in.
QList<UserCallData> sorted(QList<UserCallData> calls, SortOrder order);

// In local time, English: "Today 3:05 PM", "Yesterday 11:59 PM",
// "Mar 4, 9:30 AM" within the current calendar year, else "Mar 4, 2025 9:30 AM".
QString displayDate(const QDateTime& moment, const QDateTime& now);
// "0:42", "12:05", "1:02:03", to the nearest second. Empty for a negative or
// non-finite length.
QString displayDuration(double seconds);
// What the list shows for the call's length: the backend's own "call_duration"
// text when it sent one, else the seconds formatted; empty when the call has no
// duration.
QString displayDuration(const UserCallData& call);

// The list's headline for a call: the summary's opening sentence (cut to one
// line), else its direction ("Outbound call").
QString title(const UserCallData& call);

// "# Action Items from Call", a blank line, then one "- [ ] " bullet per item with
// " — assignee", " (priority: …)" and " (due: …)" as present; "_No action items._"
// when the call has none.
QString actionItemsMarkdown(const UserCallData& call);

} // namespace CallPresentation
