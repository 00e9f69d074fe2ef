// The user's choice of input device, remembered across launches under the
// setting "selectedAudioDevice" (the device's id): the one place that reads
// and writes that setting.
#pragma once

#include <QString>

#include <optional>

class SettingsStore;

namespace AudioDeviceChoice {

inline constexpr auto settingsKey = "selectedAudioDevice";

// The stored device id; none when nothing (or an empty id) is stored.
std::optional<QString> storedId(const SettingsStore& settings);
// Stores `id` as the choice; false when the settings could not be saved (the
// store's lastError says why).
bool store(SettingsStore& settings, const QString& id);

} // namespace AudioDeviceChoice
