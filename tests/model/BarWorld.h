#pragma once

#include "Kelvadrome/model/CommandPanelController.h"
#include "KelvadromeKit/support/Files.h"

#include "tests/model/World.h"

#include <boost/json/parse.hpp>

namespace kelvadrome::test {

/// The window, the screen's tools and the voice, as the bar calls them. What happens to the focus and the
/// window stands in `calls`.
class BarParts final : public CommandPanel,
                       public WindowListing,
                       public CaptureCommandRunning,
                       public ScreenPermission,
                       public BarVoice {
public:
    CallLog calls;
    bool active = true;
    std::optional<FrontApplication> front = FrontApplication{42, 7};
    std::optional<std::uint32_t> window = 9; // to take a picture of
    std::function<void()> whileDragging;     // what happens while the capture tool runs
    std::shared_ptr<Clock> drag;             // set, a drag takes its time
    std::function<void()> handedBack = [] {};
    bool broken = false;  // the next list of windows can't be had
    bool capable = false; // of recording on a hold

    void place() override { calls.add("place"); }
    void orderFront() override { calls.add("orderFront"); }
    void activate() override { calls.add("activate"); }
    void orderOut() override { calls.add("orderOut"); }
    bool isActive() const override { return active; }
    std::optional<FrontApplication> frontApplication() const override { return front; }
    void reactivate(const FrontApplication& application) override {
        calls.add("reactivate " + std::to_string(application.window));
        handedBack();
    }

    std::optional<std::uint32_t> frontWindow(std::optional<std::int32_t> pid) override {
        calls.add("front window of " + std::to_string(pid.value_or(0)));
        if (std::exchange(broken, false))
            throw std::runtime_error("no window list");
        return window;
    }
    Task<std::int32_t> run(std::vector<std::string> argv) override {
        if (const auto happens = std::exchange(whileDragging, nullptr))
            happens();
        if (drag) {
            calls.add("drag begun");
            auto sleeping = drag->sleep(120);
            auto dragged = co_await attempt(std::move(sleeping));
            calls.add(dragged ? "drag ended" : "drag cancelled");
            dragged.take();
        }
        Files::replace(argv.back(), "\x89PNG\r\n\x1a\n and more", 0644, false);
        co_return 0;
    }
    bool granted() override { return true; }
    void request() override {}

    std::optional<std::string> status() const override { return std::nullopt; }
    std::optional<std::string> textModeLine() const override { return std::nullopt; }
    std::string hint() const override { return "hint"; }
    bool micUsable() const override { return false; }
    bool recording() const override { return false; }
    bool holdCapable() const override { return capable; }
    Task<> micPressed() override { co_return; }
    Task<> holdStart() override { return told("hold start"); }
    Task<> holdStop() override { return told("hold stop"); }
    Task<> barOpened() override { return told("voice opened"); }
    Task<> barClosed() override { return told("voice closed"); }
    void textChanged() override {}
    Subscription observe(std::function<void()>) override { return {}; }

private:
    Task<> told(std::string words) {
        calls.add(std::move(words));
        co_return;
    }
};

/// A bar over a world's model.
class BarWorld : public World, public testing::Test {
public:
    BarWorld() {
        make();
        makeBar();
        found({});
        page->replies["/v1/talk/propose"] = FakePage::data(R"({"parse":"p","card_id":"c"})");
    }

    void makeBar() {
        panel = CommandPanelController::make(
            {.executor = loop.executor(),
                .clock = clock,
                .app = model,
                .voice = parts,
                .makeScreenContext =
                    [this](std::string) {
                        return std::make_shared<ScreenContext>(ScreenContext::Parts{
                            {folder.path().string()}, parts, parts, [] { return wallTime(0); }});
                    },
                .windows = parts},
            parts);
    }

    CommandBarModel& bar() const { return panel->bar(); }
    const CommandBarState& now() const { return bar().state(); }
    /// What a search finds from here on, as topics by their titles.
    void found(const std::vector<std::string>& titles, const std::shared_ptr<FakeGate>& gate = nullptr) {
        std::vector<std::string> hits;
        for (const auto& title : titles)
            hits.push_back(fmt::format(R"({{"kind":"topic","id":"t","title":"{}","snippet":""}})", title));
        auto reply = FakeReply::data(
            fmt::format(R"({{"topics":[{}],"decisions":[],"questions":[]}})", fmt::join(hits, ",")));
        daemon->on("/v1/search", gate ? std::move(reply).heldBy(gate) : reply);
    }
    /// The queries that went out.
    std::vector<std::string> queries() const {
        std::vector<std::string> all;
        for (const auto& request : daemon->requests("/v1/search"))
            all.emplace_back(boost::json::parse(request.body).at("q").as_string());
        return all;
    }
    void type(const std::string& text, double pause = CommandBarModel::typingPause) {
        bar().setText(text);
        loop.drain();
        loop.advance(*clock, pause);
    }
    /// Types and waits for as many hits.
    void search(const std::string& text, std::size_t hits) {
        type(text);
        until([&] { return now().hits.size() == hits; }, "the hits for " + text);
    }
    void shoot(bool region = false) {
        bar().attach(region);
        until([&] { return !now().capturing; }, "the capture to end");
    }
    void submit() {
        bar().submit();
        until([&] { return !now().proposing; }, "the request to end");
    }
    bool onDisk(const AttachedShot& one) const { return Files::exists(one.shot.path); }

    const std::shared_ptr<BarParts> parts = std::make_shared<BarParts>();
    std::shared_ptr<CommandPanelController> panel;
};

} // namespace kelvadrome::test
