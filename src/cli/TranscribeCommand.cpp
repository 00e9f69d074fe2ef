// quillmoss transcribe: a recording through the same converter, chunk rules,
// recognizer and cleaner as a live call, on the recording's own time.
#include "audio/AudioConverter.h"
#include "audio/AudioFileReader.h"
#include "audio/CaptureBuffers.h"
#include "audio/ChunkMixer.h"
#include "cli/Cli.h"
#include "models/ModelDownloader.h"
#include "recognition/RecognitionQueue.h"
#include "recognition/TranscriptCleaner.h"
#include "recognition/WhisperContext.h"

#include <QCommandLineParser>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;
using namespace std::chrono;

namespace {

const auto usage = u"transcribe FILE [--model NAME|PATH]\n"_s;
const auto defaultModelName = u"small.en"_s;

class Transcription
{
public:
    Transcription(CliContext& context, WhisperContext& whisper)
        : m_context(context), m_whisper(whisper), m_buffers([this] { return m_now; })
    {}

    // One block of the recording; the clock moves on by the block's duration,
    // so chunks are cut exactly as a live call of this audio would cut them.
    void feed(const AudioBuffer& block)
    {
        m_now += duration_cast<steady_clock::duration>(
            duration<double>(double(block.frameCount()) / block.sampleRate));
        if (const std::optional<Samples> samples = m_converter.convert(block)) {
            if (auto chunk = m_buffers.append(*samples, false)) {
                recognize(std::move(chunk->microphone));
            }
        }
    }

    void finish()
    {
        const Samples tail = m_converter.flush();
        if (auto chunk = m_buffers.append(tail, false)) {
            recognize(std::move(chunk->microphone));
        }
        recognize(m_buffers.takeAll().microphone);
    }

    int accepted() const { return m_accepted; }

private:
    void recognize(Samples samples)
    {
        const double start = double(m_position) / targetSampleRate;
        m_position += qint64(samples.size());
        if (qsizetype(samples.size()) < RecognitionQueue::minimumChunkSamples) {
            return; // under a second: never recognized
        }
        ChunkMixer::normalize(samples);
        const double seconds = double(samples.size()) / targetSampleRate;
        const WhisperTranscription result = m_whisper.transcribe(std::move(samples)).result();
        if (result.error) {
            return; // the context logged it; the chunk is lost, as in a call
        }
        const std::optional<QString> text = TranscriptCleaner::clean(result.text);
        if (!text) {
            return;
        }
        ++m_accepted;
        if (m_context.json) {
            const QJsonObject line{{u"start"_s, start},
                                   {u"seconds"_s, seconds},
                                   {u"text"_s, *text},
                                   {u"processingSeconds"_s, result.processingSeconds}};
            m_context.out << QJsonDocument(line).toJson(QJsonDocument::Compact) << Qt::endl;
        } else {
            const int whole = int(start);
            m_context.out << u"[%1:%2] "_s.arg(whole / 60, 2, 10, QChar(u'0'))
                                 .arg(whole % 60, 2, 10, QChar(u'0'))
                          << *text << Qt::endl;
        }
    }

    CliContext& m_context;
    WhisperContext& m_whisper;
    steady_clock::time_point m_now{};
    AudioConverter m_converter;
    CaptureBuffers m_buffers;
    qint64 m_position = 0; // samples of the recording taken into chunks so far
    int m_accepted = 0;
};

int run(CliContext& context, const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.addOption({u"model"_s, u"Model name or file."_s, u"NAME|PATH"_s, defaultModelName});
    parser.addPositionalArgument(u"file"_s, u"The recording."_s);
    if (!parser.parse(QStringList{u"transcribe"_s} + arguments)) {
        return context.usageError(parser.errorText(), usage);
    }
    if (parser.positionalArguments().size() != 1) {
        return context.usageError(u"transcribe takes one recording"_s, usage);
    }
    QString error;
    const auto reader = AudioFileReader::open(parser.positionalArguments().first(), &error);
    if (!reader) {
        return context.fail(error);
    }
    const std::optional<QString> modelPath =
        ModelDownloader(context.modelBaseUrl).localModelFile(parser.value(u"model"_s), &error);
    if (!modelPath) {
        return context.fail(error);
    }
    const auto whisper = WhisperContext::create(*modelPath);
    if (!whisper) {
        return context.fail(u"the model at %1 cannot be loaded"_s.arg(*modelPath));
    }

    Transcription transcription(context, *whisper);
    // 20 ms blocks, as the sound server delivers them in a call.
    const qint64 blockFrames = std::max(1, reader->sampleRate() / 50);
    while (const std::optional<AudioBuffer> block = reader->read(blockFrames)) {
        transcription.feed(*block);
    }
    transcription.finish();
    return ExitDone;
}

} // namespace

Subcommand transcribeSubcommand()
{
    return {u"transcribe"_s, u"Transcribe a recording the way a call is transcribed."_s, usage,
            run};
}
