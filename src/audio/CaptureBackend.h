// The platform's audio capture: system audio and microphone of one call, and
// the two checks that stand for the capture permissions. One implementation per
// platform (PulseAudio here); the call rules above it never change.
#pragma once

#include "audio/CaptureStreamOutput.h"

#include <QString>

#include <memory>
#include <optional>

// Microphone authorization, with the values the platform reports.
enum class MicrophoneAuthorization : int
{
    NotDetermined = 0,
    Restricted = 1,
    Denied = 2,
    Authorized = 3,
};

struct PermissionResult
{
    bool granted = false;
    QString error; // why not, when not granted
};

class CaptureBackend
{
public:
    virtual ~CaptureBackend() = default;

    // Starts both record streams: system audio (the monitor of the current
    // default output) and the microphone (`microphoneSource`, else the default
    // input). Blocks are delivered to `output` on capture threads until stop().
    // Returns an error text when the capture could not start; then nothing runs.
    virtual std::optional<QString> start(std::shared_ptr<CaptureStreamOutput> output,
                                         const QString& microphoneSource) = 0;
    // Stops and closes both streams; no handler is called after it returns.
    virtual void stop() = 0;
    virtual bool isRunning() const = 0;

    // "Screen recording" permission: can the system audio be recorded?
    // Blocking (a round trip to the sound server): call it off the GUI thread.
    virtual PermissionResult checkSystemAudioAccess() = 0;
    // Microphone permission: can the input (`source`, else the default) be recorded?
    virtual MicrophoneAuthorization microphoneAuthorization(const QString& source) = 0;
    // Asks the user where the platform asks (a sandbox portal); true when granted.
    virtual bool requestMicrophoneAccess(const QString& source) = 0;
};
