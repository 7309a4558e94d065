#include "KelvadromeKit/voice/VoiceScan.h"

#include <algorithm>

namespace kelvadrome {

VoiceScan::UrlControl VoiceScan::UrlControl::decode(const JSONValue& value) {
    const auto object = value.object();
    return {object.valueOr("start", false), object.valueOr("stop", false), object.valueOr("mode", false)};
}

VoiceScan::Hotkey VoiceScan::Hotkey::decode(const JSONValue& value) {
    const auto object = value.object();
    const auto text = [&](const char* key) { return object.valueOr(key, std::string()); };
    return {text("label"), text("kind"), text("source")};
}

VoiceScan::App VoiceScan::App::decode(const JSONValue& value) {
    const auto object = value.object();
    return {object.required<std::string>("id"), object.required<std::string>("name"),
        object.valueOr("installed", false), object.valueOr("running", false),
        object.optional<std::string>("version"), object.optional<std::string>("path"),
        object.optional<bool>("team_ok"), object.optional<UrlControl>("url_control"),
        object.optional<Hotkey>("hotkey"), object.valueOr("selected", false)};
}

VoiceScan::Builtin VoiceScan::Builtin::decode(const JSONValue& value) {
    return {value.object().optional<std::string>("local")};
}

VoiceScan VoiceScan::decode(const JSONValue& value) {
    const auto object = value.object();
    return {object.required<std::string>("selected"), object.valueOr("hint", std::string()),
        object.required<std::vector<App>>("apps"), object.optional<Builtin>("builtin")};
}

const VoiceScan::App* VoiceScan::app(std::string_view id) const {
    const auto found = std::ranges::find(apps, id, &App::id);
    return found == apps.end() ? nullptr : &*found;
}

} // namespace kelvadrome
