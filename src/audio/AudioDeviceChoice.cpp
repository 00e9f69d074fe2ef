#include "audio/AudioDeviceChoice.h"

#include "store/SettingsStore.h"

namespace AudioDeviceChoice {

std::optional<QString> storedId(const SettingsStore& settings)
{
    std::optional<QString> id = settings.stringValue(QString::fromLatin1(settingsKey));
    if (!id || id->isEmpty())
        return std::nullopt;
    return id;
}

bool store(SettingsStore& settings, const QString& id)
{
    return settings.setString(QString::fromLatin1(settingsKey), id);
}

} // namespace AudioDeviceChoice
