#include "KelvadromeKit/voice/DictationURL.h"

#include "KelvadromeKit/page/PercentCoding.h"
#include "KelvadromeKit/support/Text.h"

#include <boost/url/parse.hpp>
#include <re2/re2.h>

#include <algorithm>

namespace kelvadrome {

const DictationURLApp& DictationURLApp::superwhisper() {
    static const DictationURLApp app{.id = "superwhisper",
        .name = "superwhisper",
        .bundleIds = {"com.superduper.superwhisper"},
        .appNames = {"superwhisper.app"},
        .teamId = "XDP69BYUP9",
        .declared = {"superwhisper", "superwhisper-debug"},
        .actions = {{"toggle", "superwhisper://record"}, {"start", "superwhisper://record/start"},
            {"stop", "superwhisper://record/stop"}, {"mode", "superwhisper://mode?key=<key>"},
            {"settings", "superwhisper://settings"}}};
    return app;
}

const DictationURLApp& DictationURLApp::spokenly() {
    static const DictationURLApp app{.id = "spokenly",
        .name = "Spokenly",
        .bundleIds = {"app.spokenly"},
        .appNames = {"Spokenly.app"},
        .teamId = std::nullopt,
        .declared = {"spokenly"},
        .actions = {{"toggle", "spokenly://toggle"}, {"start", "spokenly://start"},
            {"stop", "spokenly://stop"}, {"mode", "spokenly://switch?mode_id=<id>"},
            {"start_mode", "spokenly://start?mode_id=<id>"}, {"settings", "spokenly://tab/shortcuts"}}};
    return app;
}

const std::vector<DictationURLApp>& DictationURLApp::all() {
    static const std::vector<DictationURLApp> apps{superwhisper(), spokenly()};
    return apps;
}

std::optional<DictationURLApp> DictationURLApp::find(std::string_view id) {
    const auto found = std::ranges::find(all(), id, &DictationURLApp::id);
    return found == all().end() ? std::nullopt : std::optional(*found);
}

namespace DictationURL {

namespace {

constexpr std::array<std::string_view, 2> placeholders{"<key>", "<id>"};

std::optional<std::string_view> placeholderIn(std::string_view pattern) {
    for (const auto one : placeholders) {
        if (pattern.find(one) != std::string_view::npos)
            return one;
    }
    return std::nullopt;
}

} // namespace

bool validFill(std::string_view text) {
    static const RE2 pattern("[a-z0-9_-]{1,64}");
    return RE2::FullMatch(re2::StringPiece(text.data(), text.size()), pattern);
}

std::optional<std::string> render(
    const DictationURLApp& app, std::string_view action, const std::optional<std::string>& fill) {
    const auto found = app.actions.find(std::string(action));
    if (found == app.actions.end())
        return std::nullopt;
    auto text = found->second;
    if (const auto place = placeholderIn(text)) {
        if (!fill || !validFill(*fill))
            return std::nullopt;
        text = Text::replaceAll(text, *place, percentEncoded(*fill));
    } else if (fill) {
        return std::nullopt;
    }
    const auto url = boost::urls::parse_uri(text);
    if (!url || std::ranges::find(app.declared, std::string_view(url->scheme())) == app.declared.end())
        return std::nullopt;
    return text;
}

} // namespace DictationURL

} // namespace kelvadrome
