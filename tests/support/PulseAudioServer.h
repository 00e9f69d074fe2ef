// Test support: a throw-away PulseAudio server (scripts/pulse-session) laid out
// like a machine in a call, for the life of the object, with helpers to play
// audio into it and to make input devices come and go.
#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>
#include <optional>

class PulseAudioServer
{
public:
    // The default output (48000 Hz stereo): what the other side of a call is
    // played into. Its monitor is the system audio.
    static constexpr auto callOutputSink = "quillmoss_call_output";
    // Play into this to speak into the virtual microphone.
    static constexpr auto microphoneFeedSink = "quillmoss_mic_feed";
    // The default input (44100 Hz mono): a real source, not a monitor.
    static constexpr auto virtualMicrophone = "quillmoss_virtual_mic";
    static constexpr auto virtualMicrophoneDescription = "Quillmoss virtual microphone";
    static constexpr int microphoneRate = 44100;

    // Starts the server and points this process, and so its children, at it
    // (PULSE_SERVER and PULSE_COOKIE; the previous values come back with the destructor).
    PulseAudioServer();
    ~PulseAudioServer();
    PulseAudioServer(const PulseAudioServer&) = delete;
    PulseAudioServer& operator=(const PulseAudioServer&) = delete;

    bool isRunning() const { return m_running; }
    QString error() const { return m_error; }
    // "unix:<folder>/native"; stays the same across stop() and start().
    QString address() const;

    // Stops the server now (to test one that goes away) and starts a fresh one
    // at the same address; start() is false when it did not come up (see error()).
    void stop();
    bool start();

    // Plays an audio file into a sink (paplay) and returns at once with the
    // process, which ends when the file has been played.
    std::unique_ptr<QProcess> startPlaying(const QString& file, const QString& sink) const;

    // A further input source named `name` (fed by the microphone feed), as when
    // a headset is plugged in; returns its module, to remove it again.
    std::optional<int> addVirtualSource(const QString& name, const QString& description);
    bool removeModule(int module);

    // pactl against this server: its standard output, none when it failed.
    std::optional<QString> pactl(const QStringList& arguments) const;

    // Writes a sine tone (sox): `seconds` long at `rate` Hz, mono, amplitude 0.5.
    static bool makeTone(const QString& path, double frequency, int rate, double seconds);

private:
    QTemporaryDir m_directory;
    bool m_running = false;
    QString m_error;
    QByteArray m_savedServer;
    QByteArray m_savedCookie;
};
