// How a call gets its backend session: one SocketController for the call
// controller, fed with fresh tokens, observed by the controller through its
// signals and feeding the live summary.
#pragma once

#include "core/AccessTokenProvider.h"
#include "session/SocketController.h"

#include <QPointer>
#include <QUrl>

#include <functional>
#include <memory>
#include <optional>

class CallController;
class CallSession;
class SummaryModel;

struct SessionSettings
{
    QUrl backendUrl;
    AccessTokenProvider accessToken;
    std::function<void()> signOut;
    // The local-tool configuration sent with every session; until integrations
    // are configured, none is enabled.
    std::optional<QString> initialConfigJson = defaultLocalToolsConfig();
    SocketController::Timing timing;

    static QString defaultLocalToolsConfig();
};

// For CallController::Options::makeSession. The summary model, when given, is
// fed by the session and pushes its summary upstream while a call is live.
std::function<std::unique_ptr<CallSession>(CallController&)>
makeSessionFactory(SessionSettings settings, const QPointer<SummaryModel>& summary = {});
