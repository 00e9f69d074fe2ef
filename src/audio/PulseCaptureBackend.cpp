#include "audio/PulseCaptureBackend.h"

#include "audio/PulseConnection.h"
#include "core/Logging.h"

#include <pulse/context.h>
#include <pulse/error.h>
#include <pulse/introspect.h>
#include <pulse/stream.h>
#include <pulse/subscribe.h>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

// Short blocks keep the level meter and the chunking close to real time; the
// server rounds this to what the source can do.
constexpr pa_usec_t blockMicroseconds = 20000;

QString sourceKind(CaptureOutputType type)
{
    return type == CaptureOutputType::Audio ? u"System audio"_s : u"Microphone"_s;
}

struct ServerInfoRequest
{
    const PulseConnection* connection = nullptr;
    bool received = false;
    QString defaultSink;
    QString defaultSource;
};

void onServerInfo(pa_context* /*context*/, const pa_server_info* info, void* userdata)
{
    auto* request = static_cast<ServerInfoRequest*>(userdata);
    if (info != nullptr) {
        request->received = true;
        request->defaultSink = QString::fromUtf8(info->default_sink_name);
        request->defaultSource = QString::fromUtf8(info->default_source_name);
    }
    request->connection->signal();
}

} // namespace

struct PulseCaptureBackend::SourceFormat
{
    QString source; // the source to record
    QString device; // what it belongs to, for the logs (a sink for a monitor)
    pa_sample_spec sampleFormat{};
    pa_channel_map channelMap{};
};

struct PulseCaptureBackend::RecordStream
{
    PulseCaptureBackend* owner = nullptr;
    CaptureOutputType type = CaptureOutputType::Audio;
    SourceFormat format;
    pa_stream* stream = nullptr;
};

struct PulseCaptureBackend::Callbacks
{
    static void onRead(pa_stream* /*stream*/, size_t /*bytes*/, void* userdata)
    {
        const auto* record = static_cast<RecordStream*>(userdata);
        record->owner->deliver(*record);
    }

    static void onStreamState(pa_stream* stream, void* userdata)
    {
        auto* record = static_cast<RecordStream*>(userdata);
        record->owner->m_connection->signal();
        const pa_stream_state_t state = pa_stream_get_state(stream);
        if (state == PA_STREAM_FAILED || state == PA_STREAM_TERMINATED) {
            record->owner->onStreamEnded(record);
        }
    }

    static void onServerEvent(pa_context* /*context*/, pa_subscription_event_type_t event,
                              uint32_t /*index*/, void* userdata)
    {
        if ((event & PA_SUBSCRIPTION_EVENT_FACILITY_MASK) == PA_SUBSCRIPTION_EVENT_SERVER) {
            static_cast<PulseCaptureBackend*>(userdata)->followDefaultOutput();
        }
    }

    // Step two of following the default output: the new sink's monitor.
    static void onDefaultSink(pa_context* /*context*/, const pa_sink_info* info, int eol,
                              void* userdata)
    {
        auto* self = static_cast<PulseCaptureBackend*>(userdata);
        if (eol != 0 || info == nullptr || !self->m_delivering) {
            return;
        }
        const QString sink = QString::fromUtf8(info->name);
        if (self->m_system && self->m_system->format.device == sink) {
            return;
        }
        SourceFormat format{QString::fromUtf8(info->monitor_source_name), sink, info->sample_spec,
                            info->channel_map};
        QString error;
        std::unique_ptr<RecordStream> stream =
            self->openStream(CaptureOutputType::Audio, format, false, &error);
        self->closeStream(self->m_system);
        if (!stream) {
            qCWarning(lcCapture).noquote()
                << u"❌ [PulseCapture] Cannot record the new default output %1: %2"_s.arg(sink,
                                                                                         error);
            return;
        }
        self->m_system = std::move(stream);
        qCInfo(lcCapture).noquote()
            << u"🔈 [PulseCapture] System audio now follows the default output %1"_s.arg(sink);
    }

    static void onDefaultServerInfo(pa_context* context, const pa_server_info* info, void* userdata)
    {
        auto* self = static_cast<PulseCaptureBackend*>(userdata);
        if (info == nullptr || !self->m_delivering || info->default_sink_name == nullptr) {
            return;
        }
        if (self->m_system &&
            self->m_system->format.device == QString::fromUtf8(info->default_sink_name)) {
            return;
        }
        pa_operation* operation = pa_context_get_sink_info_by_name(context, info->default_sink_name,
                                                                   &onDefaultSink, self);
        if (operation != nullptr) {
            pa_operation_unref(operation);
        }
    }
};

namespace {

struct SinkRequest
{
    const PulseConnection* connection = nullptr;
    bool found = false;
    QString monitor;
    pa_sample_spec sampleFormat{};
    pa_channel_map channelMap{};
};

void onSinkInfo(pa_context* /*context*/, const pa_sink_info* info, int eol, void* userdata)
{
    auto* request = static_cast<SinkRequest*>(userdata);
    if (eol == 0 && info != nullptr) {
        request->found = true;
        request->monitor = QString::fromUtf8(info->monitor_source_name);
        request->sampleFormat = info->sample_spec;
        request->channelMap = info->channel_map;
    }
    request->connection->signal();
}

struct SourceRequest
{
    const PulseConnection* connection = nullptr;
    bool found = false;
    pa_sample_spec sampleFormat{};
    pa_channel_map channelMap{};
};

void onSourceInfo(pa_context* /*context*/, const pa_source_info* info, int eol, void* userdata)
{
    auto* request = static_cast<SourceRequest*>(userdata);
    if (eol == 0 && info != nullptr) {
        request->found = true;
        request->sampleFormat = info->sample_spec;
        request->channelMap = info->channel_map;
    }
    request->connection->signal();
}

void onProbeState(pa_stream* /*stream*/, void* userdata)
{
    static_cast<const PulseConnection*>(userdata)->signal();
}

// The server's defaults, under the lock.
std::optional<ServerInfoRequest> readServerInfo(PulseConnection& connection, QString* error)
{
    ServerInfoRequest request;
    request.connection = &connection;
    const bool done = connection.waitForOperation(
        pa_context_get_server_info(connection.context(), &onServerInfo, &request));
    if (!done || !request.received) {
        *error = u"Cannot read the sound server's defaults: %1"_s.arg(connection.lastErrorText());
        return std::nullopt;
    }
    return request;
}

// The sink (its monitor and format), under the lock.
std::optional<SinkRequest> readSink(PulseConnection& connection, const QString& name,
                                    QString* error)
{
    SinkRequest request;
    request.connection = &connection;
    const bool done = connection.waitForOperation(pa_context_get_sink_info_by_name(
        connection.context(), name.toUtf8().constData(), &onSinkInfo, &request));
    if (!done || !request.found) {
        *error =
            u"Cannot record the system audio of %1: %2"_s.arg(name, connection.lastErrorText());
        return std::nullopt;
    }
    return request;
}

} // namespace

PulseCaptureBackend::PulseCaptureBackend()
    : m_connection(std::make_unique<PulseConnection>(u"Quillmoss"_s))
{
    m_connection->setDisconnectedHandler([this] { onServerLost(); });
}

PulseCaptureBackend::~PulseCaptureBackend()
{
    stop();
    m_connection.reset();
}

std::optional<QString> PulseCaptureBackend::start(std::shared_ptr<CaptureStreamOutput> output,
                                                  const QString& microphoneSource)
{
    const std::lock_guard guard(m_mutex);
    {
        const PulseConnection::Lock lock(*m_connection);
        stopLocked();
    }
    if (!output) {
        return u"No receiver for the captured audio"_s;
    }
    if (std::optional<QString> error = m_connection->connect()) {
        return error;
    }
    const PulseConnection::Lock lock(*m_connection);
    pa_context* context = m_connection->context();
    QString error;
    const std::optional<ServerInfoRequest> server = readServerInfo(*m_connection, &error);
    if (!server) {
        return error;
    }
    if (server->defaultSink.isEmpty()) {
        return u"The sound server has no output whose audio could be recorded"_s;
    }
    const std::optional<SinkRequest> sink = readSink(*m_connection, server->defaultSink, &error);
    if (!sink) {
        return error;
    }
    const bool followDefaultInput = microphoneSource.isEmpty();
    const QString microphone = followDefaultInput ? server->defaultSource : microphoneSource;
    if (microphone.isEmpty()) {
        return u"The sound server has no microphone input"_s;
    }
    SourceRequest source;
    source.connection = m_connection.get();
    if (!m_connection->waitForOperation(pa_context_get_source_info_by_name(
            context, microphone.toUtf8().constData(), &onSourceInfo, &source)) ||
        !source.found) {
        return u"Cannot record the microphone %1: %2"_s.arg(microphone,
                                                            m_connection->lastErrorText());
    }

    m_output = std::move(output);
    m_system = openStream(
        CaptureOutputType::Audio,
        {sink->monitor, server->defaultSink, sink->sampleFormat, sink->channelMap}, false, &error);
    if (m_system) {
        m_microphone = openStream(CaptureOutputType::Microphone,
                                  {microphone, microphone, source.sampleFormat, source.channelMap},
                                  followDefaultInput, &error);
    }
    const auto settled = [](const std::unique_ptr<RecordStream>& record) {
        return !record || pa_stream_get_state(record->stream) != PA_STREAM_CREATING;
    };
    const auto ready = [](const std::unique_ptr<RecordStream>& record) {
        return record && pa_stream_get_state(record->stream) == PA_STREAM_READY;
    };
    m_connection->waitUntil([&] { return settled(m_system) && settled(m_microphone); });
    if (!ready(m_system) || !ready(m_microphone)) {
        if (error.isEmpty()) {
            const bool systemFailed = !ready(m_system);
            error = u"Cannot record the %1 %2: %3"_s.arg(
                systemFailed ? u"system audio of"_s : u"microphone"_s,
                systemFailed ? server->defaultSink : microphone, m_connection->lastErrorText());
        }
        stopLocked();
        return error;
    }

    // Follow the default output for the rest of the call (a headset plugged in).
    pa_context_set_subscribe_callback(context, &Callbacks::onServerEvent, this);
    if (pa_operation* operation =
            pa_context_subscribe(context, PA_SUBSCRIPTION_MASK_SERVER, nullptr, nullptr)) {
        pa_operation_unref(operation);
    }
    m_delivering = true;
    m_running = true;
    const pa_sample_spec* systemFormat = pa_stream_get_sample_spec(m_system->stream);
    const pa_sample_spec* microphoneFormat = pa_stream_get_sample_spec(m_microphone->stream);
    qCInfo(lcCapture).noquote()
        << u"🎙️ [PulseCapture] Recording %1 (%2 Hz, %3 ch) and %4 (%5 Hz, %6 ch)"_s.arg(
               m_system->format.source, QString::number(systemFormat->rate),
               QString::number(systemFormat->channels), m_microphone->format.source,
               QString::number(microphoneFormat->rate),
               QString::number(microphoneFormat->channels));
    return std::nullopt;
}

void PulseCaptureBackend::stop()
{
    const std::lock_guard guard(m_mutex);
    const PulseConnection::Lock lock(*m_connection);
    stopLocked();
}

bool PulseCaptureBackend::isRunning() const
{
    return m_running;
}

PermissionResult PulseCaptureBackend::checkSystemAudioAccess()
{
    const std::lock_guard guard(m_mutex);
    if (std::optional<QString> error = m_connection->connect()) {
        return {false, *error};
    }
    const PulseConnection::Lock lock(*m_connection);
    QString error;
    const std::optional<ServerInfoRequest> server = readServerInfo(*m_connection, &error);
    if (!server) {
        return {false, error};
    }
    if (server->defaultSink.isEmpty()) {
        return {false, u"The sound server has no output whose audio could be recorded"_s};
    }
    const std::optional<SinkRequest> sink = readSink(*m_connection, server->defaultSink, &error);
    if (!sink) {
        return {false, error};
    }
    if (std::optional<QString> failure = probe(sink->monitor)) {
        return {false,
                u"Cannot record the system audio of %1: %2"_s.arg(server->defaultSink, *failure)};
    }
    return {true, {}};
}

MicrophoneAuthorization PulseCaptureBackend::microphoneAuthorization(const QString& source)
{
    const std::lock_guard guard(m_mutex);
    std::optional<QString> error = m_connection->connect();
    if (!error) {
        const PulseConnection::Lock lock(*m_connection);
        error = probe(source);
    }
    if (error) {
        qCInfo(lcCapture).noquote()
            << u"🎤 [PulseCapture] The microphone %1 cannot be opened: %2"_s.arg(
                   source.isEmpty() ? u"(default input)"_s : source, *error);
        return MicrophoneAuthorization::Denied;
    }
    return MicrophoneAuthorization::Authorized;
}

bool PulseCaptureBackend::requestMicrophoneAccess(const QString& source)
{
    return microphoneAuthorization(source) == MicrophoneAuthorization::Authorized;
}

QString PulseCaptureBackend::systemAudioSource() const
{
    const PulseConnection::Lock lock(*m_connection);
    return m_delivering ? deviceOf(m_system.get()) : QString();
}

QString PulseCaptureBackend::microphoneSource() const
{
    const PulseConnection::Lock lock(*m_connection);
    return m_delivering ? deviceOf(m_microphone.get()) : QString();
}

QString PulseCaptureBackend::deviceOf(const RecordStream* record)
{
    if (record == nullptr) {
        return {};
    }
    // Where the server has it now: a stream that follows the default input moves.
    const char* device = pa_stream_get_device_name(record->stream);
    return device != nullptr ? QString::fromUtf8(device) : record->format.source;
}

std::unique_ptr<PulseCaptureBackend::RecordStream>
PulseCaptureBackend::openStream(CaptureOutputType type, const SourceFormat& format,
                                bool followDefault, QString* error)
{
    // Float32 at the source's own rate and channels: the server only changes the
    // sample format, and our converter does the resampling at its quality.
    const pa_sample_spec recorded{PA_SAMPLE_FLOAT32NE, format.sampleFormat.rate,
                                  format.sampleFormat.channels};
    const pa_channel_map* channelMap = pa_channel_map_valid(&format.channelMap) != 0 &&
                                               format.channelMap.channels == recorded.channels
                                           ? &format.channelMap
                                           : nullptr;
    auto record = std::make_unique<RecordStream>();
    record->owner = this;
    record->type = type;
    record->format = format;
    record->stream = pa_stream_new(m_connection->context(), sourceKind(type).toUtf8().constData(),
                                   &recorded, channelMap);
    if (record->stream == nullptr) {
        *error = u"Cannot record the %1: %2"_s.arg(sourceKind(type).toLower(),
                                                   m_connection->lastErrorText());
        return nullptr;
    }
    pa_stream_set_state_callback(record->stream, &Callbacks::onStreamState, record.get());
    pa_stream_set_read_callback(record->stream, &Callbacks::onRead, record.get());

    pa_buffer_attr attributes{};
    attributes.maxlength = static_cast<uint32_t>(-1);
    attributes.tlength = static_cast<uint32_t>(-1);
    attributes.prebuf = static_cast<uint32_t>(-1);
    attributes.minreq = static_cast<uint32_t>(-1);
    attributes.fragsize = static_cast<uint32_t>(pa_usec_to_bytes(blockMicroseconds, &recorded));
    // A monitor must not be moved: when its output goes away the server would
    // move us to the default *input*, and the microphone would be heard twice.
    // The microphone without an explicit choice is left to follow the default input.
    auto flags = static_cast<pa_stream_flags_t>(
        PA_STREAM_ADJUST_LATENCY |
        (type == CaptureOutputType::Audio ? PA_STREAM_DONT_MOVE : PA_STREAM_NOFLAGS));
    const QByteArray device = format.source.toUtf8();
    if (pa_stream_connect_record(record->stream, followDefault ? nullptr : device.constData(),
                                 &attributes, flags) < 0) {
        *error = u"Cannot record the %1 %2: %3"_s.arg(sourceKind(type).toLower(), format.source,
                                                      m_connection->lastErrorText());
        closeStream(record);
        return nullptr;
    }
    return record;
}

void PulseCaptureBackend::closeStream(std::unique_ptr<RecordStream>& record)
{
    if (!record) {
        return;
    }
    if (record->stream != nullptr) {
        pa_stream_set_read_callback(record->stream, nullptr, nullptr);
        pa_stream_set_state_callback(record->stream, nullptr, nullptr);
        if (PA_STREAM_IS_GOOD(pa_stream_get_state(record->stream))) {
            pa_stream_disconnect(record->stream);
        }
        pa_stream_unref(record->stream);
    }
    record.reset();
}

void PulseCaptureBackend::stopLocked()
{
    const bool wasRunning = m_delivering;
    m_delivering = false;
    m_running = false;
    if (pa_context* context = m_connection->context();
        context != nullptr && pa_context_get_state(context) == PA_CONTEXT_READY) {
        pa_context_set_subscribe_callback(context, nullptr, nullptr);
        if (pa_operation* operation =
                pa_context_subscribe(context, PA_SUBSCRIPTION_MASK_NULL, nullptr, nullptr)) {
            pa_operation_unref(operation);
        }
    }
    closeStream(m_system);
    closeStream(m_microphone);
    m_output.reset();
    if (wasRunning) {
        qCInfo(lcCapture).noquote() << u"⏹️ [PulseCapture] Recording stopped"_s;
    }
}

void PulseCaptureBackend::stopDelivering()
{
    m_delivering = false;
    m_running = false;
    for (const std::unique_ptr<RecordStream>* record : {&m_system, &m_microphone}) {
        if (*record && (*record)->stream != nullptr) {
            pa_stream_set_read_callback((*record)->stream, nullptr, nullptr);
        }
    }
}

void PulseCaptureBackend::followDefaultOutput()
{
    if (!m_delivering) {
        return;
    }
    pa_operation* operation =
        pa_context_get_server_info(m_connection->context(), &Callbacks::onDefaultServerInfo, this);
    if (operation != nullptr) {
        pa_operation_unref(operation);
    }
}

std::optional<QString> PulseCaptureBackend::probe(const QString& source)
{
    // Whatever rate and channels the source has; corked, so no audio is moved.
    const pa_sample_spec sampleFormat{PA_SAMPLE_FLOAT32NE, 48000, 1};
    pa_stream* stream =
        pa_stream_new(m_connection->context(), "Access check", &sampleFormat, nullptr);
    if (stream == nullptr) {
        return m_connection->lastErrorText();
    }
    pa_stream_set_state_callback(stream, &onProbeState, m_connection.get());
    const QByteArray device = source.toUtf8();
    const auto flags = static_cast<pa_stream_flags_t>(PA_STREAM_START_CORKED | PA_STREAM_DONT_MOVE |
                                                      PA_STREAM_FIX_RATE | PA_STREAM_FIX_CHANNELS);
    std::optional<QString> error;
    if (pa_stream_connect_record(stream, source.isEmpty() ? nullptr : device.constData(), nullptr,
                                 flags) < 0) {
        error = m_connection->lastErrorText();
    } else {
        const bool settled = m_connection->waitUntil(
            [stream] { return pa_stream_get_state(stream) != PA_STREAM_CREATING; });
        if (!settled || pa_stream_get_state(stream) != PA_STREAM_READY) {
            error = m_connection->lastErrorText();
        }
    }
    pa_stream_set_state_callback(stream, nullptr, nullptr);
    if (PA_STREAM_IS_GOOD(pa_stream_get_state(stream))) {
        pa_stream_disconnect(stream);
    }
    pa_stream_unref(stream);
    return error;
}

bool PulseCaptureBackend::isCurrent(const RecordStream* record) const
{
    return record != nullptr && (record == m_system.get() || record == m_microphone.get());
}

void PulseCaptureBackend::deliver(const RecordStream& record)
{
    pa_stream* stream = record.stream;
    const pa_sample_spec* sampleFormat = pa_stream_get_sample_spec(stream);
    while (pa_stream_readable_size(stream) > 0) {
        const void* data = nullptr;
        size_t bytes = 0;
        if (pa_stream_peek(stream, &data, &bytes) < 0) {
            qCWarning(lcCapture).noquote() << u"❌ [PulseCapture] Cannot read the %1: %2"_s.arg(
                sourceKind(record.type).toLower(), m_connection->lastErrorText());
            return;
        }
        if (bytes == 0) {
            return; // nothing buffered after all; nothing to drop
        }
        // No data with a length is a hole (frames the server lost): dropped, as
        // silence made up here would only shift the two sides against each other.
        if (data != nullptr && m_delivering && m_output) {
            AudioBuffer buffer;
            buffer.data = QByteArray(static_cast<const char*>(data), static_cast<qsizetype>(bytes));
            buffer.format = SampleFormat::Float32;
            buffer.sampleRate = sampleFormat->rate;
            buffer.channels = sampleFormat->channels;
            buffer.interleaved = true; // the server always delivers interleaved frames
            m_output->stream(buffer, record.type);
        }
        pa_stream_drop(stream);
    }
}

void PulseCaptureBackend::onStreamEnded(RecordStream* record)
{
    if (!m_delivering || !isCurrent(record)) {
        return; // still starting (start() reports it) or already given up
    }
    const int error = pa_context_errno(m_connection->context());
    const bool contextReady = pa_context_get_state(m_connection->context()) == PA_CONTEXT_READY;
    // The output we listened to went away (a headset unplugged): not the end of
    // the call; the monitor of the new default output takes over.
    if (record == m_system.get() && contextReady &&
        (error == PA_ERR_KILLED || error == PA_ERR_NOENTITY)) {
        qCInfo(lcCapture).noquote()
            << u"🔈 [PulseCapture] The output %1 went away"_s.arg(record->format.device);
        closeStream(m_system);
        followDefaultOutput();
        return;
    }
    qCWarning(lcCapture).noquote() << u"❌ [PulseCapture] %1 stream of %2 failed: %3"_s.arg(
        sourceKind(record->type), record->format.source, m_connection->lastErrorText());
    stopDelivering();
}

void PulseCaptureBackend::onServerLost()
{
    if (!m_delivering) {
        return;
    }
    qCWarning(lcCapture).noquote()
        << u"❌ [PulseCapture] Lost the sound server during the call: %1"_s.arg(
               m_connection->lastErrorText());
    stopDelivering();
}
