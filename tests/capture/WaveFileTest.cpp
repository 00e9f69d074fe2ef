#include "capture/WaveFile.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <limits>
#include <sys/resource.h>

namespace {

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Caps the size of any file this process writes, as a full disk would.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        getrlimit(RLIMIT_FSIZE, &m_saved);
        // Past the limit write() fails with EFBIG instead of killing the process.
        m_previousHandler = std::signal(SIGXFSZ, SIG_IGN);
        rlimit limited = m_saved;
        limited.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limited);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &m_saved);
        std::signal(SIGXFSZ, m_previousHandler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit m_saved{};
    void (*m_previousHandler)(int) = nullptr;
};

} // namespace

class WaveFileTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void encodesPcm16()
    {
        const std::optional<QByteArray> file = WaveFile::encode(
            {0.0f, 1.0f, -1.0f, 0.5f, 2.0f, -2.0f, std::numeric_limits<float>::quiet_NaN(), 1e-5f});
        QVERIFY(file);
        const auto expected = QByteArray::fromHex("52494646" // "RIFF"
                                                  "34000000" // 36 + 16 data bytes
                                                  "57415645" // "WAVE"
                                                  "666d7420" // "fmt "
                                                  "10000000" // 16
                                                  "0100"     // PCM
                                                  "0100"     // mono
                                                  "803e0000" // 16000 Hz
                                                  "007d0000" // 32000 bytes/s
                                                  "0200"     // block align
                                                  "1000"     // 16 bits
                                                  "64617461" // "data"
                                                  "10000000" // 16 bytes
                                                  "0000"     // 0
                                                  "ff7f"     // 1.0 → 32767
                                                  "0180"     // -1.0 → -32767
                                                  "ff3f"     // 0.5 → 16383 (towards zero)
                                                  "ff7f"     // 2.0 clamped to 32767
                                                  "0080"     // -2.0 clamped to -32768
                                                  "0000"     // NaN → 0
                                                  "0000");   // below one step
        QCOMPARE(*file, expected);
    }

    void replacesAtomically()
    {
        QTemporaryDir directory;
        const QString path = directory.filePath(QLatin1String(WaveFile::whisperInputFileName));
        QVERIFY(WaveFile::writeWhisperInput(path, Samples(100, 0.25f)));
        const QByteArray before = readAll(path);
        QCOMPARE(before, *WaveFile::encode(Samples(100, 0.25f)));
        {
            // Room for a little more than the old file, not for three seconds of audio.
            const FileSizeLimit full(rlim_t(before.size()) + 16);
            QVERIFY(!WaveFile::writeWhisperInput(path, Samples(48000, -0.5f)));
        }
        QCOMPARE(readAll(path), before);
        QCOMPARE(QDir(directory.path()).entryList(QDir::Files | QDir::Hidden),
                 QStringList{QLatin1String(WaveFile::whisperInputFileName)});

        QVERIFY(WaveFile::writeWhisperInput(path, Samples(48000, -0.5f)));
        QCOMPARE(readAll(path).size(), 44 + 96000);
    }
};

QTEST_GUILESS_MAIN(WaveFileTest)
#include "WaveFileTest.moc"
