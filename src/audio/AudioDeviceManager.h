// The audio input devices of the sound server as the settings screen lists
// them: kept current while devices come and go, with the user's remembered choice.
#pragma once

#include "audio/AudioDevice.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QThreadPool>
#include <QTimer>
#include <QVariantList>

#include <atomic>
#include <memory>
#include <optional>

class PulseConnection;
class SettingsStore;

// Announces a newly chosen input device to whoever records (the call
// controller), and the input devices as last listed, so that a stored choice
// can be shown by its name: one per process, like a notification centre.
// Used on the GUI thread.
class AudioDeviceNotifier : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    // The input devices of the latest discovery; empty until one has listed some.
    QList<AudioDevice> inputDevices() const { return m_inputDevices; }
    void publishInputDevices(const QList<AudioDevice>& devices);

Q_SIGNALS:
    void audioDeviceChanged(const AudioDevice& device);
    void inputDevicesChanged(const QList<AudioDevice>& devices);

private:
    QList<AudioDevice> m_inputDevices;
};

class AudioDeviceManager : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QVariantList availableInputDevices READ availableInputDeviceList NOTIFY
                   availableInputDevicesChanged)
    Q_PROPERTY(QString selectedDeviceId READ selectedDeviceId NOTIFY selectedDeviceIdChanged)
    Q_PROPERTY(bool isLoading READ isLoading NOTIFY isLoadingChanged)
    Q_PROPERTY(QString lastError READ lastError NOTIFY lastErrorChanged)
    Q_PROPERTY(AudioDeviceError lastErrorCode READ lastErrorCode NOTIFY lastErrorChanged)

public:
    enum class AudioDeviceError
    {
        None,
        CannotGetDevices,          // the sound server cannot be reached
        CannotGetDeviceProperties, // it is reached but does not list its sources
        NoInputDevices,            // it lists no input (monitors of outputs do not count)
    };
    Q_ENUM(AudioDeviceError)

    // Reads the stored choice, starts listening for device changes and runs a
    // first discovery. `settings` must outlive the manager.
    explicit AudioDeviceManager(SettingsStore& settings, QObject* parent = nullptr);
    // Stops listening and disconnects from the server.
    ~AudioDeviceManager() override;

    const QList<AudioDevice>& availableInputDevices() const { return m_devices; }
    QVariantList availableInputDeviceList() const; // for QML: AudioDevice gadgets
    QString selectedDeviceId() const { return m_selectedDeviceId; }
    bool isLoading() const { return m_loading; }
    QString lastError() const { return m_lastError; }
    AudioDeviceError lastErrorCode() const { return m_lastErrorCode; }

    // Refreshes availableInputDevices without blocking; calls made while one
    // runs are folded into one more run after it.
    Q_INVOKABLE void discoverInputDevices();
    // Stores the device's id as the choice and announces it.
    Q_INVOKABLE void selectDevice(const AudioDevice& device);
    // The same for a device of the current list; false (nothing stored) for an unknown id.
    Q_INVOKABLE bool selectDeviceById(const QString& id);
    // The stored choice when it is in the current list.
    std::optional<AudioDevice> selectedDevice() const;

    static AudioDeviceNotifier* notifier();

Q_SIGNALS:
    void availableInputDevicesChanged();
    void selectedDeviceIdChanged();
    void isLoadingChanged();
    void lastErrorChanged();
    // After every discovery, once its outcome is published.
    void discoveryFinished();

private:
    struct Discovery
    {
        QList<AudioDevice> devices;
        AudioDeviceError error = AudioDeviceError::None;
        QString errorText;
    };

    struct Callbacks; // the sound server's C callbacks
    friend struct Callbacks;

    Discovery discover(); // on the worker thread
    bool subscribe();     // on the worker thread, after connecting
    void publish(const Discovery& result);
    void setLoading(bool loading);
    void scheduleRediscovery(); // from the sound server's thread
    void onServerLost();        // from the sound server's thread

    SettingsStore& m_settings;
    QList<AudioDevice> m_devices;
    QString m_selectedDeviceId;
    bool m_loading = false;
    QString m_lastError;
    AudioDeviceError m_lastErrorCode = AudioDeviceError::None;

    bool m_discoveryRunning = false;
    bool m_discoveryAgain = false;
    std::atomic<bool> m_rediscoveryPosted = false;
    std::atomic<bool> m_closing = false;
    // Folds a burst of server events (a device plugged in fires several) into one run.
    QTimer m_settleTimer;
    // While the server cannot be reached: try again, less and less often.
    QTimer m_retryTimer;
    int m_retryMilliseconds = 500;

    std::unique_ptr<PulseConnection> m_connection;
    QThreadPool m_worker; // one discovery at a time, off the GUI thread
};
