// The event socket's frames as the server sends them: decoding never fails
// hard, every refusal says why, and whatever decodes encodes to text that
// decodes to the same packet.
#include "protocol/SocketIoPacket.h"

#include <cstdint>
#include <cstdlib>

namespace {

template <typename Packet> void roundTrip(const SocketIoDecoded<Packet>& decoded)
{
    if (!decoded.ok()) {
        if (decoded.error.isEmpty())
            std::abort();
        return;
    }
    const auto again = Packet::decode(decoded.value->encode());
    if (!again.ok() || !(*again.value == *decoded.value))
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString frame =
        QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const auto engine = EngineIoPacket::decode(frame);
    roundTrip(engine);
    if (!engine.ok())
        return 0;
    // Whatever the frame's type, its data goes through both inner decoders: the
    // fuzzer reaches them without having to guess the right type digit first.
    roundTrip(EngineIoHandshake::decode(engine.value->data));
    roundTrip(SocketIoPacket::decode(engine.value->data));
    return 0;
}
