#include "cli/RecognitionBench.h"

#include "audio/AudioConverter.h"
#include "audio/AudioFileReader.h"
#include "cli/Cli.h"
#include "recognition/RecognitionQueue.h"
#include "recognition/WhisperContext.h"

#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <memory>
#include <numeric>

using namespace Qt::StringLiterals;

namespace {

const auto usage = u"bench recognition --model PATH --audio FILE [--threads N] [--runs N]"_s;

constexpr auto chunkSamples = qsizetype(3 * targetSampleRate);
constexpr int defaultRuns = 3;

struct Recording
{
    Samples samples; // 16 kHz mono
    int sourceRate = 0;
    int sourceChannels = 0;
};

// Through the call's own converter, so the model sees what it sees in a call.
// The error names the file.
std::optional<Recording> readRecording(const QString& path, QString& error)
{
    const std::unique_ptr<AudioFileReader> reader = AudioFileReader::open(path, &error);
    if (!reader) {
        return std::nullopt;
    }
    Recording recording;
    recording.sourceRate = reader->sampleRate();
    recording.sourceChannels = reader->channels();
    AudioConverter converter;
    constexpr qint64 blockFrames = 4096;
    while (const std::optional<AudioBuffer> block = reader->read(blockFrames)) {
        const std::optional<Samples> converted = converter.convert(*block);
        if (!converted) {
            error = u"%1 cannot be converted to 16 kHz mono"_s.arg(path);
            return std::nullopt;
        }
        recording.samples.insert(recording.samples.end(), converted->begin(), converted->end());
    }
    const Samples tail = converter.flush();
    recording.samples.insert(recording.samples.end(), tail.begin(), tail.end());
    if (qsizetype(recording.samples.size()) < RecognitionQueue::minimumChunkSamples) {
        error = u"%1 is shorter than one second"_s.arg(path);
        return std::nullopt;
    }
    return recording;
}

// `length` samples of the recording from `start` on, starting over at its end
// as often as needed.
Samples loopedSlice(const Samples& audio, qsizetype start, qsizetype length)
{
    Samples slice;
    slice.reserve(size_t(length));
    auto position = size_t(start) % audio.size();
    while (qsizetype(slice.size()) < length) {
        const size_t take = std::min(audio.size() - position, size_t(length) - slice.size());
        slice.insert(slice.end(), audio.begin() + qsizetype(position),
                     audio.begin() + qsizetype(position + take));
        position = 0;
    }
    return slice;
}

struct Series
{
    QString name;
    double audioSeconds = 0.0;
    // Model time per job, and the same with the hand-over to the model's thread.
    std::vector<double> processing;
    std::vector<double> roundTrip;

    double mean() const
    {
        return std::accumulate(processing.begin(), processing.end(), 0.0) /
               double(processing.size());
    }
    double minimum() const { return *std::min_element(processing.begin(), processing.end()); }
    double maximum() const { return *std::max_element(processing.begin(), processing.end()); }
    double meanRoundTrip() const
    {
        return std::accumulate(roundTrip.begin(), roundTrip.end(), 0.0) / double(roundTrip.size());
    }
    double realTimeFactor() const { return mean() / audioSeconds; }
};

// Jobs of `jobSamples` each, cut one after the other from the recording.
std::optional<Series> measure(WhisperContext& context, const Recording& recording,
                              const QString& name, qsizetype jobSamples, int runs)
{
    Series series;
    series.name = name;
    series.audioSeconds = double(jobSamples) / targetSampleRate;
    for (int run = 0; run < runs; ++run) {
        Samples job = loopedSlice(recording.samples, run * jobSamples, jobSamples);
        QElapsedTimer timer;
        timer.start();
        const WhisperTranscription result = context.transcribe(std::move(job)).result();
        if (result.error) {
            return std::nullopt;
        }
        series.roundTrip.push_back(double(timer.nsecsElapsed()) / 1e9);
        series.processing.push_back(result.processingSeconds);
    }
    return series;
}

// What the figures mean for a live call, whose chunks come every 3 seconds.
QString verdict(const Series& chunks, const Series& merged)
{
    if (chunks.mean() <= chunks.audioSeconds) {
        return u"keeps up with a call chunk by chunk"_s;
    }
    if (merged.mean() <= merged.audioSeconds) {
        return u"keeps up with a call by merging waiting chunks into jobs of up to 30 s"_s;
    }
    const double skipped = 100.0 * (1.0 - merged.audioSeconds / merged.mean());
    return u"falls behind even with 30-s jobs: about %1 % of a call's audio would be skipped"_s.arg(
        skipped, 0, 'f', 0);
}

QJsonObject seriesJson(const Series& series)
{
    return {
        {u"job"_s, series.name},
        {u"runs"_s, int(series.processing.size())},
        {u"audioSeconds"_s, series.audioSeconds},
        {u"meanSeconds"_s, series.mean()},
        {u"minSeconds"_s, series.minimum()},
        {u"maxSeconds"_s, series.maximum()},
        {u"meanRoundTripSeconds"_s, series.meanRoundTrip()},
        {u"realTimeFactor"_s, series.realTimeFactor()},
    };
}

QString seriesRow(const Series& series)
{
    return u"  %1 %2 %3 %4 %5 %6 %7\n"_s.arg(series.name, -16)
        .arg(int(series.processing.size()), 5)
        .arg(series.audioSeconds, 8, 'f', 2)
        .arg(series.mean(), 8, 'f', 3)
        .arg(series.minimum(), 8, 'f', 3)
        .arg(series.maximum(), 8, 'f', 3)
        .arg(series.realTimeFactor(), 17, 'f', 3);
}

} // namespace

int runRecognitionBench(CliContext& context, const QStringList& options)
{
    QCommandLineParser parser;
    parser.addOptions({
        {u"model"_s, u"Model file."_s, u"PATH"_s},
        {u"audio"_s, u"Recording to cut the jobs from."_s, u"FILE"_s},
        {u"threads"_s, u"Threads of the model."_s, u"N"_s},
        {u"runs"_s, u"Measured jobs of each kind."_s, u"N"_s},
        {u"json"_s, u"Machine-readable output."_s},
    });
    if (const auto wrong =
            context.parseOptionsOnly(parser, u"quillmoss bench recognition"_s, options, usage))
        return *wrong;
    const QString modelPath = parser.value(u"model"_s);
    const QString audioPath = parser.value(u"audio"_s);
    if (modelPath.isEmpty() || audioPath.isEmpty()) {
        return context.usageError(u"--model and --audio are required"_s, usage);
    }
    bool valid = true;
    const int threads = parser.isSet(u"threads"_s) ? parser.value(u"threads"_s).toInt(&valid)
                                                   : WhisperContext::defaultThreadCount();
    if (!valid || threads < 1) {
        return context.usageError(u"--threads needs a whole number of at least 1"_s, usage);
    }
    const int runs = parser.isSet(u"runs"_s) ? parser.value(u"runs"_s).toInt(&valid) : defaultRuns;
    if (!valid || runs < 1) {
        return context.usageError(u"--runs needs a whole number of at least 1"_s, usage);
    }
    const bool json = context.json || parser.isSet(u"json"_s);

    QString error;
    const std::optional<Recording> recording = readRecording(audioPath, error);
    if (!recording) {
        return context.fail(error);
    }
    const std::unique_ptr<WhisperContext> whisper = WhisperContext::create(modelPath);
    if (!whisper) {
        return context.fail(u"cannot load the model %1"_s.arg(modelPath));
    }
    whisper->setThreadCount(threads);

    // The first run sets up the model's compute buffers; a call pays that once.
    if (whisper->transcribe(loopedSlice(recording->samples, 0, chunkSamples)).result().error) {
        return context.fail(u"the model failed to run"_s);
    }
    const std::optional<Series> chunks =
        measure(*whisper, *recording, u"3-s chunk"_s, chunkSamples, runs);
    const std::optional<Series> merged = measure(*whisper, *recording, u"merged 30-s job"_s,
                                                 RecognitionQueue::maximumJobSamples, runs);
    if (!chunks || !merged) {
        return context.fail(u"the model failed to run"_s);
    }

    const double recordingSeconds = double(recording->samples.size()) / targetSampleRate;
    if (json) {
        const QJsonObject report{
            {u"model"_s, modelPath},
            {u"computeBackend"_s, whisper->computeBackend()},
            {u"systemInfo"_s, WhisperContext::systemInfo()},
            {u"threads"_s, threads},
            {u"audio"_s, QJsonObject{{u"file"_s, audioPath},
                                     {u"seconds"_s, recordingSeconds},
                                     {u"sampleRate"_s, recording->sourceRate},
                                     {u"channels"_s, recording->sourceChannels}}},
            {u"jobs"_s, QJsonArray{seriesJson(*chunks), seriesJson(*merged)}},
            {u"verdict"_s, verdict(*chunks, *merged)},
        };
        context.out << QJsonDocument(report).toJson(QJsonDocument::Indented) << Qt::flush;
        return ExitDone;
    }
    context.out
        << u"Speech recognition, %1 runs of each job after one warm-up run\n"_s.arg(runs)
        << u"  model            %1\n"_s.arg(modelPath)
        << u"  compute backend  %1\n"_s.arg(whisper->computeBackend())
        << u"  system info      %1\n"_s.arg(WhisperContext::systemInfo())
        << u"  threads          %1\n"_s.arg(threads)
        << u"  audio            %1: %2 s, %3 Hz, %4 channel(s)\n\n"_s
               .arg(QFileInfo(audioPath).fileName())
               .arg(recordingSeconds, 0, 'f', 1)
               .arg(recording->sourceRate)
               .arg(recording->sourceChannels)
        << u"  job               runs  audio s   mean s    min s    max s  real-time factor\n"_s
        << seriesRow(*chunks) << seriesRow(*merged)
        << u"\nReal-time factor: processing time over audio time. This machine %1.\n"_s.arg(
               verdict(*chunks, *merged))
        << Qt::flush;
    return ExitDone;
}
