// The event-stream parser on arbitrary bytes: never crashes, keeps to its cap,
// and gives the same events whatever way the bytes are split into reads.
#include "protocol/SseEventParser.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    // The first byte chooses where the reads are cut; the rest is the stream.
    const auto step = static_cast<qsizetype>(data[0] % 16) + 1;
    const QByteArrayView stream(reinterpret_cast<const char*>(data) + 1,
                                static_cast<qsizetype>(size - 1));
    constexpr qsizetype cap = 4096;

    SseEventParser whole(cap);
    const QList<SseEvent> inOneRead = whole.feed(stream);

    SseEventParser pieces(cap);
    QList<SseEvent> inPieces;
    for (qsizetype at = 0; at < stream.size(); at += step) {
        inPieces += pieces.feed(stream.sliced(at, qMin(step, stream.size() - at)));
        if (pieces.bufferedSize() > cap)
            std::abort();
    }
    if (whole.failed() != pieces.failed() || whole.failed() != !whole.error().isEmpty())
        std::abort();
    // Once failed, the split may decide how much came out before; else all agrees.
    if (!whole.failed() && inOneRead != inPieces)
        std::abort();
    for (const SseEvent& event : inOneRead) {
        if (event.type.isEmpty() || event.data.size() > cap)
            std::abort();
    }
    return 0;
}
