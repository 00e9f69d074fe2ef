#include "session/SessionFactory.h"

#include "call/CallController.h"
#include "session/SummaryModel.h"
#include "session/SummaryTranscriptFeed.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

QString SessionSettings::defaultLocalToolsConfig()
{
    const QJsonObject config{
        {u"executionMode"_s, u"local"_s},
        {u"localTools"_s, QJsonArray()},
        {u"enabledTools"_s, QJsonArray()},
    };
    return QString::fromUtf8(QJsonDocument(config).toJson(QJsonDocument::Compact));
}

std::function<std::unique_ptr<CallSession>(CallController&)>
makeSessionFactory(SessionSettings settings, const QPointer<SummaryModel>& summary)
{
    return [settings = std::move(settings), summary](CallController& controller) {
        SocketController::Dependencies dependencies{settings.accessToken, settings.signOut};
        auto session = std::make_unique<SocketController>(
            settings.backendUrl, QString(), controller.transcriptionViewModel(),
            settings.initialConfigJson, dependencies, settings.timing);
        if (summary) {
            session->setSummaryModel(summary);
            feedSummaryFromTranscript(*summary, controller.transcriptionViewModel());
            // Each call starts with an empty summary and pushes it upstream while live.
            QObject::connect(&controller, &CallController::isLiveChanged, summary,
                             [&controller, summary] {
                                 if (controller.isLive()) {
                                     summary->clear();
                                     summary->setCallStartedAt(controller.callModel().startTime);
                                     summary->start();
                                 } else {
                                     summary->stop();
                                 }
                             });
        }
        return session;
    };
}
