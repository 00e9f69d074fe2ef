#include "CliRunner.h"

#include "TestPaths.h"

using namespace Qt::StringLiterals;

namespace CliRunner {

std::unique_ptr<QProcess> start(const QStringList& arguments,
                                const QProcessEnvironment& environment)
{
    auto process = std::make_unique<QProcess>();
    QProcessEnvironment childEnvironment = environment;
    // Under AddressSanitizer the command keeps its memory-error checks, but not
    // the leak check at exit: Qt's network objects are at times still alive
    // when a short command's process ends, which LeakSanitizer reports (and
    // aborts on) although nothing grows while the program runs.
    const QString sanitizer = childEnvironment.value(u"ASAN_OPTIONS"_s);
    if (!sanitizer.isEmpty())
        childEnvironment.insert(u"ASAN_OPTIONS"_s, sanitizer + u":detect_leaks=0"_s);
    process->setProcessEnvironment(childEnvironment);
    process->start(TestPaths::binaryDirectory() + u"/quillmoss"_s, arguments);
    return process;
}

Result run(const QStringList& arguments, const QByteArray& input,
           const QProcessEnvironment& environment)
{
    const std::unique_ptr<QProcess> process = start(arguments, environment);
    process->write(input);
    process->closeWriteChannel();
    if (!process->waitForFinished(30000) || process->exitStatus() != QProcess::NormalExit) {
        return {};
    }
    return {process->exitCode(), QString::fromUtf8(process->readAllStandardOutput()),
            QString::fromUtf8(process->readAllStandardError())};
}

bool waitForOutput(QProcess& process, QString& seen, const QString& text, int count)
{
    while (seen.count(text) < count) {
        if (!process.waitForReadyRead(15000)) {
            return false;
        }
        seen += QString::fromUtf8(process.readAllStandardOutput());
    }
    return true;
}

} // namespace CliRunner
