#include "account/FeedbackService.h"

#include "core/Logging.h"

#include <QJsonObject>
#include <QPointer>
#include <QPromise>

using namespace Qt::StringLiterals;

namespace {

const QString successTitle = u"Feedback Submitted"_s;
const QString successText = u"Thank you for your feedback! We appreciate your input."_s;
const QString failureTitle = u"An error occurred while submitting your feedback."_s;

const QString emptyText = u"Please enter your feedback before submitting."_s;
const QString tooLongText =
    u"Feedback must be 5000 characters or less. Please shorten your message."_s;
const QString tooLongReason = u"Feedback text cannot exceed 5000 characters"_s;
const QString signedOutText = u"Please log in to submit feedback."_s;
const QString unexpectedText = u"Failed to submit feedback. Please try again."_s;
const QString unreachableText =
    u"Unable to connect to our servers. Please check your internet connection."_s;
const QString notHttpText = u"Unable to connect to feedback service."_s;

QString statusText(int status)
{
    switch (status) {
    case 400:
        return u"There was an issue with your feedback. Please check your message and try again."_s;
    case 401:
        return u"Your session has expired. Please log out and log back in."_s;
    case 403:
        return u"You don't have permission to submit feedback."_s;
    case 429:
        return u"You're submitting feedback too quickly. Please wait a moment and try again."_s;
    default:
        break;
    }
    if (status >= 500 && status <= 599) {
        return u"Our servers are having trouble. Please try again in a few minutes."_s;
    }
    return u"Something went wrong. Please try again."_s;
}

void logInfo(const QString& line)
{
    qCInfo(lcAccount).noquote() << line;
}

void logWarning(const QString& line)
{
    qCWarning(lcAccount).noquote() << line;
}

FeedbackResult failure(const QString& message)
{
    return FeedbackResult{false, failureTitle, message};
}

template <typename T> QFuture<T> finishedFuture(const T& result)
{
    QPromise<T> promise;
    promise.start();
    promise.addResult(result);
    promise.finish();
    return promise.future();
}

} // namespace

struct FeedbackService::Submission
{
    QPromise<FeedbackResult> promise;
    QPointer<HttpCall> call;
};

FeedbackService::FeedbackService(AccessTokenProvider accessToken, QUrl backendUrl, QObject* parent)
    : QObject(parent), m_http(new HttpClient(std::move(backendUrl), std::move(accessToken), this))
{}

FeedbackService::~FeedbackService()
{
    for (const std::unique_ptr<Submission>& submission : m_submissions) {
        if (submission->call) {
            submission->call->cancel();
        }
        submission->promise.addResult(failure(unexpectedText));
        submission->promise.finish();
    }
}

const QList<FeedbackService::FeedbackType>& FeedbackService::types()
{
    static const QList<FeedbackType> all = {
        {u"feature-request"_s, u"Feature Request"_s},
        {u"bug-report"_s, u"Bug Report"_s},
        {u"compliment"_s, u"Compliment"_s},
        {u"improvement"_s, u"Improvement"_s},
        {u"question"_s, u"Question"_s},
        {u"other"_s, u"Other"_s},
    };
    return all;
}

QStringList FeedbackService::typeValues()
{
    QStringList values;
    for (const FeedbackType& type : types()) {
        values.append(type.value);
    }
    return values;
}

QString FeedbackService::displayName(const QString& typeValue)
{
    for (const FeedbackType& type : types()) {
        if (type.value == typeValue) {
            return type.displayName;
        }
    }
    return {};
}

QString FeedbackService::placeholderText()
{
    return u"Share your thoughts, suggestions, or report issues..."_s;
}

int FeedbackService::characterCount(const QString& text)
{
    return static_cast<int>(text.trimmed().toUcs4().size());
}

QFuture<FeedbackResult> FeedbackService::submit(const QString& type, const QString& text)
{
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty()) {
        return finishedFuture(refuse(emptyText));
    }
    if (characterCount(trimmed) > maxTextLength) {
        logInfo(u"📝 Feedback not sent: "_s + tooLongReason);
        return finishedFuture(refuse(tooLongText));
    }
    if (displayName(type).isEmpty()) {
        // The form only offers known types; anything else is a fault of the caller.
        logWarning(u"📝 Feedback not sent: unknown feedback type \"%1\""_s.arg(type));
        return finishedFuture(refuse(unexpectedText));
    }

    m_submissions.push_back(std::make_unique<Submission>());
    Submission* submission = m_submissions.back().get();
    submission->promise.start();
    QFuture<FeedbackResult> future = submission->promise.future();
    if (m_submissions.size() == 1) {
        Q_EMIT isSubmittingChanged();
    }
    const HttpRequest request =
        HttpRequest::postJson(u"/feedback"_s, QJsonObject{{u"type"_s, type}, {u"text"_s, trimmed}})
            .acceptingJson()
            .withBearerFromProvider();
    submission->call = m_http->send(request, [this, submission](const HttpResponse& reply) {
        replyFinished(submission, reply);
    });
    return future;
}

void FeedbackService::replyFinished(Submission* submission, const HttpResponse& reply)
{
    switch (reply.failure) {
    case HttpFailure::None:
        break;
    case HttpFailure::NoAccessToken:
        logInfo(u"📝 Feedback not sent: not signed in"_s);
        finish(submission, failure(signedOutText));
        return;
    case HttpFailure::Cancelled:
        logWarning(u"📝 Feedback not sent: the access token request was cancelled"_s);
        finish(submission, failure(unexpectedText));
        return;
    case HttpFailure::Unreachable:
    case HttpFailure::TimedOut:
        logWarning(u"📝 Feedback submission error: "_s + reply.errorString);
        finish(submission, failure(unreachableText));
        return;
    case HttpFailure::Other:
        // Something answered, but not in HTTP: a proxy, TLS or protocol failure.
        logWarning(u"📝 Feedback submission error: "_s + reply.errorString);
        finish(submission, failure(notHttpText));
        return;
    }

    const int status = reply.status;
    logInfo(u"📝 Feedback submission response status: "_s + QString::number(status));
    // Only "created" means the feedback was stored; a 200 from something in
    // between (a captive portal, a misrouted proxy) must not thank the user.
    if (status == 201) {
        logInfo(u"📝 Feedback submitted successfully: "_s + QString::fromUtf8(reply.body));
        finish(submission, FeedbackResult{true, successTitle, successText});
        return;
    }
    logWarning(u"📝 Feedback submission failed with status "_s + QString::number(status));
    finish(submission, failure(statusText(status)));
}

void FeedbackService::finish(Submission* submission, const FeedbackResult& result)
{
    const auto found = find(submission);
    if (found == m_submissions.end()) {
        return;
    }
    // Taken out first: a listener of the changes below may submit again.
    const std::unique_ptr<Submission> done = std::move(*found);
    m_submissions.erase(found);
    m_lastResult = result;
    Q_EMIT lastResultChanged();
    if (m_submissions.empty()) {
        Q_EMIT isSubmittingChanged();
    }
    done->promise.addResult(result);
    done->promise.finish();
}

FeedbackResult FeedbackService::refuse(const QString& message)
{
    m_lastResult = failure(message);
    Q_EMIT lastResultChanged();
    return m_lastResult;
}

FeedbackService::Submissions::iterator FeedbackService::find(const Submission* submission)
{
    return std::find_if(m_submissions.begin(), m_submissions.end(),
                        [submission](const auto& entry) { return entry.get() == submission; });
}
