// The test browser through the local backend's real sign-in pages for its
// demo MCP server: the link it stops at carries what an app needs, and that
// is enough to get a token the server takes.
#include "OAuthTestBrowser.h"

#include "LocalBackend.h"

#include <QCryptographicHash>
#include <QEventLoop>
#include <QJsonArray>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QRandomGenerator>
#include <QTest>
#include <QTimer>
#include <QUrlQuery>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

const QString appLink = u"quillmoss://oauth/callback"_s;
// The command line's listener: loopback, on a port other than the backend's.
const QString loopbackLink = u"http://127.0.0.1:9/callback"_s;

QByteArray base64Url(const QByteArray& bytes)
{
    return bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals);
}

struct Answer
{
    int status = 0;
    QString contentType;
};

// The head of the event stream's answer; the stream itself is not waited for.
Answer openStream(const QUrl& url, const QString& accessToken)
{
    QNetworkAccessManager network;
    QNetworkRequest request(url);
    request.setRawHeader("Authorization", "Bearer " + accessToken.toUtf8());
    request.setRawHeader("Accept", "text/event-stream");
    QNetworkReply* reply = network.get(request);
    QEventLoop loop;
    Answer answer;
    const auto headers = [&] {
        answer.status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        answer.contentType = reply->header(QNetworkRequest::ContentTypeHeader).toString();
        if (answer.status != 0)
            loop.quit();
    };
    QObject::connect(reply, &QNetworkReply::metaDataChanged, &loop, headers);
    QObject::connect(reply, &QNetworkReply::finished, &loop, headers);
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    QTimer::singleShot(15'000, &loop, &QEventLoop::quit);
    loop.exec();
    reply->abort();
    reply->deleteLater();
    return answer;
}

} // namespace

class OAuthTestBrowserTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<LocalBackend> m_backend;

    // A public client registered for `redirectUri`; its id, or empty.
    QString registerClient(const QString& redirectUri)
    {
        const QJsonObject metadata{
            {u"client_name"_s, u"Quillmoss"_s},
            {u"redirect_uris"_s, QJsonArray{redirectUri}},
            {u"token_endpoint_auth_method"_s, u"none"_s},
            {u"grant_types"_s, QJsonArray{u"authorization_code"_s, u"refresh_token"_s}},
            {u"response_types"_s, QJsonArray{u"code"_s}},
        };
        const LocalBackend::Reply reply = m_backend->request(
            "POST", u"/register"_s, QJsonDocument(metadata).toJson(QJsonDocument::Compact));
        if (reply.status != 201)
            qWarning() << "registration:" << reply.status << reply.body;
        return reply.json()[u"client_id"_s].toString();
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_backend = std::make_unique<LocalBackend>();
        QVERIFY2(m_backend->isRunning(), qPrintable(m_backend->error()));
    }

    void cleanupTestCase() { m_backend.reset(); }

    void signIn_data()
    {
        QTest::addColumn<QString>("redirectUri");
        QTest::addColumn<bool>("registered"); // else an unknown client id
        QTest::addColumn<QString>("email");
        QTest::addColumn<bool>("allow");
        QTest::addColumn<QString>("errorHas"); // the browser's; empty: it reached the link

        const QString demo = LocalBackend::demoEmail();
        QTest::newRow("allowed: a code for the app's link")
            << appLink << true << demo << true << QString();
        QTest::newRow("denied: the app's link says so")
            << appLink << true << demo << false << QString();
        QTest::newRow("allowed: stops at the loopback listener, a + in the address intact")
            << loopbackLink << true << u"robin+calls@example.com"_s << true << QString();
        QTest::newRow("denied at the loopback listener")
            << loopbackLink << true << demo << false << QString();
        QTest::newRow("a mistyped address: the login page's complaint")
            << appLink << true << u"robin@"_s << true << u"Please enter a valid e-mail address."_s;
        QTest::newRow("an unknown client: refused before any page")
            << appLink << false << demo << true << u"answered HTTP 400"_s;
    }

    void signIn()
    {
        QFETCH(QString, redirectUri);
        QFETCH(bool, registered);
        QFETCH(QString, email);
        QFETCH(bool, allow);
        QFETCH(QString, errorHas);

        const QString clientId = registered ? registerClient(redirectUri) : u"nobody"_s;
        QVERIFY(!clientId.isEmpty());
        QByteArray random(32, Qt::Uninitialized);
        for (char& byte : random)
            byte = char(QRandomGenerator::global()->bounded(256));
        const QByteArray verifier = base64Url(random);
        const QByteArray challenge =
            base64Url(QCryptographicHash::hash(verifier, QCryptographicHash::Sha256));
        const QString state = QString::fromLatin1(base64Url(random.left(12)));

        QUrl authorize = m_backend->url();
        authorize.setPath(u"/authorize"_s);
        QUrlQuery query;
        for (const auto& [name, value] : {std::pair{u"response_type"_s, u"code"_s},
                                          {u"client_id"_s, clientId},
                                          {u"redirect_uri"_s, redirectUri},
                                          {u"scope"_s, u"mcp"_s},
                                          {u"state"_s, state},
                                          {u"code_challenge"_s, QString::fromLatin1(challenge)},
                                          {u"code_challenge_method"_s, u"S256"_s}})
            query.addQueryItem(name, QString::fromUtf8(QUrl::toPercentEncoding(value)));
        authorize.setQuery(query);

        const OAuthTestBrowser::Result result =
            OAuthTestBrowser::run(authorize, {.email = email, .allow = allow});
        const QString seen =
            u"%1 pages; the last:\n%2"_s.arg(result.pagesLoaded).arg(result.lastPage);
        if (!errorHas.isEmpty()) {
            QVERIFY2(result.finalUrl.isEmpty(), qPrintable(result.finalUrl.toString()));
            QVERIFY2(result.error.contains(errorHas), qPrintable(result.error));
            return;
        }
        QVERIFY2(result.error.isEmpty(), qPrintable(result.error + u'\n' + seen));
        QCOMPARE(result.finalUrl.adjusted(QUrl::RemoveQuery).toString(), redirectUri);
        // The login page and the consent page, which names who signed in.
        QCOMPARE(result.pagesLoaded, 2);
        QVERIFY2(result.lastPage.contains(u"Signed in as <strong>%1</strong>"_s.arg(email)),
                 qPrintable(seen));

        const QUrlQuery answer(result.finalUrl);
        QCOMPARE(answer.queryItemValue(u"state"_s, QUrl::FullyDecoded), state);
        const QString code = answer.queryItemValue(u"code"_s, QUrl::FullyDecoded);
        if (!allow) {
            QCOMPARE(answer.queryItemValue(u"error"_s), u"access_denied"_s);
            QVERIFY(code.isEmpty());
            return;
        }
        QVERIFY(!answer.hasQueryItem(u"error"_s));
        QVERIFY(!code.isEmpty());

        // What the app does with the link: the code and its verifier for a token...
        QUrlQuery form;
        for (const auto& [name, value] : {std::pair{u"grant_type"_s, u"authorization_code"_s},
                                          {u"code"_s, code},
                                          {u"code_verifier"_s, QString::fromLatin1(verifier)},
                                          {u"client_id"_s, clientId},
                                          {u"redirect_uri"_s, redirectUri}})
            form.addQueryItem(name, QString::fromUtf8(QUrl::toPercentEncoding(value)));
        const LocalBackend::Reply token =
            m_backend->request("POST", u"/token"_s, form.toString(QUrl::FullyEncoded).toUtf8(), {},
                               "application/x-www-form-urlencoded");
        QVERIFY2(token.status == 200, token.body.constData());
        const QString accessToken = token.json()[u"access_token"_s].toString();
        QVERIFY(!accessToken.isEmpty());

        // ...which opens the server's event stream.
        QUrl stream = m_backend->url();
        stream.setPath(u"/mcp/sse"_s);
        const Answer opened = openStream(stream, accessToken);
        QCOMPARE(opened.status, 200);
        QVERIFY2(opened.contentType.startsWith(u"text/event-stream"_s),
                 qPrintable(opened.contentType));
    }

    // A second start while one runs is refused, and the first one still ends well.
    void oneSignInAtATime()
    {
        const QString clientId = registerClient(appLink);
        QUrl authorize = m_backend->url();
        authorize.setPath(u"/authorize"_s);
        // Without a challenge the backend refuses at once, on the app's link.
        authorize.setQuery(u"response_type=code&client_id=%1&redirect_uri=%2"_s.arg(
            clientId, QString::fromUtf8(QUrl::toPercentEncoding(appLink))));

        OAuthTestBrowser browser;
        QList<std::pair<QUrl, QString>> ends;
        const auto record = [&ends](const QUrl& url, const QString& error) {
            ends.append({url, error});
        };
        browser.open(authorize, {}, record);
        browser.open(authorize, {}, record);
        QTRY_COMPARE_WITH_TIMEOUT(ends.size(), 2, 15'000);
        QCOMPARE(ends.at(0).second, u"the browser is already signing in"_s);
        QVERIFY(ends.at(0).first.isEmpty());
        const auto& [url, error] = ends.at(1);
        QVERIFY2(error.isEmpty(), qPrintable(error));
        QCOMPARE(url.adjusted(QUrl::RemoveQuery).toString(), appLink);
        QCOMPARE(QUrlQuery(url).queryItemValue(u"error"_s), u"invalid_request"_s);
    }
};

QTEST_GUILESS_MAIN(OAuthTestBrowserTest)
#include "OAuthTestBrowserTest.moc"
