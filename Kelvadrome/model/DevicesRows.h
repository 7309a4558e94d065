#pragma once

#include "Kelvadrome/model/SettingsRows.h"

namespace kelvadrome {

/// What the settings tell of phones: the relay, the attempt to pair one, and those that are paired.
std::vector<SettingsGroup> devicesPane(const DevicesState& state);

} // namespace kelvadrome
