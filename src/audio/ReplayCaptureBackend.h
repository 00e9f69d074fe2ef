// A capture backend that plays a recording as the call's audio, in real time,
// instead of recording the sound server: headless calls from a file, demos and
// tests on machines without sound. Without a recording it plays silence.
#pragma once

#include "audio/AudioFileReader.h"
#include "audio/CaptureBackend.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <thread>

class ReplayCaptureBackend final : public CaptureBackend
{
public:
    // Absent when the recording cannot be read; `error` says why.
    static std::unique_ptr<ReplayCaptureBackend> open(const QString& path, QString* error);
    // Silence only.
    ReplayCaptureBackend();
    ~ReplayCaptureBackend() override;
    ReplayCaptureBackend(const ReplayCaptureBackend&) = delete;
    ReplayCaptureBackend& operator=(const ReplayCaptureBackend&) = delete;

    // The recording's length (zero for silence).
    std::chrono::milliseconds duration() const { return m_duration; }
    // True once the whole recording has been delivered (silence follows).
    bool playedToEnd() const { return m_playedToEnd; }

    // The recording goes out as the system audio (the other side of the call),
    // with a silent microphone beside it, in 20-ms blocks at the pace of a clock.
    std::optional<QString> start(std::shared_ptr<CaptureStreamOutput> output,
                                 const QString& microphoneSource) override;
    void stop() override;
    bool isRunning() const override { return m_running; }

    PermissionResult checkSystemAudioAccess() override { return {true, {}}; }
    MicrophoneAuthorization microphoneAuthorization(const QString&) override
    {
        return MicrophoneAuthorization::Authorized;
    }
    bool requestMicrophoneAccess(const QString&) override { return true; }

private:
    explicit ReplayCaptureBackend(std::unique_ptr<AudioFileReader> reader);
    void play(const std::shared_ptr<CaptureStreamOutput>& output);

    std::unique_ptr<AudioFileReader> m_reader; // read on the play thread only
    std::chrono::milliseconds m_duration{0};
    std::atomic<bool> m_running{false};
    std::atomic<bool> m_stopping{false};
    std::atomic<bool> m_playedToEnd{false};
    std::mutex m_mutex; // start and stop
    std::thread m_thread;
};
