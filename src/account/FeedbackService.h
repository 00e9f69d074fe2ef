// Sends the user's feedback (a type and a text) to the backend's POST /feedback,
// and says in the user's words how it went.
#pragma once

#include "core/AccessTokenProvider.h"
#include "core/HttpClient.h"

#include <QFuture>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <list>
#include <memory>

// How one submission ended: the alert the form shows.
class FeedbackResult
{
    Q_GADGET
    Q_PROPERTY(bool success MEMBER success)
    Q_PROPERTY(QString title MEMBER title)
    Q_PROPERTY(QString message MEMBER message)

public:
    bool success = false;
    QString title;
    QString message;

    bool operator==(const FeedbackResult&) const = default;
};

// Lives on the GUI thread, where its properties change and its futures finish.
// Every submission gets its own answer; two sent at once are two requests.
class FeedbackService : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool isSubmitting READ isSubmitting NOTIFY isSubmittingChanged)
    Q_PROPERTY(FeedbackResult lastResult READ lastResult NOTIFY lastResultChanged)
    Q_PROPERTY(QString placeholderText READ placeholderText CONSTANT)
    Q_PROPERTY(QStringList typeValues READ typeValues CONSTANT)
    Q_PROPERTY(int maxCharacters READ maxCharacters CONSTANT)

public:
    struct FeedbackType
    {
        QString value;       // on the wire: "feature-request"
        QString displayName; // in the form: "Feature Request"
    };

    // The backend counts Unicode code points, and so does characterCount().
    static constexpr int maxTextLength = 5000;

    FeedbackService(AccessTokenProvider accessToken, QUrl backendUrl, QObject* parent = nullptr);
    // Aborts submissions in flight; their futures finish with a failure.
    ~FeedbackService() override;
    FeedbackService(const FeedbackService&) = delete;
    FeedbackService& operator=(const FeedbackService&) = delete;

    // In the order the form offers them.
    static const QList<FeedbackType>& types();
    static QStringList typeValues();
    // Empty for a value that is not a feedback type.
    Q_INVOKABLE static QString displayName(const QString& typeValue);
    static QString placeholderText();
    static int maxCharacters() { return maxTextLength; }
    // What the form's counter shows and the limit applies to: code points of
    // the text as it will be sent (leading and trailing white space dropped).
    Q_INVOKABLE static int characterCount(const QString& text);

    bool isSubmitting() const { return !m_submissions.empty(); }
    FeedbackResult lastResult() const { return m_lastResult; }

    // Checks the text and type, then sends them. The future finishes on the GUI
    // thread; lastResult holds the latest answer.
    Q_INVOKABLE QFuture<FeedbackResult> submit(const QString& type, const QString& text);

Q_SIGNALS:
    void isSubmittingChanged();
    void lastResultChanged();

private:
    struct Submission;
    using Submissions = std::list<std::unique_ptr<Submission>>;

    void replyFinished(Submission* submission, const HttpResponse& reply);
    void finish(Submission* submission, const FeedbackResult& result);
    FeedbackResult refuse(const QString& message);
    Submissions::iterator find(const Submission* submission);

    HttpClient* m_http;        // child; asks for the bearer token of each submission
    Submissions m_submissions; // in flight
    FeedbackResult m_lastResult;
};
