// The call's audio capture through the PulseAudio client API (PulseAudio and
// pipewire-pulse): the default output's monitor as system audio, an input
// source as the microphone, both as float32 at the source's own rate and channels.
#pragma once

#include "audio/CaptureBackend.h"

#include <QString>

#include <atomic>
#include <memory>
#include <mutex>

class PulseConnection;

class PulseCaptureBackend final : public CaptureBackend
{
public:
    PulseCaptureBackend();
    // Stops the capture and closes the connection.
    ~PulseCaptureBackend() override;
    PulseCaptureBackend(const PulseCaptureBackend&) = delete;
    PulseCaptureBackend& operator=(const PulseCaptureBackend&) = delete;

    // Blocks for the round trips to the server (at most a few seconds when it
    // does not answer). A running capture is stopped first. While it runs, the
    // system audio follows the default output when that changes, and an empty
    // `microphoneSource` follows the default input.
    std::optional<QString> start(std::shared_ptr<CaptureStreamOutput> output,
                                 const QString& microphoneSource) override;
    // Waits for a handler that is running. Not from a handler, and not while
    // holding a lock that the handlers take.
    void stop() override;
    // False after stop(), and after the server or a stream failed during the call.
    bool isRunning() const override;

    PermissionResult checkSystemAudioAccess() override;
    // Authorized when the input can be opened, else Denied: the sound server
    // itself has no notion of asking the user.
    MicrophoneAuthorization microphoneAuthorization(const QString& source) override;
    // Nothing to ask on a plain sound server: whether the input can be opened.
    bool requestMicrophoneAccess(const QString& source) override;

    // The sources recorded right now (empty when not running), for diagnostics.
    QString systemAudioSource() const;
    QString microphoneSource() const;

private:
    struct RecordStream;
    struct SourceFormat;

    // All below: with the main loop lock held.
    std::unique_ptr<RecordStream> openStream(CaptureOutputType type, const SourceFormat& format,
                                             bool followDefault, QString* error);
    void closeStream(std::unique_ptr<RecordStream>& record);
    void stopLocked();
    void stopDelivering();
    void followDefaultOutput();
    std::optional<QString> probe(const QString& source);
    bool isCurrent(const RecordStream* record) const;
    static QString deviceOf(const RecordStream* record);

    // Main loop callbacks (the C entry points are in Callbacks).
    struct Callbacks;
    friend struct Callbacks;
    void deliver(const RecordStream& record);
    void onStreamEnded(RecordStream* record);
    void onServerLost();

    std::mutex m_mutex; // one public operation at a time
    std::atomic<bool> m_running = false;

    // Guarded by the main loop lock: the callbacks read them.
    std::shared_ptr<CaptureStreamOutput> m_output;
    std::unique_ptr<RecordStream> m_system;
    std::unique_ptr<RecordStream> m_microphone;
    bool m_delivering = false;

    // Last: destroyed first, so that no callback outlives the members above.
    std::unique_ptr<PulseConnection> m_connection;
};
