#include "account/FeedbackService.h"

#include "HttpStub.h"
#include "LocalBackend.h"
#include "LogCapture.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QPromise>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString failureTitle = u"An error occurred while submitting your feedback."_s;

bool waitFor(const QFuture<FeedbackResult>& future)
{
    return QTest::qWaitFor([&] { return future.isFinished(); }, 30000);
}

QString emoji(int count)
{
    QString text;
    for (int i = 0; i < count; ++i) {
        text += u"😀"_s;
    }
    return text;
}

} // namespace

// Found by QCOMPARE through argument-dependent lookup.
char* toString(const FeedbackResult& result)
{
    return QTest::toString(u"{%1, \"%2\", \"%3\"}"_s.arg(
        result.success ? u"success"_s : u"failure"_s, result.title, result.message));
}

class FeedbackServiceTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<LocalBackend> m_backend;
    std::unique_ptr<HttpStub> m_stub;
    std::optional<QString> m_token;
    int m_tokenRequests = 0;

    // The session's answer, counted: a refusal must come before even asking for it.
    AccessTokenProvider provider()
    {
        return [this] {
            ++m_tokenRequests;
            QPromise<std::optional<QString>> promise;
            promise.start();
            promise.addResult(m_token);
            promise.finish();
            return promise.future();
        };
    }

    bool signInFreshUser()
    {
        static int users = 0;
        const auto tokens = m_backend->signIn(u"feedback%1@example.com"_s.arg(++users));
        m_token = tokens ? std::optional(tokens->accessToken) : std::nullopt;
        return m_token.has_value();
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_backend = std::make_unique<LocalBackend>();
        QVERIFY2(m_backend->isRunning(), qPrintable(m_backend->error()));
    }

    void init()
    {
        m_stub = std::make_unique<HttpStub>();
        QVERIFY(m_stub->isListening());
        m_token = u"stub-token"_s;
        m_tokenRequests = 0;
    }

    void refusedBeforeAnyRequest_data()
    {
        QTest::addColumn<QString>("type");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("message");
        const QString tooLong =
            u"Feedback must be 5000 characters or less. Please shorten your message."_s;
        QTest::newRow("empty") << u"bug-report"_s << QString()
                               << u"Please enter your feedback before submitting."_s;
        QTest::newRow("white space")
            << u"bug-report"_s << u" \n\t "_s << u"Please enter your feedback before submitting."_s;
        QTest::newRow("5001 letters") << u"question"_s << QString(5001, u'a') << tooLong;
        QTest::newRow("5001 emoji") << u"question"_s << emoji(5001) << tooLong;
        QTest::newRow("unknown type")
            << u"praise"_s << u"Great app"_s << u"Failed to submit feedback. Please try again."_s;
    }

    void refusedBeforeAnyRequest()
    {
        QFETCH(QString, type);
        QFETCH(QString, text);
        QFETCH(QString, message);
        FeedbackService service(provider(), m_stub->url());
        const QFuture<FeedbackResult> future = service.submit(type, text);
        QVERIFY(future.isFinished());
        const FeedbackResult expected{false, failureTitle, message};
        QCOMPARE(future.result(), expected);
        QCOMPARE(service.lastResult(), expected);
        QVERIFY(!service.isSubmitting());
        QTest::qWait(50);
        QCOMPARE(m_tokenRequests, 0);
        QCOMPARE(m_stub->requests().size(), 0);
    }

    void statusMessages_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("message");
        const QString otherwise = u"Something went wrong. Please try again."_s;
        const QString serverTrouble =
            u"Our servers are having trouble. Please try again in a few minutes."_s;
        QTest::newRow("200 is not created") << 200 << otherwise;
        QTest::newRow("401") << 401
                             << u"Your session has expired. Please log out and log back in."_s;
        QTest::newRow("429") << 429
                             << u"You're submitting feedback too quickly. Please wait a "
                                "moment and try again."_s;
        QTest::newRow("499") << 499 << otherwise;
        QTest::newRow("500") << 500 << serverTrouble;
        QTest::newRow("503") << 503 << serverTrouble;
        QTest::newRow("599") << 599 << serverTrouble;
    }

    // What goes out is the trimmed text as JSON with the bearer; anything but
    // 201 is a failure, each status with its own words.
    void statusMessages()
    {
        QFETCH(int, status);
        QFETCH(QString, message);
        m_stub->setAnswer("/feedback", {status, "{\"success\": true}", {}, false});
        FeedbackService service(provider(), m_stub->url());
        QSignalSpy submitting(&service, &FeedbackService::isSubmittingChanged);
        const LogCapture log;

        const QFuture<FeedbackResult> future = service.submit(u"improvement"_s, u"  Dark mode\n"_s);
        QVERIFY(service.isSubmitting());
        QVERIFY(waitFor(future));
        QCOMPARE(future.result(), (FeedbackResult{false, failureTitle, message}));
        QVERIFY(!service.isSubmitting());
        QCOMPARE(submitting.size(), 2);

        QCOMPARE(m_stub->requests().size(), 1);
        const HttpStub::Request request = m_stub->requests().first();
        QCOMPARE(request.method, "POST");
        QCOMPARE(request.path, "/feedback");
        QCOMPARE(request.headers.value("authorization"), "Bearer stub-token");
        QVERIFY(request.headers.value("content-type").startsWith("application/json"));
        QCOMPARE(QJsonDocument::fromJson(request.body).object(),
                 (QJsonObject{{u"type"_s, u"improvement"_s}, {u"text"_s, u"Dark mode"_s}}));
        QCOMPARE(log.lines({u"📝"_s}),
                 (QStringList{u"📝 Feedback submission response status: %1"_s.arg(status),
                              u"📝 Feedback submission failed with status %1"_s.arg(status)}));
    }

    void transportFailures_data()
    {
        QTest::addColumn<QString>("server");
        QTest::addColumn<QString>("message");
        const QString unreachable =
            u"Unable to connect to our servers. Please check your internet connection."_s;
        QTest::newRow("nothing listens") << u"none"_s << unreachable;
        // Qt reads a closed connection into this; never a success.
        QTest::newRow("not HTTP, then closed") << u"garbage"_s << unreachable;
        QTest::newRow("TLS to a plain server")
            << u"tls"_s << u"Unable to connect to feedback service."_s;
    }

    void transportFailures()
    {
        QFETCH(QString, server);
        QFETCH(QString, message);
        QUrl url = m_stub->url();
        if (server == u"none"_s) {
            url = HttpStub::unreachableUrl();
        } else if (server == u"garbage"_s) {
            m_stub->setAnswer("/feedback",
                              {0, {}, "SSH-2.0-OpenSSH_9.2\r\nProtocol mismatch.\r\n", false});
        } else {
            m_stub->setAnswer("/feedback", {201, "{}", {}, false});
            url.setScheme(u"https"_s);
        }
        FeedbackService service(provider(), url);
        const LogCapture log;
        const QFuture<FeedbackResult> future = service.submit(u"other"_s, u"Hello"_s);
        QVERIFY(waitFor(future));
        QCOMPARE(future.result(), (FeedbackResult{false, failureTitle, message}));
        const QStringList lines = log.lines({u"📝"_s});
        QCOMPARE(lines.size(), 1);
        QVERIFY2(lines.first().startsWith(u"📝 Feedback submission error: "_s),
                 qPrintable(lines.first()));
    }

    void signedOut()
    {
        m_token.reset();
        FeedbackService service(provider(), m_stub->url());
        const QFuture<FeedbackResult> future = service.submit(u"compliment"_s, u"Nice"_s);
        QVERIFY(waitFor(future));
        QCOMPARE(future.result(),
                 (FeedbackResult{false, failureTitle, u"Please log in to submit feedback."_s}));
        QCOMPARE(m_tokenRequests, 1);
        QCOMPARE(m_stub->requests().size(), 0);
    }

    // The backend counts code points as we do: 5000 emoji (10000 UTF-16 units)
    // are accepted by both; white space around the text does not count.
    void acceptedByTheBackend_data()
    {
        QTest::addColumn<QString>("type");
        QTest::addColumn<QString>("text");
        QTest::newRow("short") << u"bug-report"_s << u"The call list is empty"_s;
        QTest::newRow("5000 letters") << u"feature-request"_s << QString(5000, u'a');
        QTest::newRow("5000 emoji") << u"compliment"_s << emoji(5000);
        QTest::newRow("5000 and white space")
            << u"other"_s << u"\n "_s + QString(5000, u'z') + u" "_s;
    }

    void acceptedByTheBackend()
    {
        QFETCH(QString, type);
        QFETCH(QString, text);
        QVERIFY(signInFreshUser());
        FeedbackService service(provider(), m_backend->url());
        const LogCapture log;
        const QFuture<FeedbackResult> future = service.submit(type, text);
        QVERIFY(waitFor(future));
        QCOMPARE(future.result(), (FeedbackResult{true, u"Feedback Submitted"_s,
                                                  u"Thank you for your feedback! We "
                                                  "appreciate your input."_s}));
        const QStringList lines = log.lines({u"📝"_s});
        QCOMPARE(lines.size(), 2);
        QCOMPARE(lines.at(0), u"📝 Feedback submission response status: 201"_s);
        QVERIFY(lines.at(1).startsWith(u"📝 Feedback submitted successfully: {"_s));
        QVERIFY(!log.lines().join(u'\n').contains(*m_token));
    }

    // Against the real backend: a token it does not know, and its limit of five
    // feedbacks a minute.
    void refusedByTheBackend()
    {
        QVERIFY(signInFreshUser());
        const int sentBefore = m_backend->requestCount(u"POST"_s, u"/feedback"_s);
        const QString token = *m_token;
        m_token = u"not-a-token"_s;
        FeedbackService service(provider(), m_backend->url());
        QFuture<FeedbackResult> future = service.submit(u"question"_s, u"Anyone there?"_s);
        QVERIFY(waitFor(future));
        QCOMPARE(future.result().message,
                 u"Your session has expired. Please log out and log back in."_s);

        m_token = token;
        for (int i = 1; i <= 5; ++i) {
            future = service.submit(u"question"_s, u"Question %1"_s.arg(i));
            QVERIFY(waitFor(future));
            QVERIFY2(future.result().success, qPrintable(future.result().message));
        }
        future = service.submit(u"question"_s, u"Question 6"_s);
        QVERIFY(waitFor(future));
        QCOMPARE(future.result().message, u"You're submitting feedback too quickly. Please wait a "
                                          "moment and try again."_s);
        QCOMPARE(m_backend->requestCount(u"POST"_s, u"/feedback"_s), sentBefore + 7);
    }

    // Closing with a submission in flight ends it at once, as a failure.
    void shutdownWithSubmissionInFlight()
    {
        m_stub->setAnswer("/feedback", {0, {}, {}, true});
        auto service = std::make_unique<FeedbackService>(provider(), m_stub->url());
        const QFuture<FeedbackResult> future = service->submit(u"other"_s, u"Hello"_s);
        QTRY_COMPARE(m_stub->requests().size(), 1);
        QVERIFY(!future.isFinished());
        service.reset();
        QVERIFY(future.isFinished());
        QCOMPARE(future.result().success, false);
    }
};

QTEST_GUILESS_MAIN(FeedbackServiceTest)
#include "FeedbackServiceTest.moc"
