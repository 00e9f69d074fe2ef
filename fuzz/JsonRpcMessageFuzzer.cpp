// JSON-RPC messages from arbitrary bytes: decoding never fails hard, every
// refusal says why, and whatever decodes encodes to a message that decodes
// to the same thing.
#include "protocol/JsonRpcMessage.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArrayView bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const auto decoded = JsonRpcMessage::decode(bytes);
    if (decoded.ok() == !decoded.error.isEmpty())
        std::abort();
    if (!decoded.ok())
        return 0;
    const auto again = JsonRpcMessage::decode(decoded.value->encode());
    if (!again.ok() || !(*again.value == *decoded.value))
        std::abort();
    return 0;
}
