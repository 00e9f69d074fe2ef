#include "core/HttpClient.h"

#include "HttpStub.h"
#include "LogCapture.h"

#include <QJsonObject>
#include <QLoggingCategory>
#include <QPointer>
#include <QPromise>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

const QString secretToken = u"tok-very-secret-123"_s;

QFuture<std::optional<QString>> answered(const std::optional<QString>& token)
{
    QPromise<std::optional<QString>> promise;
    promise.start();
    promise.addResult(token);
    promise.finish();
    return promise.future();
}

// The completion's answer, once it came.
struct Outcome
{
    std::optional<HttpResponse> response;
    int calls = 0;

    HttpClient::Completion completion()
    {
        return [this](const HttpResponse& answer) {
            response = answer;
            ++calls;
        };
    }
    bool wait()
    {
        return QTest::qWaitFor([this] { return response.has_value(); }, 20000);
    }
};

} // namespace

class HttpClientTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<HttpStub> m_stub;

private Q_SLOTS:
    void init()
    {
        QLoggingCategory::setFilterRules(u"com.quillmoss.http.debug=true"_s);
        m_stub = std::make_unique<HttpStub>();
        QVERIFY(m_stub->isListening());
    }
    void cleanup() { m_stub.reset(); }

    void endpointKeepsTheBasePath_data()
    {
        QTest::addColumn<QUrl>("base");
        QTest::addColumn<QUrl>("expected");
        QTest::newRow("bare host") << QUrl(u"https://h"_s) << QUrl(u"https://h/calls"_s);
        QTest::newRow("base path") << QUrl(u"https://h/api/"_s) << QUrl(u"https://h/api/calls"_s);
        QTest::newRow("query dropped")
            << QUrl(u"https://h/api?x=1#f"_s) << QUrl(u"https://h/api/calls"_s);
    }
    void endpointKeepsTheBasePath()
    {
        QFETCH(QUrl, base);
        QFETCH(QUrl, expected);
        QCOMPARE(HttpClient::endpoint(base, u"/calls"_s), expected);
    }

    // How each kind of ending is told apart, and that the body of any HTTP
    // answer comes back whole.
    void outcomes_data()
    {
        QTest::addColumn<HttpStub::Answer>("answer");
        QTest::addColumn<bool>("unreachable");
        QTest::addColumn<int>("failure");
        QTest::addColumn<int>("status");
        QTest::addColumn<bool>("success");
        QTest::addColumn<bool>("json");

        const auto failure = [](HttpFailure value) { return static_cast<int>(value); };
        QTest::newRow("200 JSON") << HttpStub::Answer{200, R"({"a":1})", {}, false} << false
                                  << failure(HttpFailure::None) << 200 << true << true;
        QTest::newRow("201") << HttpStub::Answer{201, "[]", {}, false} << false
                             << failure(HttpFailure::None) << 201 << true << true;
        QTest::newRow("200 not JSON") << HttpStub::Answer{200, "<html>", {}, false} << false
                                      << failure(HttpFailure::None) << 200 << true << false;
        QTest::newRow("404") << HttpStub::Answer{404, R"({"error":"x"})", {}, false} << false
                             << failure(HttpFailure::None) << 404 << false << true;
        QTest::newRow("503") << HttpStub::Answer{503, "", {}, false} << false
                             << failure(HttpFailure::None) << 503 << false << false;
        // Whatever closes the connection without an HTTP answer counts as gone.
        QTest::newRow("not HTTP") << HttpStub::Answer{200, {}, "SSH-2.0-OpenSSH\r\n", false}
                                  << false << failure(HttpFailure::Unreachable) << 0 << false
                                  << false;
        QTest::newRow("TLS to a plain server")
            << HttpStub::Answer{200, "{}", {}, false} << false << failure(HttpFailure::Other) << 0
            << false << false;
        QTest::newRow("timed out") << HttpStub::Answer{200, {}, {}, true} << false
                                   << failure(HttpFailure::TimedOut) << 0 << false << false;
        QTest::newRow("unreachable") << HttpStub::Answer{} << true
                                     << failure(HttpFailure::Unreachable) << 0 << false << false;
    }
    void outcomes()
    {
        QFETCH(HttpStub::Answer, answer);
        QFETCH(bool, unreachable);
        QFETCH(int, failure);
        QFETCH(int, status);
        QFETCH(bool, success);
        QFETCH(bool, json);

        m_stub->setAnswer("/x", answer);
        QUrl base = unreachable ? HttpStub::unreachableUrl() : m_stub->url();
        if (QByteArray(QTest::currentDataTag()).startsWith("TLS")) {
            base.setScheme(u"https"_s);
        }
        HttpClient client(base);
        Outcome outcome;
        client.send(HttpRequest::get(u"/x"_s).withTimeout(std::chrono::milliseconds(300)),
                    outcome.completion());
        QCOMPARE(outcome.calls, 0); // never from inside the call
        QVERIFY(outcome.wait());
        const HttpResponse& response = *outcome.response;
        QCOMPARE(static_cast<int>(response.failure), failure);
        QCOMPARE(response.status, status);
        QCOMPARE(response.isSuccess(), success);
        if (response.answered()) {
            QCOMPARE(response.body, answer.body);
        }
        QString error;
        QCOMPARE(response.json(&error).has_value(), json);
        QCOMPARE(error.isEmpty(), json);
        QTest::qWait(50);
        QCOMPARE(outcome.calls, 1);
    }

    // The header goes out only on the requests that ask for it, and neither
    // the token nor the header ever reaches the log.
    void bearerOnlyWhenAsked_data()
    {
        QTest::addColumn<int>("bearer");
        QTest::addColumn<std::optional<QString>>("provided");
        QTest::addColumn<QByteArray>("header");
        QTest::addColumn<int>("failure");

        const auto bearer = [](HttpRequest::Bearer value) { return static_cast<int>(value); };
        const QByteArray expected = "Bearer " + secretToken.toUtf8();
        QTest::newRow("none") << bearer(HttpRequest::Bearer::None)
                              << std::optional<QString>(secretToken) << QByteArray()
                              << static_cast<int>(HttpFailure::None);
        QTest::newRow("given") << bearer(HttpRequest::Bearer::Given) << std::optional<QString>()
                               << expected << static_cast<int>(HttpFailure::None);
        QTest::newRow("from provider")
            << bearer(HttpRequest::Bearer::FromProvider) << std::optional<QString>(secretToken)
            << expected << static_cast<int>(HttpFailure::None);
        QTest::newRow("provider has none")
            << bearer(HttpRequest::Bearer::FromProvider) << std::optional<QString>() << QByteArray()
            << static_cast<int>(HttpFailure::NoAccessToken);
    }
    void bearerOnlyWhenAsked()
    {
        QFETCH(int, bearer);
        QFETCH(std::optional<QString>, provided);
        QFETCH(QByteArray, header);
        QFETCH(int, failure);

        const LogCapture log;
        m_stub->setAnswer("/me", {200, "{}", {}, false});
        HttpClient client(m_stub->url(), [provided] { return answered(provided); });
        HttpRequest request = HttpRequest::postJson(u"/me"_s, QJsonObject{{u"a"_s, 1}});
        request.bearer = static_cast<HttpRequest::Bearer>(bearer);
        request.token = request.bearer == HttpRequest::Bearer::Given ? secretToken : QString();
        Outcome outcome;
        client.send(request, outcome.completion());
        QVERIFY(outcome.wait());
        QCOMPARE(static_cast<int>(outcome.response->failure), failure);

        if (failure == static_cast<int>(HttpFailure::NoAccessToken)) {
            QVERIFY(m_stub->requests().isEmpty()); // nothing sent without the token
        } else {
            QCOMPARE(m_stub->requests().size(), 1);
            const HttpStub::Request sent = m_stub->requests().first();
            QCOMPARE(sent.headers.value("authorization"), header);
            QCOMPARE(sent.headers.value("content-type"), QByteArray("application/json"));
            QCOMPARE(sent.body, QByteArray(R"({"a":1})"));
            QVERIFY(!log.lines({u"POST "_s}).isEmpty());
        }
        const QString logged = log.lines().join(u'\n');
        QVERIFY2(!logged.contains(secretToken), qPrintable(logged));
        QVERIFY(!logged.contains(u"Authorization"_s, Qt::CaseInsensitive));
    }

    // A client that goes with its requests in flight stops them, and none of
    // their completions runs afterwards.
    void ownerGoesWithARequestInFlight()
    {
        m_stub->setAnswer("/slow", {200, {}, {}, true});
        auto client = std::make_unique<HttpClient>(m_stub->url());
        Outcome plain;
        Outcome streamed;
        const QPointer<HttpCall> call =
            client->send(HttpRequest::get(u"/slow"_s), plain.completion());
        HttpClient::Stream stream;
        stream.onFinished = streamed.completion();
        client->stream(HttpRequest::get(u"/slow"_s), stream);
        QVERIFY(QTest::qWaitFor([this] { return m_stub->requests().size() == 2; }, 20000));
        QVERIFY(call);
        client.reset();
        QVERIFY(!call);
        QTest::qWait(100);
        QCOMPARE(plain.calls, 0);
        QCOMPARE(streamed.calls, 0);
    }

    // A body read as it arrives; an error page is collected instead; the
    // reader can stop the transfer, which then finishes.
    void streamedBody_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<bool>("stopAtOnce");
        QTest::addColumn<QByteArray>("streamed");
        QTest::addColumn<QByteArray>("collected");
        const QByteArray body(64 * 1024, 'x');
        QTest::newRow("whole") << 200 << false << body << QByteArray();
        QTest::newRow("error page") << 404 << false << QByteArray() << body;
        QTest::newRow("stopped by the reader") << 200 << true << QByteArray() << QByteArray();
    }
    void streamedBody()
    {
        QFETCH(int, status);
        QFETCH(bool, stopAtOnce);
        QFETCH(QByteArray, streamed);
        QFETCH(QByteArray, collected);

        m_stub->setAnswer("/file", {status, QByteArray(64 * 1024, 'x'), {}, false});
        HttpClient client(m_stub->url());
        QByteArray received;
        std::optional<qint64> announced;
        Outcome outcome;
        HttpClient::Stream stream;
        stream.onHead = [&announced](const HttpResponse& head) {
            announced = head.contentLength;
            return head.status == 200;
        };
        stream.onData = [&received, stopAtOnce](const QByteArray& chunk) {
            if (!stopAtOnce) {
                received += chunk;
            }
            return !stopAtOnce;
        };
        stream.onFinished = outcome.completion();
        client.stream(HttpRequest::get(u"/file"_s), stream);
        QVERIFY(outcome.wait());
        QCOMPARE(announced, std::optional<qint64>(64 * 1024));
        QCOMPARE(received, streamed);
        QCOMPARE(outcome.response->body, collected);
        QCOMPARE(outcome.response->status, status);
        QCOMPARE(outcome.calls, 1);
    }
};

QTEST_GUILESS_MAIN(HttpClientTest)
#include "HttpClientTest.moc"
