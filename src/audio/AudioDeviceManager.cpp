#include "audio/AudioDeviceManager.h"

#include "audio/AudioDeviceChoice.h"
#include "audio/PulseConnection.h"
#include "core/Logging.h"
#include "store/SettingsStore.h"

#include <QCoreApplication>

#include <algorithm>
#include <pulse/context.h>
#include <pulse/introspect.h>
#include <pulse/subscribe.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int settleMilliseconds = 50;
constexpr int firstRetryMilliseconds = 500;
constexpr int longestRetryMilliseconds = 5000;

struct ServerInfoRequest
{
    const PulseConnection* connection = nullptr;
    bool received = false;
    QString defaultSource;
};

void onServerInfo(pa_context* /*context*/, const pa_server_info* info, void* userdata)
{
    auto* request = static_cast<ServerInfoRequest*>(userdata);
    if (info != nullptr) {
        request->received = true;
        request->defaultSource = QString::fromUtf8(info->default_source_name);
    }
    request->connection->signal();
}

struct SourceListRequest
{
    const PulseConnection* connection = nullptr;
    QList<AudioDevice> devices;
    bool failed = false;
};

QString textOr(const char* text, const QString& fallback)
{
    return text != nullptr && *text != '\0' ? QString::fromUtf8(text) : fallback;
}

void onSourceInfo(pa_context* /*context*/, const pa_source_info* info, int eol, void* userdata)
{
    auto* request = static_cast<SourceListRequest*>(userdata);
    if (eol < 0) {
        request->failed = true;
    } else if (eol == 0 && info != nullptr && info->name != nullptr &&
               // The monitor of an output is not something the user speaks into.
               info->monitor_of_sink == PA_INVALID_INDEX) {
        AudioDevice device;
        device.id = QString::fromUtf8(info->name);
        device.name = textOr(info->description, u"Unknown"_s);
        device.manufacturer =
            textOr(pa_proplist_gets(info->proplist, PA_PROP_DEVICE_VENDOR_NAME), u"Unknown"_s);
        device.deviceID = info->index;
        request->devices.append(device);
    }
    request->connection->signal();
}

} // namespace

struct AudioDeviceManager::Callbacks
{
    static void onServerEvent(pa_context* /*context*/, pa_subscription_event_type_t event,
                              uint32_t /*index*/, void* userdata)
    {
        const auto facility = event & PA_SUBSCRIPTION_EVENT_FACILITY_MASK;
        const auto type = event & PA_SUBSCRIPTION_EVENT_TYPE_MASK;
        // Sources coming and going, and the server's defaults; not the volume and
        // state changes of a source, which fire all through a call.
        const bool relevant =
            facility == PA_SUBSCRIPTION_EVENT_SERVER ||
            (facility == PA_SUBSCRIPTION_EVENT_SOURCE && type != PA_SUBSCRIPTION_EVENT_CHANGE);
        if (relevant) {
            static_cast<AudioDeviceManager*>(userdata)->scheduleRediscovery();
        }
    }
};

AudioDeviceManager::AudioDeviceManager(SettingsStore& settings, QObject* parent)
    : QObject(parent), m_settings(settings),
      m_selectedDeviceId(AudioDeviceChoice::storedId(settings).value_or(QString())),
      m_connection(std::make_unique<PulseConnection>(u"Quillmoss devices"_s))
{
    m_worker.setMaxThreadCount(1);
    m_settleTimer.setSingleShot(true);
    m_settleTimer.setInterval(settleMilliseconds);
    connect(&m_settleTimer, &QTimer::timeout, this, &AudioDeviceManager::discoverInputDevices);
    m_retryTimer.setSingleShot(true);
    connect(&m_retryTimer, &QTimer::timeout, this, &AudioDeviceManager::discoverInputDevices);
    m_connection->setDisconnectedHandler([this] { onServerLost(); });
    discoverInputDevices();
}

AudioDeviceManager::~AudioDeviceManager()
{
    m_closing = true;
    m_settleTimer.stop();
    m_retryTimer.stop();
    m_worker.waitForDone();
    // Under the main loop lock: once it returns no server callback can run.
    m_connection.reset();
}

QVariantList AudioDeviceManager::availableInputDeviceList() const
{
    QVariantList list;
    list.reserve(m_devices.size());
    for (const AudioDevice& device : m_devices) {
        list.append(QVariant::fromValue(device));
    }
    return list;
}

void AudioDeviceManager::discoverInputDevices()
{
    if (m_discoveryRunning) {
        m_discoveryAgain = true;
        return;
    }
    m_discoveryRunning = true;
    m_retryTimer.stop();
    setLoading(true);
    m_worker.start([this] {
        if (m_closing) {
            return;
        }
        const Discovery result = discover();
        QMetaObject::invokeMethod(
            this, [this, result] { publish(result); }, Qt::QueuedConnection);
    });
}

void AudioDeviceManager::selectDevice(const AudioDevice& device)
{
    if (!AudioDeviceChoice::store(m_settings, device.id)) {
        qCWarning(lcDevices).noquote()
            << u"⚠️ [AudioDeviceManager] Could not save the selected device: "_s +
                   m_settings.lastError();
    }
    if (m_selectedDeviceId != device.id) {
        m_selectedDeviceId = device.id;
        Q_EMIT selectedDeviceIdChanged();
    }
    qCInfo(lcDevices).noquote() << u"🎤 [AudioDeviceManager] Selected audio device: "_s +
                                       device.name;
    Q_EMIT notifier()->audioDeviceChanged(device);
}

bool AudioDeviceManager::selectDeviceById(const QString& id)
{
    const auto found = std::find_if(m_devices.cbegin(), m_devices.cend(),
                                    [&id](const AudioDevice& device) { return device.id == id; });
    if (found == m_devices.cend()) {
        return false;
    }
    selectDevice(*found);
    return true;
}

std::optional<AudioDevice> AudioDeviceManager::selectedDevice() const
{
    if (m_selectedDeviceId.isEmpty()) {
        return std::nullopt;
    }
    for (const AudioDevice& device : m_devices) {
        if (device.id == m_selectedDeviceId) {
            return device;
        }
    }
    return std::nullopt;
}

AudioDeviceNotifier* AudioDeviceManager::notifier()
{
    // Never deleted: subscribers may hold connections to it until the very end.
    static AudioDeviceNotifier* const instance = [] {
        auto* created = new AudioDeviceNotifier;
        if (const QCoreApplication* application = QCoreApplication::instance()) {
            created->moveToThread(application->thread());
        }
        return created;
    }();
    return instance;
}

void AudioDeviceNotifier::publishInputDevices(const QList<AudioDevice>& devices)
{
    m_inputDevices = devices;
    Q_EMIT inputDevicesChanged(m_inputDevices);
}

AudioDeviceManager::Discovery AudioDeviceManager::discover()
{
    if (!m_connection->isConnected()) {
        if (std::optional<QString> error = m_connection->connect()) {
            return {{}, AudioDeviceError::CannotGetDevices, *error};
        }
        if (!subscribe()) {
            qCWarning(lcDevices).noquote()
                << u"⚠️ [AudioDeviceManager] Device changes will not be noticed: "_s +
                       m_connection->lastErrorText();
        }
    }
    const PulseConnection::Lock lock(*m_connection);
    pa_context* context = m_connection->context();

    ServerInfoRequest server;
    server.connection = m_connection.get();
    const bool haveDefault = m_connection->waitForOperation(
                                 pa_context_get_server_info(context, &onServerInfo, &server)) &&
                             server.received && !server.defaultSource.isEmpty();
    if (!haveDefault) {
        qCWarning(lcDevices).noquote()
            << u"[AudioDeviceManager] Could not get default input device"_s;
    }

    SourceListRequest sources;
    sources.connection = m_connection.get();
    const bool listed = m_connection->waitForOperation(
                            pa_context_get_source_info_list(context, &onSourceInfo, &sources)) &&
                        !sources.failed;
    if (!listed) {
        const bool lost = pa_context_get_state(context) != PA_CONTEXT_READY;
        return {{},
                lost ? AudioDeviceError::CannotGetDevices
                     : AudioDeviceError::CannotGetDeviceProperties,
                (lost ? u"Lost the sound server: %1"_s : u"Cannot read the input devices: %1"_s)
                    .arg(m_connection->lastErrorText())};
    }
    if (sources.devices.isEmpty()) {
        return {{}, AudioDeviceError::NoInputDevices, u"No audio input devices found"_s};
    }
    for (AudioDevice& device : sources.devices) {
        device.isDefault = haveDefault && device.id == server.defaultSource;
    }
    return {sources.devices, AudioDeviceError::None, {}};
}

bool AudioDeviceManager::subscribe()
{
    const PulseConnection::Lock lock(*m_connection);
    pa_context* context = m_connection->context();
    pa_context_set_subscribe_callback(context, &Callbacks::onServerEvent, this);
    const auto mask = static_cast<pa_subscription_mask_t>(PA_SUBSCRIPTION_MASK_SOURCE |
                                                          PA_SUBSCRIPTION_MASK_SERVER);
    return m_connection->waitForOperation(pa_context_subscribe(context, mask, nullptr, nullptr));
}

void AudioDeviceManager::publish(const Discovery& result)
{
    m_discoveryRunning = false;
    if (m_devices != result.devices) {
        m_devices = result.devices;
        qCInfo(lcDevices).noquote()
            << u"🎤 [AudioDeviceManager] %1 input device(s)"_s.arg(m_devices.size());
        Q_EMIT availableInputDevicesChanged();
        notifier()->publishInputDevices(m_devices);
    }
    // A failure that repeats (the server stays away while we retry) says
    // nothing new: logged once.
    if (result.error != m_lastErrorCode || result.errorText != m_lastError) {
        if (result.error != AudioDeviceError::None) {
            qCWarning(lcDevices).noquote()
                << u"❌ [AudioDeviceManager] Failed to discover devices: "_s + result.errorText;
        }
        m_lastErrorCode = result.error;
        m_lastError = result.errorText;
        Q_EMIT lastErrorChanged();
    }
    if (result.error == AudioDeviceError::CannotGetDevices) {
        m_retryTimer.start(m_retryMilliseconds);
        m_retryMilliseconds = std::min(m_retryMilliseconds * 2, longestRetryMilliseconds);
    } else {
        m_retryMilliseconds = firstRetryMilliseconds;
    }
    if (m_discoveryAgain) {
        m_discoveryAgain = false;
        discoverInputDevices();
    } else {
        setLoading(false);
    }
    Q_EMIT discoveryFinished();
}

void AudioDeviceManager::setLoading(bool loading)
{
    if (m_loading != loading) {
        m_loading = loading;
        Q_EMIT isLoadingChanged();
    }
}

void AudioDeviceManager::scheduleRediscovery()
{
    // Only a hop to the GUI thread here; the discovery itself runs there.
    if (m_closing || m_rediscoveryPosted.exchange(true)) {
        return;
    }
    QMetaObject::invokeMethod(
        this,
        [this] {
            m_rediscoveryPosted = false;
            m_settleTimer.start();
        },
        Qt::QueuedConnection);
}

void AudioDeviceManager::onServerLost()
{
    if (m_closing) {
        return;
    }
    QMetaObject::invokeMethod(
        this,
        [this] {
            qCInfo(lcDevices).noquote() << u"🔌 [AudioDeviceManager] Lost the sound server"_s;
            discoverInputDevices();
        },
        Qt::QueuedConnection);
}
