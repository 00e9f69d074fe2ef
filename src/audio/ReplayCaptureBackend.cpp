#include "audio/ReplayCaptureBackend.h"

namespace {

constexpr double silenceRate = 48000.0;
constexpr auto blockLength = std::chrono::milliseconds(20);

AudioBuffer silentBlock(double sampleRate, qsizetype frames)
{
    AudioBuffer block;
    block.format = SampleFormat::Float32;
    block.sampleRate = sampleRate;
    block.channels = 1;
    block.data = QByteArray(frames * static_cast<qsizetype>(sizeof(float)), '\0');
    return block;
}

} // namespace

std::unique_ptr<ReplayCaptureBackend> ReplayCaptureBackend::open(const QString& path,
                                                                 QString* error)
{
    std::unique_ptr<AudioFileReader> reader = AudioFileReader::open(path, error);
    if (!reader)
        return nullptr;
    return std::unique_ptr<ReplayCaptureBackend>(new ReplayCaptureBackend(std::move(reader)));
}

ReplayCaptureBackend::ReplayCaptureBackend() = default;

ReplayCaptureBackend::ReplayCaptureBackend(std::unique_ptr<AudioFileReader> reader)
    : m_reader(std::move(reader)),
      m_duration(static_cast<qint64>(static_cast<double>(m_reader->frameCount()) * 1000.0 /
                                     m_reader->sampleRate()))
{}

ReplayCaptureBackend::~ReplayCaptureBackend()
{
    stop();
}

std::optional<QString> ReplayCaptureBackend::start(std::shared_ptr<CaptureStreamOutput> output,
                                                   const QString& /*microphoneSource*/)
{
    const std::lock_guard lock(m_mutex);
    if (m_running)
        return QStringLiteral("the replay is already running");
    if (m_playedToEnd && m_reader)
        return QStringLiteral("the recording has been played already");
    m_stopping = false;
    m_running = true;
    m_thread = std::thread([this, output = std::move(output)] { play(output); });
    return std::nullopt;
}

void ReplayCaptureBackend::stop()
{
    const std::lock_guard lock(m_mutex);
    m_stopping = true;
    if (m_thread.joinable())
        m_thread.join();
    m_running = false;
}

void ReplayCaptureBackend::play(const std::shared_ptr<CaptureStreamOutput>& output)
{
    const double rate = m_reader ? m_reader->sampleRate() : silenceRate;
    const auto frames = static_cast<qint64>(rate * 0.02);
    auto due = std::chrono::steady_clock::now();
    while (!m_stopping) {
        std::optional<AudioBuffer> block;
        if (m_reader && !m_playedToEnd) {
            block = m_reader->read(frames);
            if (!block)
                m_playedToEnd = true;
        }
        const qsizetype length = block ? block->frameCount() : frames;
        output->stream(block ? *block : silentBlock(rate, length), CaptureOutputType::Audio);
        output->stream(silentBlock(rate, length), CaptureOutputType::Microphone);
        due += blockLength;
        std::this_thread::sleep_until(due);
    }
}
