#include "cli/BenchSupport.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

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

} // namespace BenchSupport
