#include "KelvadromeKit/attention/InterfaceMode.h"

#include <fmt/format.h>

namespace kelvadrome {

namespace {

constexpr std::string_view defaultsKey = "interfaceMode";

} // namespace

std::string_view rawValue(InterfaceMode mode) {
    return mode == InterfaceMode::expert ? "expert" : "simple";
}

std::optional<InterfaceMode> interfaceModeFromRawValue(std::string_view text) {
    if (text == "simple")
        return InterfaceMode::simple;
    if (text == "expert")
        return InterfaceMode::expert;
    return std::nullopt;
}

std::string_view title(InterfaceMode mode) {
    return mode == InterfaceMode::expert ? "Expert" : "Simple";
}

InterfaceMode toggled(InterfaceMode mode) {
    return mode == InterfaceMode::expert ? InterfaceMode::simple : InterfaceMode::expert;
}

bool hidesNativeChrome(InterfaceMode mode) {
    return mode == InterfaceMode::expert;
}

std::pair<std::string, std::string> queryItem(InterfaceMode mode) {
    return {"mode", std::string(rawValue(mode))};
}

std::string setModeScript(InterfaceMode mode) {
    // A raw value holds nothing that a script literal would have to escape.
    return fmt::format("window.kelvadrome && window.kelvadrome.setMode && window.kelvadrome.setMode(\"{}\")",
        rawValue(mode));
}

InterfaceMode loadInterfaceMode(const Defaults& defaults) {
    const auto stored = defaults.string(defaultsKey);
    return stored == "expert" ? InterfaceMode::expert : InterfaceMode::simple;
}

void saveInterfaceMode(InterfaceMode mode, Defaults& defaults) {
    defaults.set(defaultsKey, std::string(rawValue(mode)));
}

InterfaceModeEffects InterfaceModeLogic::apply(
    InterfaceMode current, InterfaceMode to, InterfaceModeSource source) {
    InterfaceModeEffects effects;
    effects.mode = to;
    effects.persist = current != to;
    effects.hideSidebar = hidesNativeChrome(to);
    effects.hideInspector = hidesNativeChrome(to);
    if (current != to && source != InterfaceModeSource::page)
        effects.pageScript = setModeScript(to);
    return effects;
}

} // namespace kelvadrome
