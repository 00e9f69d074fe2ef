#include "cli/BenchSupport.h"

#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QTimer>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace BenchSupport {

const QStringList& salesCallSentences()
{
    static const QStringList sentences = {
        u"Thanks for making the time today, I know the quarter end is busy."_s,
        u"Our forecast is a spreadsheet that each regional lead updates on Thursdays."_s,
        u"We missed last quarter's commit by about eighteen percent."_s,
        u"I'll send the field mapping guide by Friday."_s,
        u"Can you share the pricing for two hundred seats?"_s,
        u"The pilot should cover two regions for thirty days."_s,
    };
    return sentences;
}

bool waitUntil(const std::function<bool()>& done, int timeoutMs)
{
    QElapsedTimer clock;
    clock.start();
    while (!done()) {
        if (clock.elapsed() > timeoutMs)
            return false;
        QEventLoop loop;
        QTimer::singleShot(5, &loop, &QEventLoop::quit);
        loop.exec();
    }
    return true;
}

double percentile(const std::vector<double>& sorted, double share)
{
    if (sorted.empty())
        return 0.0;
    const auto rank = static_cast<size_t>(std::ceil(share * double(sorted.size())));
    return sorted[std::clamp<size_t>(rank, 1, sorted.size()) - 1];
}

qint64 residentKilobytes()
{
    QFile status(u"/proc/self/status"_s);
    if (!status.open(QIODevice::ReadOnly | QIODevice::Text))
        return 0;
    // Read whole: /proc files report no size, so atEnd() holds from the start.
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong();
    }
    return 0;
}

std::optional<int> positiveCount(const QCommandLineParser& parser)
{
    bool ok = false;
    const int count = parser.value(QStringLiteral("count")).toInt(&ok);
    if (!ok || count < 1)
        return std::nullopt;
    return count;
}

} // namespace BenchSupport
