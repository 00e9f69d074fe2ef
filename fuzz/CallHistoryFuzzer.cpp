// The backend's call-history answer: decoding never fails hard, every failure
// says where, and whatever decodes survives the cache's round trip unchanged.
#include "account/CallRecords.h"

#include <QJsonDocument>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray body(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const auto decoded = CallRecords::decodeResponse(body);
    if (!decoded.ok()) {
        if (decoded.error.description.isEmpty())
            std::abort();
        return 0;
    }
    const auto cached = CallRecords::decodeCalls(CallRecords::encodeCalls(decoded.value->data));
    if (!cached.ok() || *cached.value != decoded.value->data)
        std::abort();
    return 0;
}
