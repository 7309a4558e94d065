#include "Kelvadrome/platform/linux/audio/DictationApps.h"

#include "Kelvadrome/glib/GLibOwned.h"
#include "Kelvadrome/platform/linux/process/PosixCommand.h"
#include "KelvadromeKit/support/Files.h"
#include "KelvadromeKit/support/Log.h"
#include "KelvadromeKit/support/Text.h"
#include "KelvadromeKit/voice/DictationURL.h"

#include <fmt/format.h>
#include <gio/gdesktopappinfo.h>

namespace kelvadrome {

namespace {

/// Whether the program that would be started lies in the bundle, links followed. One that the bus starts
/// would be whoever has its name there.
bool liesIn(GAppInfo* handler, const std::string& bundle) {
    if (G_IS_DESKTOP_APP_INFO(handler) &&
        g_desktop_app_info_get_boolean(G_DESKTOP_APP_INFO(handler), "DBusActivatable"))
        return false;
    const char* const name = g_app_info_get_executable(handler);
    const OwnedText path(name ? g_find_program_in_path(name) : nullptr);
    return path && Files::canonical(path.get()).starts_with(Files::canonical(bundle) + "/");
}

bool openIn(const std::string& bundle, const std::string& url) {
    const OwnedText scheme(g_uri_parse_scheme(url.c_str()));
    if (!scheme || bundle.empty())
        return false;
    const auto type = std::string("x-scheme-handler/") + scheme.get();
    auto* const handlers = g_app_info_get_all_for_type(type.c_str());
    bool opened = false;
    for (auto* each = handlers; each && !opened; each = each->next) {
        auto* const handler = G_APP_INFO(each->data);
        if (!liesIn(handler, bundle))
            continue;
        GList urls{const_cast<char*>(url.c_str()), nullptr, nullptr};
        GError* raw = nullptr;
        opened = g_app_info_launch_uris(handler, &urls, nullptr, &raw);
        const OwnedError error(raw);
        if (error)
            logLine(fmt::format("{} was not started: {}", g_app_info_get_name(handler), error->message));
    }
    g_list_free_full(handlers, g_object_unref);
    return opened;
}

} // namespace

Task<bool> SystemURLOpener::open(std::string url, std::string bundle, bool) {
    auto work = [url = std::move(url), bundle = std::move(bundle)] { return openIn(bundle, url); };
    auto opened = co_await attempt(pool_->run(std::move(work)));
    co_return opened&&* opened;
}

Task<std::optional<std::string>> DefaultsModeKeyReader::active() {
    auto work = [tool = tool_, environment = environment_] {
        return runCommand(tool, {"read", "com.superduper.superwhisper", "activeModeKey"}, environment, limit);
    };
    auto ended = co_await attempt(pool_->run(std::move(work)));
    if (!ended || ended->status != 0)
        co_return std::nullopt;
    const auto text = Text::repairUTF8(ended->output);
    std::string mode(Text::trimWhitespace(text));
    if (!DictationURL::validFill(mode))
        co_return std::nullopt;
    co_return mode;
}

} // namespace kelvadrome
