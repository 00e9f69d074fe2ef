// Analytics stays silent unless configured; when on, each event is one small
// request whose properties describe and never carry text, under an
// anonymous id that survives restarts.
#include "app/PostHogService.h"

#include "HttpStub.h"
#include "LogCapture.h"
#include "TestPaths.h"
#include "store/SettingsStore.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace Qt::StringLiterals;

class PostHogServiceTest : public QObject
{
    Q_OBJECT

private:
    TemporaryHome m_home;
    QString settingsPath() const { return m_home.path() + u"/analytics.json"_s; }

private Q_SLOTS:
    void offUnlessConfigured_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<bool>("withHost");
        QTest::newRow("no key") << QString() << true;
        QTest::newRow("no host") << u"phc_test"_s << false;
    }

    void offUnlessConfigured()
    {
        QFETCH(QString, key);
        QFETCH(bool, withHost);
        HttpStub stub;
        SettingsStore settings(settingsPath());
        PostHogService analytics(settings, key, withHost ? stub.url() : QUrl());
        QVERIFY(!analytics.isEnabled());
        analytics.capture(u"Call Control View"_s);
        QTest::qWait(200);
        QVERIFY(stub.requests().isEmpty());
        QVERIFY(!settings.contains(QString::fromLatin1(PostHogService::distinctIdKey)));
    }

    void sendsOneSmallEventUnderAStableId()
    {
        HttpStub stub;
        stub.setAnswer("/capture/", {});
        QString firstId;
        for (int launch = 0; launch < 2; ++launch) {
            SettingsStore settings(settingsPath());
            PostHogService analytics(settings, u"phc_test"_s, stub.url());
            QVERIFY(analytics.isEnabled());
            analytics.capture(u"Insight Tab Selected"_s, {{u"tab"_s, u"Topics"_s},
                                                          {u"count"_s, 3},
                                                          {u"live"_s, true},
                                                          {u"pasted"_s, QString(5000, u'x')}});
            QTRY_COMPARE(stub.requests().size(), launch + 1);
            const HttpStub::Request request = stub.requests().last();
            QCOMPARE(request.method, "POST");
            QCOMPARE(request.path, "/capture/");
            const QJsonObject body = QJsonDocument::fromJson(request.body).object();
            QCOMPARE(body[u"api_key"_s].toString(), u"phc_test"_s);
            QCOMPARE(body[u"event"_s].toString(), u"Insight Tab Selected"_s);
            const QJsonObject properties = body[u"properties"_s].toObject();
            QCOMPARE(properties[u"tab"_s].toString(), u"Topics"_s);
            QCOMPARE(properties[u"count"_s].toDouble(), 3.0);
            QCOMPARE(properties[u"live"_s].toBool(), true);
            QCOMPARE(properties[u"pasted"_s].toString().size(), PostHogService::maxValueLength);
            const QString id = body[u"distinct_id"_s].toString();
            QVERIFY(!id.isEmpty());
            if (launch == 0)
                firstId = id;
            QCOMPARE(id, firstId); // the same installation, the same id
        }
    }

    // An analytics host that cannot be reached is reported once, not per event.
    void anUnreachableHostIsReportedOnce()
    {
        LogCapture log;
        SettingsStore settings(settingsPath());
        PostHogService analytics(settings, u"phc_test"_s, HttpStub::unreachableUrl());
        for (int i = 0; i < 3; ++i)
            analytics.capture(u"Call Control View"_s);
        QTRY_VERIFY(!log.lines({u"⚠️ Analytics events cannot be sent"_s}).isEmpty());
        QTest::qWait(300);
        QCOMPARE(log.lines({u"⚠️ Analytics events cannot be sent"_s}).size(), 1);
    }
};

QTEST_GUILESS_MAIN(PostHogServiceTest)
#include "PostHogServiceTest.moc"
