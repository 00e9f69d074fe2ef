#include "account/FeedbackForm.h"

#include "HttpStub.h"
#include "LocalBackend.h"
#include "account/FeedbackService.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QPromise>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

const QString failureTitle = u"An error occurred while submitting your feedback."_s;
const QString successTitle = u"Feedback Submitted"_s;
const QString successText = u"Thank you for your feedback! We appreciate your input."_s;

AccessTokenProvider fixedToken(const std::optional<QString>& token)
{
    return [token] {
        QPromise<std::optional<QString>> promise;
        promise.start();
        promise.addResult(token);
        promise.finish();
        return promise.future();
    };
}

} // namespace

// The form over a real FeedbackService: the local backend for the real
// answer, a stand-in server for the failures.
class FeedbackFormTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<LocalBackend> m_backend;
    std::unique_ptr<HttpStub> m_stub;

    static bool waitUntilSent(FeedbackForm& form)
    {
        return QTest::qWaitFor([&] { return !form.isSubmitting(); }, 30000);
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
    }

    void cleanup() { m_stub.reset(); }

    // Refused before anything is sent; the text stays for the user to fix.
    void refused_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<std::optional<QString>>("token");
        QTest::addColumn<QString>("message");
        QTest::newRow("empty") << QString() << std::optional(u"t"_s)
                               << u"Please enter your feedback before submitting."_s;
        QTest::newRow("only white space") << u"  \n "_s << std::optional(u"t"_s)
                                          << u"Please enter your feedback before submitting."_s;
        QTest::newRow("5001 characters")
            << QString(5001, u'a') << std::optional(u"t"_s)
            << u"Feedback must be 5000 characters or less. Please shorten your message."_s;
        QTest::newRow("signed out")
            << u"Nice"_s << std::optional<QString>() << u"Please log in to submit feedback."_s;
    }

    void refused()
    {
        QFETCH(QString, text);
        QFETCH(std::optional<QString>, token);
        QFETCH(QString, message);
        FeedbackService service(fixedToken(token), m_stub->url());
        FeedbackForm form(service);
        form.setText(text);
        QSignalSpy submitted(&form, &FeedbackForm::submitted);
        form.submit();
        QTRY_COMPARE(submitted.size(), 1);
        QCOMPARE(submitted.first().first().toBool(), false);
        QVERIFY(form.alertVisible());
        QVERIFY(form.alertIsError());
        QCOMPARE(form.alertTitle(), failureTitle);
        QCOMPARE(form.alertMessage(), message);
        QCOMPARE(form.text(), text);
        QVERIFY(!form.isSubmitting());
        QCOMPARE(m_stub->requests().size(), 0);
    }

    // Accepted by the real backend: thanked, and the form is ready for more.
    void accepted()
    {
        const auto tokens = m_backend->signIn(u"form@example.com"_s);
        QVERIFY(tokens.has_value());
        FeedbackService service(fixedToken(tokens->accessToken), m_backend->url());
        FeedbackForm form(service);
        form.setTypeIndex(1);
        form.setText(u"The call summary is great."_s);
        QSignalSpy submitting(&form, &FeedbackForm::isSubmittingChanged);

        form.submit();
        QVERIFY(form.isSubmitting());
        QVERIFY(waitUntilSent(form));
        QCOMPARE(submitting.size(), 2);
        QVERIFY(form.alertVisible());
        QVERIFY(!form.alertIsError());
        QCOMPARE(form.alertTitle(), successTitle);
        QCOMPARE(form.alertMessage(), successText);
        QCOMPARE(form.text(), QString());

        form.dismissAlert();
        QVERIFY(!form.alertVisible());
    }

    void failedKeepsText_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("message");
        QTest::newRow("401") << 401
                             << u"Your session has expired. Please log out and log back in."_s;
        QTest::newRow("503") << 503
                             << u"Our servers are having trouble. Please try again in a few "
                                "minutes."_s;
        QTest::newRow("200 is not created") << 200 << u"Something went wrong. Please try again."_s;
    }

    void failedKeepsText()
    {
        QFETCH(int, status);
        QFETCH(QString, message);
        m_stub->setAnswer("/feedback", {status, "{}", {}, false});
        FeedbackService service(fixedToken(u"t"_s), m_stub->url());
        FeedbackForm form(service);
        form.setTypeIndex(4);
        form.setTypeIndex(6); // not a type: ignored
        form.setText(u"Why does the mini window hide?"_s);
        form.submit();
        QVERIFY(waitUntilSent(form));
        QCOMPARE(form.alertTitle(), failureTitle);
        QCOMPARE(form.alertMessage(), message);
        QVERIFY(form.alertIsError());
        QCOMPARE(form.text(), u"Why does the mini window hide?"_s);
        QCOMPARE(m_stub->requests().size(), 1);
        const QJsonObject body = QJsonDocument::fromJson(m_stub->requests().first().body).object();
        QCOMPARE(body.value(u"type"_s).toString(), u"question"_s);
    }

    // What the user typed while the first text was on its way is not lost.
    void textEditedWhileSending()
    {
        const auto tokens = m_backend->signIn(u"editing@example.com"_s);
        QVERIFY(tokens.has_value());
        FeedbackService service(fixedToken(tokens->accessToken), m_backend->url());
        FeedbackForm form(service);
        form.setText(u"First thought"_s);
        form.submit();
        form.setText(u"First thought, and a second"_s);
        QVERIFY(waitUntilSent(form));
        QCOMPARE(form.alertTitle(), successTitle);
        QCOMPARE(form.text(), u"First thought, and a second"_s);
    }

    // One submission at a time; a form closed mid-way drops the answer quietly.
    void oneAtATime()
    {
        m_stub->setAnswer("/feedback", {201, "{}", {}, true});
        FeedbackService service(fixedToken(u"t"_s), m_stub->url());
        auto form = std::make_unique<FeedbackForm>(service);
        form->setText(u"Once"_s);
        form->submit();
        form->submit();
        QTRY_COMPARE(m_stub->requests().size(), 1);
        QVERIFY(form->isSubmitting());
        form.reset();
        QVERIFY(service.isSubmitting());
    }
};

QTEST_GUILESS_MAIN(FeedbackFormTest)
#include "FeedbackFormTest.moc"
