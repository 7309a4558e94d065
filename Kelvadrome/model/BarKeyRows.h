#pragma once

#include "Kelvadrome/model/SettingsRows.h"

namespace kelvadrome {

/// What the settings tell of the command bar's key.
SettingsGroup barKeyRows(const BarKeyState& key, const SettingsFacts::Place& place);

/// What opens the command bar from outside, as one line of a shell, for the desktop's own keyboard settings.
std::string barCommand(const SettingsFacts::Place& place);

} // namespace kelvadrome
