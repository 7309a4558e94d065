#include "Kelvadrome/model/BarHotkey.h"
#include "Kelvadrome/model/CommandBarRows.h"

#include "tests/model/BarWorld.h"

namespace kelvadrome::test {
namespace {

using Lines = std::vector<std::string>;
class CommandBarTest : public BarWorld {};

TEST_F(CommandBarTest, aSearchWaitsForAPauseAndForWords) {
    found({"one"});
    type("a");
    type("  \t");
    type("ab", 0.1);
    type("abc", 0.1);
    EXPECT_EQ(queries(), Lines{});
    loop.advance(*clock, 0.08);
    until([&] { return now().hits.size() == 1; }, "the hits");
    EXPECT_EQ(queries(), Lines{"abc"});
    EXPECT_EQ(daemon->requests("/v1/search")[0].body, R"({"q":"abc","limit":5})");

    refuse("/v1/search");
    search("abcd", 0);
    EXPECT_EQ(now().text, "abcd");
    EXPECT_FALSE(now().error);
}

TEST_F(CommandBarTest, aReplyCountsForTheWordsThatItWasAskedFor) {
    const auto gate = std::make_shared<FakeGate>();
    found({"for ab"}, gate);
    type("ab");
    until([&] { return queries().size() == 1; }, "the call");
    type("ab ");
    gate->open();
    until([&] { return now().hits.size() == 1; }, "the reply, which is for these words still");
    EXPECT_EQ(queries().size(), 1U);

    const auto late = std::make_shared<FakeGate>();
    found({"for abc"}, late);
    type("abc");
    until([&] { return queries().size() == 2; }, "the call");
    found({"for abcd", "and more"});
    search("abcd", 2);
    late->open();
    loop.drain();
    EXPECT_EQ(now().hits[0].title, "for abcd");
}

TEST_F(CommandBarTest, theHighlightGoesAroundAndStaysInside) {
    bar().move(1);
    EXPECT_EQ(now().selection, 0U);
    found({"1", "2", "3"});
    search("ab", 3);
    bar().move(-1);
    EXPECT_EQ(now().selection, 3U);
    found({"1"});
    search("abc", 1);
    EXPECT_EQ(now().selection, 1U);
    bar().move(1);
    EXPECT_EQ(now().selection, 0U);
}

TEST_F(CommandBarTest, aRequestBecomesACardAndTakesItsShotsAlong) {
    bar().submit();
    EXPECT_FALSE(now().proposing);
    panel->show(true);
    type(" fix it ");
    shoot();
    shoot(true);
    const auto sent = now().shots;
    ASSERT_EQ(sent.size(), 2U);
    page->holdPosts = true;
    bar().submit();
    bar().submit();
    until([&] { return page->posts.size() == 1; }, "the request");
    shoot();
    page->release();
    until([&] { return !now().proposing; }, "the reply");
    EXPECT_EQ(page->posts[0].body, fmt::format(R"({{"text":"fix it","surface":"panel","shots":["{}","{}"]}})",
                                       sent[0].shot.id, sent[1].shot.id));
    EXPECT_EQ(page->posts.size(), 1U);
    EXPECT_EQ(now().shots.size(), 1U) << "the one that came meanwhile";
    EXPECT_TRUE(onDisk(sent[0]) && onDisk(sent[1]));
    EXPECT_EQ(CommandBar::rows(now())[0].detail,
        "Card ready in your Inbox, with 2 screenshots. Nothing runs before you press Run.");

    const auto unsent = now().shots[0];
    type("something else");
    EXPECT_FALSE(now().proposal);
    bar().openProposal();
    EXPECT_EQ(web->calls.countOf("navigate"), 0U);
    panel->hide();
    EXPECT_FALSE(onDisk(unsent));
    EXPECT_TRUE(onDisk(sent[0]));
}

TEST_F(CommandBarTest, aRequestThatFailedLosesNothing) {
    const std::vector<std::pair<HTTPResponse, std::string>> rows = {
        {FakePage::failure("not_implemented", "x"),
            "Requests from the bar arrive in the next build. Your words stay here."},
        {FakePage::failure("internal", "x"), "kelvadrome could not take the request. Your words stay here."},
        {FakePage::data("{}"), "kelvadrome could not take the request. Your words stay here."}};
    shoot(true);
    for (const auto& [reply, words] : rows) {
        page->replies["/v1/talk/propose"] = reply;
        type("fix it");
        submit();
        EXPECT_EQ(now().error, words);
        EXPECT_EQ(now().shots.size(), 1U);
    }
    // Hidden meanwhile: the shot was part of the request until it failed, and the words come back.
    const auto shot = now().shots[0];
    panel->show(true);
    page->holdPosts = true;
    bar().submit();
    until([&] { return page->posts.size() == 4; }, "the request");
    panel->hide();
    EXPECT_TRUE(onDisk(shot));
    EXPECT_EQ(now().text, "");
    page->release();
    until([&] { return !now().proposing; }, "the reply");
    EXPECT_FALSE(onDisk(shot));
    EXPECT_EQ(now().text, "fix it");
}

TEST_F(CommandBarTest, aCaptureEndsInAShotOrInWords) {
    parts->window.reset();
    panel->show(true);
    shoot();
    EXPECT_TRUE(parts->calls.has("front window of 42"));
    EXPECT_EQ(now().screenLine, "No window to capture. Drag a region instead.");
    parts->calls.clear();
    for (int i = 0; i < 4; ++i)
        shoot(true);
    EXPECT_EQ(now().screenLine, "3 screenshots at most.");
    EXPECT_EQ(parts->calls.lines()[0], "orderOut");
    EXPECT_EQ(parts->calls.count("activate"), 4U);

    const auto token = now().focusToken;
    const auto gone = now().shots[1];
    bar().remove(gone.shot);
    EXPECT_FALSE(onDisk(gone));
    EXPECT_EQ(now().focusToken, token + 1);

    // Hidden before its turn: it starts no drag, and tells the next opening nothing.
    for (const bool region : {false, true}) {
        parts->calls.clear();
        panel->show(true);
        bar().attach(region);
        panel->hide();
        until([&] { return !now().capturing; }, "the capture to end");
        EXPECT_FALSE(now().screenLine) << region;
        EXPECT_EQ(parts->calls.count("orderOut"), 1U) << "by hide alone";
    }
    panel->show(true);
    parts->broken = true;
    shoot();
    EXPECT_EQ(now().screenLine, "The screenshot did not work. Try again.");

    parts->calls.clear();
    parts->whileDragging = [this] { panel->hide(); };
    shoot(true);
    EXPECT_TRUE(now().shots.empty());
    EXPECT_EQ(parts->calls.count("activate"), 0U) << "a hidden bar stays hidden";
    EXPECT_TRUE(std::filesystem::is_empty(folder / "shots"));
}

TEST_F(CommandBarTest, theEndCancelsADrag) {
    for (const bool stops : {true, false}) { // else the bar goes away
        parts->drag = clock;
        panel->show(true);
        bar().attach(true);
        until([&] { return parts->calls.has("drag begun"); }, "the drag");
        parts->calls.clear();
        if (stops)
            panel->stop();
        else
            panel.reset();
        until([&] { return parts->calls.has("drag cancelled"); }, "the drag to be cancelled");
        EXPECT_EQ(parts->calls.count("activate"), 0U) << "nothing comes back to the front";
        makeBar();
    }
}

TEST_F(CommandBarTest, hidingHandsTheFocusBackLast) {
    panel->open("two\nlines");
    EXPECT_EQ(now().text, "two lines");
    panel->show(false);
    parts->front = FrontApplication{1, 1}; // too late to count
    parts->onText("and\r\nspoken");
    EXPECT_EQ(now().text, "two lines and spoken");
    loop.drain();
    EXPECT_EQ(parts->calls.lines(),
        (Lines{"place", "activate", "place", "orderFront", "voice opened", "voice opened"}));
    parts->calls.clear();
    parts->handedBack = [this] { EXPECT_EQ(now().text, "") << "reset comes before"; };
    panel->toggle();
    panel->hide();
    loop.drain();
    EXPECT_EQ(parts->calls.lines(), (Lines{"orderOut", "reactivate 7", "voice closed"}));

    parts->active = false;
    panel->toggle();
    panel->toggle();
    EXPECT_EQ(parts->calls.countOf("reactivate"), 1U) << "the user has gone elsewhere by now";
    parts->active = true;

    // What it opens keeps the focus.
    panel->show(true);
    found({"A topic"});
    search("ab", 1);
    bar().move(1);
    bar().submit();
    EXPECT_EQ(web->calls.lines().back(), "navigate /topics/t all -");
    EXPECT_FALSE(panel->isOpen());
    EXPECT_EQ(parts->calls.countOf("reactivate"), 1U);
}

TEST(CommandBarPaths, leadToTheTopicElseToTheResults) {
    const std::vector<std::pair<SearchHit, std::string>> rows = {
        {{"decision", "d", "a b_c-ü", "", ""}, "/topics/a%20b_c-%C3%BC"},
        {{"topic", "t/1", {}, "", ""}, "/topics/t%2F1"},
        {{"question", "q", {}, "", ""}, "/search?q=x%20y%2D1%26"}};
    for (const auto& [hit, path] : rows)
        EXPECT_EQ(CommandBar::pathOf(hit, " x y-1&\t"), path);
}

/// A key that the test presses.
class FakeKey final : public GlobalHotkey {
public:
    std::optional<HotkeySpec> spec;
    std::vector<HotkeyOutcome> outcomes{HotkeyOutcome::taken()}; // of the next registrations
    std::function<void()> asked = [] {};
    Task<HotkeyOutcome> registerKey(HotkeySpec wanted) override {
        asked();
        spec = std::move(wanted);
        const auto outcome = outcomes.at(0);
        outcomes.erase(outcomes.begin());
        co_return outcome;
    }
    std::optional<HotkeySpec> current() const override { return spec; }
};

TEST_F(CommandBarTest, howTheKeyStandsIsWhatTheSystemSaidLastOfTheLastOne) {
    const auto key = std::make_shared<FakeKey>();
    const auto hotkey = BarHotkey::make({loop.executor(), clock, defaults, key, parts, panel});
    std::optional<HotkeyOutcome> told;
    const auto watching = hotkey->observe([&] { told = hotkey->state().outcome; });
    key->asked = [&] { EXPECT_EQ(hotkey->state().outcome, std::nullopt) << "that of an older one"; };
    const auto lost = HotkeyOutcome::failed(HotkeyStatus::noPortal);
    const auto replaced = HotkeyOutcome::failed(HotkeyStatus::replaced);
    key->outcomes = {replaced, replaced, HotkeyOutcome::registered(), HotkeyOutcome::taken()};
    for (const char* label : {"Control A", "Control B", "Control A"}) {
        defaults->set(BarHotkey::labelKey, std::string(label));
        hotkey->registerKey();
        key->onChange(lost); // of the key of before
    }
    loop.drain();
    EXPECT_EQ(hotkey->state(), (BarKeyState{"Control A", HotkeyOutcome::registered()}));
    key->onChange(lost);
    loop.drain();
    EXPECT_EQ(told, lost);
    key->onReturn();
    loop.drain();
    EXPECT_EQ(told, HotkeyOutcome::taken());
}

TEST_F(CommandBarTest, theDaemonsKeyRulesAndIsntAskedForTwice) {
    const auto key = std::make_shared<FakeKey>();
    const auto hotkey = BarHotkey::make({loop.executor(), clock, defaults, key, parts, panel});
    key->outcomes = {HotkeyOutcome::registered(), HotkeyOutcome::taken(), HotkeyOutcome::failed(1)};
    for (const char* label : {"Control A", "Control A", "Control B", "Control B", "Control B"}) {
        hotkey->use(label);
        loop.drain();
        EXPECT_EQ(hotkey->state().label, label);
    }
    EXPECT_EQ(key->outcomes.size(), 0U) << "again where another application had it, never after a refusal";
    EXPECT_EQ(defaults->string(BarHotkey::labelKey), "Control B");
}

TEST_F(CommandBarTest, aTapTogglesAndAHoldTalks) {
    const auto key = std::make_shared<FakeKey>();
    defaults->set(BarHotkey::labelKey, std::string("Shift B")); // no key of its own
    const auto hotkey = BarHotkey::make({loop.executor(), clock, defaults, key, parts, panel});
    hotkey->registerKey();
    loop.drain();
    EXPECT_EQ(key->spec, HotkeySpec::standard());
    EXPECT_EQ(hotkey->state(), (BarKeyState{"Control Option B", HotkeyOutcome::taken()}));

    struct Step {
        double held;
        bool capable;
        bool open; // afterwards
        Lines talk;
    };
    for (const auto& step : {Step{0.1, true, true, {}}, Step{0.1, true, false, {}}, Step{2, false, true, {}},
             Step{2, true, true, {"hold start", "hold stop"}}}) {
        parts->capable = step.capable;
        parts->calls.clear();
        key->onPress();
        EXPECT_TRUE(panel->isOpen());
        key->onPress(); // a repeat
        loop.drain();
        clock->advance(step.held);
        loop.drain();
        key->onRelease();
        loop.advance(*clock, 1);
        loop.drain();
        EXPECT_EQ(panel->isOpen(), step.open);
        Lines talk;
        for (const auto& line : parts->calls.lines()) {
            if (line.starts_with("hold"))
                talk.push_back(line);
        }
        EXPECT_EQ(talk, step.talk);
    }
}

} // namespace
} // namespace kelvadrome::test
