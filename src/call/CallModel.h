// The record of the current call, as the call screen, the session and the chat read it.
#pragma once

#include <QDateTime>
#include <QMetaType>
#include <QString>

struct CallModel
{
    Q_GADGET
    Q_PROPERTY(QString userId MEMBER userId)
    Q_PROPERTY(bool isLive MEMBER isLive)
    Q_PROPERTY(bool isAudioPaused MEMBER isAudioPaused)
    Q_PROPERTY(QDateTime startTime MEMBER startTime)
    Q_PROPERTY(double duration MEMBER duration)
    Q_PROPERTY(bool isAudioCapturing MEMBER isAudioCapturing)
    Q_PROPERTY(float audioLevel MEMBER audioLevel)
    Q_PROPERTY(bool hasPermission MEMBER hasPermission)
    Q_PROPERTY(QString wsConnectionId MEMBER wsConnectionId)
    Q_PROPERTY(bool wsIsConnected MEMBER wsIsConnected)
    Q_PROPERTY(bool isAgentModeEnabled MEMBER isAgentModeEnabled)
    Q_PROPERTY(int agentSuggestionIntervalMs MEMBER agentSuggestionIntervalMs)
    Q_PROPERTY(bool hasActiveChat MEMBER hasActiveChat)
    Q_PROPERTY(QDateTime lastChatActivity MEMBER lastChatActivity)

public:
    QString userId;
    bool isLive = false;
    bool isAudioPaused = false; // capture keeps running but every block is dropped
    QDateTime startTime;        // invalid: no call started
    double duration = 0.0;      // seconds
    bool isAudioCapturing = false;
    float audioLevel = 0.0F;
    bool hasPermission = false;
    QString wsConnectionId; // empty: none
    bool wsIsConnected = false;
    bool isAgentModeEnabled = false;
    int agentSuggestionIntervalMs = 10000;
    bool hasActiveChat = false;
    QDateTime lastChatActivity; // invalid: none

    bool operator==(const CallModel& other) const = default;
};

Q_DECLARE_METATYPE(CallModel)
