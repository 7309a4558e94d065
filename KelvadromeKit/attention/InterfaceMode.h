#pragma once

#include "KelvadromeKit/support/Defaults.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace kelvadrome {

/// The two shapes of the main window.
enum class InterfaceMode { simple, expert };

/// Who asked for a switch.
enum class InterfaceModeSource { toolbar, menu, settings, page };

std::string_view rawValue(InterfaceMode mode); // "simple", "expert"; the id too
std::optional<InterfaceMode> interfaceModeFromRawValue(std::string_view text);
std::string_view title(InterfaceMode mode);
InterfaceMode toggled(InterfaceMode mode);
/// In expert mode the page brings its own sidebar and inspector.
bool hidesNativeChrome(InterfaceMode mode);
/// The page's URL query item: its name and value.
std::pair<std::string, std::string> queryItem(InterfaceMode mode);
/// Tells the page, if it can be told.
std::string setModeScript(InterfaceMode mode);

/// The key "interfaceMode" of the defaults; anything but "expert" reads as simple.
InterfaceMode loadInterfaceMode(const Defaults& defaults);
void saveInterfaceMode(InterfaceMode mode, Defaults& defaults);

/// What a switch has to do.
struct InterfaceModeEffects {
    InterfaceMode mode = InterfaceMode::simple;
    bool persist = false;
    bool hideSidebar = false;
    bool hideInspector = false;
    std::optional<std::string> pageScript;

    bool operator==(const InterfaceModeEffects&) const = default;
};

namespace InterfaceModeLogic {

/// A switch that came from the page doesn't echo back into it, and a repeated choice writes nothing.
InterfaceModeEffects apply(InterfaceMode current, InterfaceMode to, InterfaceModeSource source);

} // namespace InterfaceModeLogic

} // namespace kelvadrome
