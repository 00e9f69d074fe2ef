// The profile answer of the backend: decoding never fails hard, and whatever
// decodes survives a round trip unchanged.
#include "account/UserModel.h"

#include <QJsonDocument>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray body(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const auto user = UserModel::fromJson(body);
    if (user) {
        const auto again = UserModel::fromJson(QJsonDocument(user->toJson()).toJson());
        if (!again || *again != *user)
            std::abort();
    }
    return 0;
}
