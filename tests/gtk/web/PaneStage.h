#pragma once

#include "Kelvadrome/platform/linux/core/PageTunnel.h"

#include "tests/gtk/web/Stage.h"

namespace kelvadrome::test {

/// A pane in a window, and what came out of it.
class PaneStage : public Stage {
protected:
    void SetUp() override {
        Stage::SetUp();
        if (IsSkipped())
            return;
        pane = WebPane::make({.executor = loop.executor(),
            .clock = clock,
            .openURL = [this](std::string url) { opened.push_back(url); },
            .route = {
                .proxy = tunnel.url(), .admit = [this](std::int64_t to) { return admit(tunnel, to); }}});
        pane->onMessage = [this](const std::string&, const JSONObject& body) {
            messages.push_back(body.text());
        };
        pane->onFirstLoad = [this] { ++firstLoads; };
        window = std::make_unique<Gtk::Window>();
        window->set_default_size(800, 600);
        window->set_child(pane->widget());
        window->present();
    }
    void TearDown() override {
        window.reset();
        pane.reset();
        drain();
    }

    static Task<std::optional<std::string>> admit(PageTunnel& through, std::int64_t to) {
        co_return through.lead(to);
    }

    void load(const std::string& session = "s1") {
        pane->load(credentials(session), NavSection::inbox, ScopeFilter::all);
    }
    void loadAndWait(const std::string& session = "s1") {
        const int before = firstLoads;
        load(session);
        until([&] { return firstLoads > before; }, "the page to load");
    }
    void untilMessage(const std::string& message) {
        until([&] { return std::ranges::count(messages, message) > 0; }, message);
    }
    void untilAsked(const std::string& path, std::size_t times = 1) {
        until([&] { return server.requests(path).size() >= times; }, "a request for " + path);
    }
    void untilTrouble(const std::string& words) {
        until([&] { return pane->trouble() && pane->trouble()->starts_with(words); }, words);
    }
    bool pageShown() const { return gtk_widget_get_mapped(GTK_WIDGET(pane->view())); }
    Gtk::Button& tryAgainButton() {
        return *findWidget<Gtk::Button>(
            pane->widget(), [](Gtk::Button& button) { return button.get_label() == "Try again"; });
    }

    std::shared_ptr<FixedPeers> peers = std::make_shared<FixedPeers>();
    PageTunnel tunnel{peers};
    std::vector<std::string> opened;
    std::vector<std::string> messages;
    int firstLoads = 0;
    std::shared_ptr<WebPane> pane;
    std::unique_ptr<Gtk::Window> window;
};

} // namespace kelvadrome::test
