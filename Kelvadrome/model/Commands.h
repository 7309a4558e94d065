#pragma once

#include "Kelvadrome/model/AppModel.h"

#include <functional>
#include <string>
#include <vector>

namespace kelvadrome {

/// An entry of the application's menu.
struct KelvadromeCommand {
    std::string id;    // of the action, such as "section-inbox"
    std::string title; // on the menu
    std::string key;   // GTK's form, such as "<Control>1"; empty for none
    std::function<void(AppModel&)> run;
    std::function<bool(const AppState&)> checked = {}; // of a toggle; empty for a plain entry
    bool endsGroup = false;                            // a divider stands below it
};

/// The menu, from top to bottom. Command is Control here, as everywhere on this platform.
std::vector<KelvadromeCommand> kelvadromeCommands();

} // namespace kelvadrome
