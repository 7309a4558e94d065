#pragma once

#include "Kelvadrome/model/Notifying.h"
#include "Kelvadrome/model/RunningApps.h"
#include "Kelvadrome/model/Screen.h"
#include "Kelvadrome/model/WebController.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

namespace kelvadrome::test {

/// What a front end was asked for, in order, each call as one line: "openMainWindow", "setBadge 2".
class CallLog {
public:
    void add(std::string line) { lines_.push_back(std::move(line)); }
    const std::vector<std::string>& lines() const { return lines_; }
    std::size_t count(const std::string& line) const {
        return static_cast<std::size_t>(std::ranges::count(lines_, line));
    }
    bool has(const std::string& line) const { return count(line) > 0; }
    /// How many lines begin so.
    std::size_t countOf(const std::string& beginning) const {
        return static_cast<std::size_t>(std::ranges::count_if(
            lines_, [&](const std::string& line) { return line.starts_with(beginning); }));
    }
    std::string last(const std::string& beginning) const {
        for (auto it = lines_.rbegin(); it != lines_.rend(); ++it) {
            if (it->starts_with(beginning))
                return *it;
        }
        return {};
    }
    void clear() { lines_.clear(); }

private:
    std::vector<std::string> lines_;
};

class RecordingScreen final : public Screen {
public:
    CallLog calls;
    bool onboardingMade = false;
    bool inMenuBar = true;

    void activate() override { calls.add("activate"); }
    void openMainWindow() override { calls.add("openMainWindow"); }
    void orderOutMain() override { calls.add("orderOutMain"); }
    bool hasMenuBarItem() const override { return inMenuBar; }
    void setBadge(std::optional<std::string> label) override {
        calls.add("setBadge " + label.value_or("none"));
    }
    void setAppearance(Appearance appearance) override {
        static constexpr const char* names[] = {"system", "light", "dark"};
        calls.add(std::string("setAppearance ") + names[static_cast<int>(appearance)]);
    }
    void presentOnboarding(
        PageSession::Credentials credentials, bool firstRun, std::string theme, bool quietly) override {
        onboardingMade = true;
        calls.add("presentOnboarding " + credentials.cookieValue + (firstRun ? " first " : " again ") +
                  theme + (quietly ? " quietly" : ""));
    }
    void renewOnboarding(PageSession::Credentials credentials) override {
        if (onboardingMade)
            calls.add("renewOnboarding " + credentials.cookieValue);
    }
    bool raiseOnboarding() override {
        calls.add("raiseOnboarding");
        return onboardingMade;
    }
    void closeOnboarding() override { calls.add("closeOnboarding"); }
    void updateAgentStrip(std::optional<AgentStrip> strip) override {
        calls.add("updateAgentStrip " + (strip ? strip->headline() : "none"));
    }
    void openCommandBar(std::optional<std::string> text) override {
        calls.add("openCommandBar " + text.value_or(""));
    }
    void revealFile(std::string path) override { calls.add("revealFile " + path); }
    void copyText(std::string text) override { calls.add("copyText " + text); }
    void openURL(std::string url) override { calls.add("openURL " + url); }
    void activateApplication(std::string bundleId) override { calls.add("activateApplication " + bundleId); }
    Task<> criticalAlert(std::string title, std::string text, std::string button) override {
        calls.add("criticalAlert " + title + "|" + text + "|" + button);
        co_return;
    }
};

/// Remembers the page calls; `load` takes the session over as a real one does.
class RecordingWeb final : public WebController {
public:
    CallLog calls;

    void load(PageSession::Credentials credentials, NavSection section, ScopeFilter scope) override {
        base = credentials.base;
        cookieValue = credentials.cookieValue;
        calls.add(fmt::format("load {} {} {}", *cookieValue, rawValue(section), rawValue(scope)));
    }
    void navigate(std::string path, ScopeFilter scope, std::optional<std::string> focus) override {
        calls.add(fmt::format("navigate {} {} {}", path, rawValue(scope), focus.value_or("-")));
    }
    void search(std::string query, ScopeFilter scope) override {
        calls.add(fmt::format("search {} {}", query, rawValue(scope)));
    }
    void setScope(ScopeFilter scope, std::string path) override {
        calls.add(fmt::format("setScope {} {}", rawValue(scope), path));
    }
    void callShell(std::string expression, std::optional<std::string> fallback) override {
        calls.add("callShell " + expression + " " + fallback.value_or("-"));
    }
    void runScript(std::string script) override { calls.add("runScript " + script); }
    void reload() override { calls.add("reload"); }
};

/// Applications as the test says.
class FakeApps final : public RunningApps {
public:
    std::set<std::string> running;
    bool isRunning(const std::string& bundleId) override { return running.contains(bundleId); }
    void activate(const std::string&) override {}
};

/// Says yes to permission, as the user did, and remembers each posted count.
class RecordingNotifier final : public Notifying {
public:
    std::vector<std::int64_t> posted;
    std::vector<std::string> withdrawn; // "1" is the first that was posted

    Task<> setUp(bool enabled, std::function<void(bool)> report) override {
        if (enabled)
            report(true);
        co_return;
    }
    Task<std::string> postStop(std::int64_t count) override {
        posted.push_back(count);
        co_return std::to_string(posted.size());
    }
    void withdraw(std::string notification) override { withdrawn.push_back(std::move(notification)); }
};

} // namespace kelvadrome::test
