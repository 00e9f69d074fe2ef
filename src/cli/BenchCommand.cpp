// quillmoss bench: performance figures of the call pipeline and the chat,
// measured with Google Benchmark in this process or against the backend.
#include "audio/AudioConverter.h"
#include "audio/AudioLevelMeter.h"
#include "audio/CaptureBuffers.h"
#include "audio/ChunkMixer.h"
#include "cli/ChatBench.h"
#include "cli/Cli.h"
#include "cli/McpBench.h"
#include "cli/RecognitionBench.h"
#include "cli/SessionBench.h"
#include "core/Logging.h"

#include <QByteArray>

#include <benchmark/benchmark.h>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <numbers>
#include <string>
#include <unistd.h>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

const auto usage =
    u"bench capture [--benchmark_filter=REGEX] [--benchmark_* options]\n"
    u"bench recognition --model PATH --audio FILE [--threads N] [--runs N]\n"
    u"bench session [--count N]\n"
    u"bench chat [--count N]\n"
    u"bench chat-model [--benchmark_filter=REGEX] [--benchmark_* options]\n"
    u"bench mcp [--url URL | --mcp NAME] [--tool NAME] [--args JSON] [--count N]\n"_s;

// What PulseAudio delivers on a typical desktop, for both streams.
constexpr double captureRate = 48000.0;
constexpr int captureChannels = 2;

// Per-sample figures come from the thread's CPU time over the whole loop.
double threadCpuNanoseconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) * 1e9 + double(now.tv_nsec);
}

// One second of one stream in blocks of `blockFrames`: a few partials and
// some noise, different per channel and per stream (the content does not
// change the cost, but silence could take shortcuts).
std::vector<AudioBuffer> makeStream(double rate, int channels, qsizetype blockFrames,
                                    double baseFrequency)
{
    std::vector<AudioBuffer> blocks;
    quint32 noise = 12345;
    const auto frames = qsizetype(rate);
    for (qsizetype first = 0; first + blockFrames <= frames; first += blockFrames) {
        std::vector<float> samples(size_t(blockFrames * channels));
        for (qsizetype frame = 0; frame < blockFrames; ++frame) {
            const double t = double(first + frame) / rate;
            for (int channel = 0; channel < channels; ++channel) {
                noise = noise * 1664525u + 1013904223u;
                const double f = baseFrequency * (1.0 + 0.01 * channel);
                samples[size_t(frame * channels + channel)] =
                    float(0.2 * std::sin(2.0 * std::numbers::pi * f * t) +
                          0.05 * std::sin(2.0 * std::numbers::pi * 3.7 * f * t) +
                          0.01 * (double(noise >> 8) / double(1u << 24) - 0.5));
            }
        }
        AudioBuffer block;
        block.sampleRate = rate;
        block.channels = channels;
        block.data = QByteArray(reinterpret_cast<const char*>(samples.data()),
                                qsizetype(samples.size() * sizeof(float)));
        blocks.push_back(std::move(block));
    }
    return blocks;
}

// "ns/sample": CPU time per input sample (one channel of one frame).
// "core%": CPU time per second of input audio, as a share of one core.
void reportPerSample(benchmark::State& state, double cpuNanoseconds, double samplesPerIteration,
                     double audioSecondsPerIteration)
{
    const auto iterations = double(state.iterations());
    state.SetItemsProcessed(int64_t(iterations * samplesPerIteration));
    state.counters["ns/sample"] = cpuNanoseconds / (iterations * samplesPerIteration);
    state.counters["core%"] =
        100.0 * cpuNanoseconds / (iterations * audioSecondsPerIteration * 1e9);
}

// What a call does for every pair of capture blocks: both streams converted,
// the microphone level measured, both appended, and the chunk mixed and
// normalized when one is due. Time advances with the audio, as in a call.
void capturePath(benchmark::State& state, qsizetype blockFrames)
{
    const std::vector<AudioBuffer> microphoneBlocks =
        makeStream(captureRate, captureChannels, blockFrames, 180.0);
    const std::vector<AudioBuffer> systemBlocks =
        makeStream(captureRate, captureChannels, blockFrames, 440.0);
    const auto blockDuration = std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(double(blockFrames) / captureRate));
    auto now = std::chrono::steady_clock::time_point();
    const auto clock = [&now] { return now; };
    AudioConverter microphoneConverter;
    AudioConverter systemConverter;
    CaptureBuffers buffers(clock);
    AudioLevelMeter levelMeter(clock);
    const auto process = [](std::optional<ChunkSamples> chunk) {
        if (chunk) {
            Samples mixed = ChunkMixer::mix(chunk->microphone, chunk->system);
            benchmark::DoNotOptimize(ChunkMixer::normalize(mixed));
        }
    };

    size_t block = 0;
    const double cpuStart = threadCpuNanoseconds();
    while (state.KeepRunning()) {
        now += blockDuration;
        if (const std::optional<Samples> samples =
                microphoneConverter.convert(microphoneBlocks[block])) {
            benchmark::DoNotOptimize(levelMeter.update(ChunkMixer::rmsLevel(*samples)));
            process(buffers.append(*samples, false));
        }
        if (const std::optional<Samples> samples = systemConverter.convert(systemBlocks[block])) {
            process(buffers.append(*samples, true));
        }
        block = (block + 1) % microphoneBlocks.size();
    }
    reportPerSample(state, threadCpuNanoseconds() - cpuStart,
                    2.0 * double(blockFrames * captureChannels), double(blockFrames) / captureRate);
}

// The converter alone, one stream.
void converter(benchmark::State& state, double rate, int channels, qsizetype blockFrames)
{
    const std::vector<AudioBuffer> blocks = makeStream(rate, channels, blockFrames, 440.0);
    AudioConverter converter;
    size_t block = 0;
    const double cpuStart = threadCpuNanoseconds();
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(converter.convert(blocks[block]));
        block = (block + 1) % blocks.size();
    }
    reportPerSample(state, threadCpuNanoseconds() - cpuStart, double(blockFrames * channels),
                    double(blockFrames) / rate);
}

// Mix and normalization of one chunk of 3 seconds a side (off the capture
// threads in a call, but on the way to recognition).
void mixAndNormalize(benchmark::State& state)
{
    const auto samples = size_t(3 * targetSampleRate);
    Samples microphone(samples);
    Samples system(samples);
    for (size_t i = 0; i < samples; ++i) {
        microphone[i] = 0.3f * float(std::sin(double(i) * 0.07));
        system[i] = 0.2f * float(std::sin(double(i) * 0.11));
    }
    const double cpuStart = threadCpuNanoseconds();
    while (state.KeepRunning()) {
        Samples mixed = ChunkMixer::mix(microphone, system);
        benchmark::DoNotOptimize(ChunkMixer::normalize(mixed));
    }
    reportPerSample(state, threadCpuNanoseconds() - cpuStart, 2.0 * double(samples), 3.0);
}

// Appending to a buffer held at its cap (time stands still, so no chunk is
// ever taken): the cost of dropping the oldest audio block by block.
void appendAtCap(benchmark::State& state, size_t blockSamples)
{
    CaptureBuffers buffers([] { return std::chrono::steady_clock::time_point(); });
    buffers.append(Samples(CaptureBuffers::maxBufferSamples, 0.1f), false);
    const Samples block(blockSamples, 0.2f);
    const double cpuStart = threadCpuNanoseconds();
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(buffers.append(block, false));
    }
    reportPerSample(state, threadCpuNanoseconds() - cpuStart, double(blockSamples),
                    double(blockSamples) / targetSampleRate);
}

void registerCaptureBenchmarks()
{
    benchmark::RegisterBenchmark("capture/path/48k_stereo_x2/10ms", capturePath, 480);
    benchmark::RegisterBenchmark("capture/path/48k_stereo_x2/20ms", capturePath, 960);
    benchmark::RegisterBenchmark("capture/convert/48k_stereo/10ms", converter, 48000.0, 2, 480);
    benchmark::RegisterBenchmark("capture/convert/44.1k_mono/10ms", converter, 44100.0, 1, 441);
    benchmark::RegisterBenchmark("capture/mix_normalize/3s", mixAndNormalize);
    benchmark::RegisterBenchmark("capture/append_at_cap/10ms", appendAtCap, 160);
}

// The console table, then the two figures that matter in plain numbers (the
// table prints small counter values with SI prefixes).
class SummaryReporter : public benchmark::ConsoleReporter
{
public:
    // Colours only on a terminal, as the library's own console output does.
    SummaryReporter() : ConsoleReporter(isatty(fileno(stdout)) != 0 ? OO_ColorTabular : OO_Tabular)
    {}

    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            const auto perSample = run.counters.find("ns/sample");
            const auto share = run.counters.find("core%");
            // Spread aggregates (stddev, cv) of these figures read as nonsense here.
            const bool central = run.run_type != Run::RT_Aggregate ||
                                 run.aggregate_name == "mean" || run.aggregate_name == "median";
            if (!run.error_occurred && central && perSample != run.counters.end() &&
                share != run.counters.end()) {
                m_lines.push_back(
                    {run.benchmark_name(), perSample->second.value, share->second.value});
            }
        }
    }

    void Finalize() override
    {
        ConsoleReporter::Finalize();
        if (m_lines.empty())
            return; // cases measured by other figures than per sample
        std::ostream& out = GetOutputStream();
        out << "\nCPU per input sample, and share of one core for real-time input:\n";
        for (const Line& line : m_lines) {
            char text[256];
            std::snprintf(text, sizeof text, "  %-42s %9.2f ns/sample %9.4f %% of one core\n",
                          line.name.c_str(), line.nsPerSample, line.corePercent);
            out << text;
        }
    }

private:
    struct Line
    {
        std::string name;
        double nsPerSample = 0.0;
        double corePercent = 0.0;
    };
    std::vector<Line> m_lines;
};

// The buffers log their total at every whole second of audio; at benchmark
// speed that would be thousands of lines a second, and the benchmark would
// measure the log file. Info lines of the capture category are off meanwhile.
class QuietCaptureLog
{
public:
    QuietCaptureLog()
    {
        // installFilter() runs the new filter at once, so the one it replaces
        // must be known before: take it out first (the default stands in).
        s_previous = QLoggingCategory::installFilter(nullptr);
        QLoggingCategory::installFilter(&filter);
    }
    ~QuietCaptureLog() { QLoggingCategory::installFilter(s_previous); }
    QuietCaptureLog(const QuietCaptureLog&) = delete;
    QuietCaptureLog& operator=(const QuietCaptureLog&) = delete;

private:
    static void filter(QLoggingCategory* category)
    {
        s_previous(category);
        // By name: calling lcCapture() here, under the registry's lock, would
        // deadlock on its first use.
        if (qstrcmp(category->categoryName(), "com.quillmoss.capture") == 0) {
            category->setEnabled(QtInfoMsg, false);
        }
    }
    static inline QLoggingCategory::CategoryFilter s_previous = nullptr;
};

// Runs the cases `registerCases` adds, with Google Benchmark's own options.
int runGoogleBenchmarks(CliContext& context, const QString& target, const QStringList& options,
                        void (*registerCases)())
{
    std::vector<std::string> arguments{"quillmoss bench " + target.toStdString()};
    bool consoleFormat = true;
    for (const QString& option : options) {
        arguments.push_back(option.toStdString());
        if (option.startsWith(u"--benchmark_format="_s)) {
            consoleFormat = option == u"--benchmark_format=console"_s;
        }
    }
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    int argc = int(arguments.size());
    benchmark::Initialize(&argc, argv.data());
    if (argc > 1) {
        QStringList unknown;
        for (int i = 1; i < argc; ++i) {
            unknown.append(QString::fromStdString(argv[size_t(i)]));
        }
        return context.usageError(u"unknown option %1"_s.arg(unknown.join(u' ')), usage);
    }

    const QuietCaptureLog quiet;
    benchmark::ClearRegisteredBenchmarks();
    registerCases();
    context.out.flush();
    SummaryReporter summary;
    const size_t ran = consoleFormat ? benchmark::RunSpecifiedBenchmarks(&summary)
                                     : benchmark::RunSpecifiedBenchmarks();
    benchmark::ClearRegisteredBenchmarks();
    if (ran == 0) {
        return context.fail(u"no benchmark matches the filter"_s);
    }
    return ExitDone;
}

int run(CliContext& context, const QStringList& arguments)
{
    const QString target = arguments.value(0);
    if (target == u"capture"_s) {
        return runGoogleBenchmarks(context, target, arguments.mid(1), registerCaptureBenchmarks);
    }
    if (target == u"chat-model"_s) {
        return runGoogleBenchmarks(context, target, arguments.mid(1), registerChatModelBenchmarks);
    }
    if (target == u"recognition"_s) {
        return runRecognitionBench(context, arguments.mid(1));
    }
    if (target == u"session"_s) {
        return runSessionBench(context, arguments.mid(1));
    }
    if (target == u"chat"_s) {
        return runChatBench(context, arguments.mid(1));
    }
    if (target == u"mcp"_s) {
        return runMcpBench(context, arguments.mid(1));
    }
    return context.usageError(target.isEmpty() ? u"bench needs a target"_s
                                               : u"unknown bench target \"%1\""_s.arg(target),
                              usage);
}

} // namespace

Subcommand benchSubcommand()
{
    return {u"bench"_s,
            u"Measure the performance of the call pipeline, the chat and MCP tool calls."_s, usage,
            run};
}
