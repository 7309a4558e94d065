#include "Kelvadrome/model/MenuPanel.h"
#include "Kelvadrome/model/Notifier.h"

#include "tests/support/TestLoop.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kelvadrome {

// So that a failed comparison reads well.
void PrintTo(const PanelAction& action, std::ostream* out) {
    *out << action.words << " (" << action.note << ")";
}

} // namespace kelvadrome

using namespace kelvadrome;
using Kind = PanelAction::Kind;

namespace {

const WallTime now = wallTime(1'800'000'000); // 2027-01-15T08:00:00Z

Card card(const std::string& id, const std::string& kind = "question") {
    Card card;
    card.id = id;
    card.kind = kind;
    card.title = "Title of " + id;
    card.openedAt = "2027-01-15T07:55:00Z";
    return card;
}

Card highRisk(const std::string& id, const std::string& kind = "stop") {
    auto result = card(id, kind);
    result.risk = "high";
    return result;
}

AppState ready(std::vector<Card> cards = {}) {
    AppState state;
    state.connection = Connection::ready();
    state.cards = std::move(cards);
    return state;
}

AgentsStatus::Session session(const std::string& agent, const std::string& id, const std::string& status) {
    AgentsStatus::Session session;
    session.agent = agent;
    session.sessionId = id;
    session.status = status;
    return session;
}

AppState withSessions(std::vector<AgentsStatus::Session> sessions) {
    auto state = ready();
    state.agents.emplace().sessions = std::move(sessions);
    return state;
}

void lockEdge(AppState& state, const std::string& holder) {
    AgentsStatus::Holder by;
    by.handoff = holder;
    state.agents->locks.push_back({"browser:edge", by, 0});
}

const PanelCard& firstCard(const MenuPanelContent& panel) {
    return std::get<PanelCard>(panel.rows.at(0));
}

std::vector<std::string> words(const std::vector<PanelAction>& actions) {
    std::vector<std::string> all;
    for (const auto& action : actions)
        all.push_back(action.words);
    return all;
}

using Words = std::vector<std::string>;

} // namespace

TEST(MenuPanel, theReliefLineTellsTheBestNews) {
    EXPECT_EQ(menuPanel(ready(), now).relief, "Nothing waits for you.");
    EXPECT_EQ(menuPanel(ready({card("a")}), now).relief, "High risk first");

    struct Row {
        InboxCounts counts;
        std::string relief;
    };
    const std::vector<Row> rows = {
        {{.needsYou = 2, .answeredByRulesToday = 1, .agentsWorking = 5}, "1 answered by your rules today"},
        {{.needsYou = 2, .answeredByRulesToday = 14}, "14 answered by your rules today"},
        {{.needsYou = 2, .agentsWorking = 1}, "1 agent working"},
        {{.agentsWorking = 3}, "3 agents working"},
        {{.needsYou = 2}, "High risk first"},
        {{}, "Nothing waits for you."},
    };
    for (const auto& row : rows) {
        auto state = ready();
        state.counts = row.counts;
        EXPECT_EQ(menuPanel(state, now).relief, row.relief);
    }
    EXPECT_EQ(menuPanel(withSessions({session("codex", "1", "busy")}), now).relief, "1 agent working");
}

TEST(MenuPanel, theFooterCountsWhatDoesNotShow) {
    const auto more = [](std::int64_t needsYou, std::size_t shown) {
        auto state = ready();
        for (std::size_t i = 0; i < shown; ++i)
            state.cards.push_back(card(std::to_string(i)));
        state.counts.emplace().needsYou = needsYou;
        return menuPanel(state, now).more;
    };
    EXPECT_EQ(more(5, 3), "2 more in the Inbox");
    EXPECT_EQ(more(4, 3), "1 more in the Inbox");
    EXPECT_EQ(more(4, 9), "1 more in the Inbox");
    EXPECT_EQ(more(3, 3), std::nullopt);
    EXPECT_EQ(more(2, 3), std::nullopt);
    EXPECT_EQ(more(1, 0), "1 more in the Inbox");
}

TEST(MenuPanel, theBodyFollowsTheConnection) {
    auto state = ready({card("a")});
    state.connection = Connection::starting();
    auto panel = menuPanel(state, now);
    EXPECT_EQ(panel.title, "Starting the daemon");
    EXPECT_TRUE(panel.rows.empty());

    state.connection = Connection::failed("kelvadromed did not start.");
    panel = menuPanel(state, now);
    EXPECT_EQ(panel.title, "kelvadrome is not running.");
    EXPECT_EQ(panel.detail, "kelvadromed did not start.");
    ASSERT_TRUE(panel.retry);
    EXPECT_EQ(panel.retry->words, "Try again");
    EXPECT_TRUE(panel.rows.empty());

    panel = menuPanel(ready(), now);
    EXPECT_EQ(panel.header, "All clear");
    EXPECT_EQ(panel.title, "All clear");
    EXPECT_EQ(panel.detail, "New questions land here first.");
    EXPECT_FALSE(panel.retry);
    EXPECT_EQ(panel.open.words, "Open kelvadrome");
    EXPECT_FALSE(panel.setup || panel.background || panel.error);

    panel = menuPanel(ready({card("a"), card("b")}), now);
    EXPECT_EQ(panel.header, "2 need you");
    EXPECT_EQ(panel.rows.size(), 2U);
    EXPECT_TRUE(panel.title.empty());
}

TEST(MenuPanel, setupBackgroundAndErrorHaveTheirLines) {
    auto state = ready();
    state.onboardingActive = true;
    state.panelError = "Undo failed: gone";
    state.backgroundState = BackgroundService::State{BackgroundServiceStatus::requiresApproval, true, {}, {}};
    const auto panel = menuPanel(state, now);
    ASSERT_TRUE(panel.setup && panel.background);
    EXPECT_EQ(panel.setup->title, "Finish setup");
    EXPECT_EQ(panel.setup->detail, "3 short steps. Nothing installs or changes before you press.");
    EXPECT_EQ(panel.background->title, "Allow kelvadrome in Login Items to keep it running when closed");
    EXPECT_EQ(panel.error, "Undo failed: gone");
    EXPECT_EQ(menuBarLabel(state), "Finish setup");

    state.backgroundState->wanted = false;
    EXPECT_FALSE(menuPanel(state, now).background);
    EXPECT_EQ(menuBarLabel(ready()), std::nullopt);
    EXPECT_EQ(menuBarLabel(ready({card("a")})), "1");
}

TEST(MenuPanel, aCardOffersWhatItsKindAllows) {
    auto question = card("q");
    EXPECT_EQ(words(firstCard(menuPanel(ready({question}), now)).actions), Words{"Snooze"});

    question.defaultAnswer = "Yes, go on";
    const auto suggested = firstCard(menuPanel(ready({question}), now)).actions.at(0);
    EXPECT_EQ(suggested.kind, Kind::answer);
    EXPECT_EQ(suggested.words, "Yes, go on");
    EXPECT_EQ(suggested.answer, "Yes, go on");
    EXPECT_EQ(suggested.note, "Suggested. Holds 2 s so you can undo.");

    auto batch = card("b", "batch");
    batch.rows = {{"q1", "One?", "yes", ""}, {"q2", "Two?", "no", ""}};
    EXPECT_EQ(
        words(firstCard(menuPanel(ready({batch}), now)).actions), (Words{"Accept 2 defaults", "Snooze"}));
    batch.rows->push_back({"q3", "Three?", {}, ""});
    EXPECT_EQ(words(firstCard(menuPanel(ready({batch}), now)).actions), Words{"Snooze"});

    question.risk = "high"; // not even its suggestion may go out from here
    for (const auto& high : {highRisk("s"), question}) {
        const auto panel = menuPanel(ready({high}), now);
        EXPECT_TRUE(firstCard(panel).highRisk);
        EXPECT_EQ(words(firstCard(panel).actions), (Words{"Review in kelvadrome", "Snooze"}));
    }
}

TEST(MenuPanel, aStopThatHoldsEdgeCanBringItToTheFront) {
    auto stop = highRisk("s");
    stop.agent = "claude";
    stop.sessionId = "7";
    auto working = session("claude", "7", "busy");
    working.label = "Billing";
    auto state = withSessions({working});
    state.cards = {stop};
    EXPECT_EQ(words(firstCard(menuPanel(state, now)).actions), (Words{"Review in kelvadrome", "Snooze"}));
    lockEdge(state, "billing run");
    EXPECT_EQ(words(firstCard(menuPanel(state, now)).actions),
        (Words{"Review in kelvadrome", "Bring Edge to front", "Snooze"}));
    state.cards[0].kind = "question";
    EXPECT_EQ(words(firstCard(menuPanel(state, now)).actions), (Words{"Review in kelvadrome", "Snooze"}));
}

TEST(MenuPanel, aCardSaysWhoAsksAboutWhatAndSinceWhen) {
    auto question = card("q");
    question.agent = "claude";
    question.sessionId = "7";
    question.topic = "t1";
    auto state = ready({question});
    state.topics["t1"] = {"t1", "Taxes", {}, 0};
    auto row = firstCard(menuPanel(state, now));
    EXPECT_EQ(row.agent, "Claude Code");
    EXPECT_EQ(row.topic, "Taxes");
    EXPECT_EQ(row.age, "5 min");
    EXPECT_EQ(row.summary, "Title of q");

    auto labelled = session("claude", "7", "waiting_me");
    labelled.label = "books";
    state.agents.emplace().sessions = {session("claude", "8", "idle"), labelled};
    EXPECT_EQ(firstCard(menuPanel(state, now)).agent, "Claude Code books");
}

TEST(MenuPanel, aHeldCardIsARowOfItsOwnAndOutlivesTheCard) {
    auto held = card("q");
    held.agent = "codex";
    auto state = ready({card("other")});
    state.holds["q"] = PanelHold{held, "Yes", now + seconds(1.5), 2.0, false};
    auto panel = menuPanel(state, now);
    ASSERT_EQ(panel.rows.size(), 2U);
    auto hold = std::get<HoldRow>(panel.rows[0]);
    EXPECT_EQ(hold.words, "Sending in a moment. Undo.");
    EXPECT_EQ(hold.label, "Yes");
    EXPECT_DOUBLE_EQ(hold.left, 1.5);
    EXPECT_DOUBLE_EQ(hold.duration, 2.0);
    ASSERT_TRUE(hold.undo);
    EXPECT_EQ(hold.undo->kind, Kind::undo);
    EXPECT_TRUE(std::holds_alternative<PanelCard>(panel.rows[1]));
    EXPECT_DOUBLE_EQ(std::get<HoldRow>(menuPanel(state, now + seconds(9)).rows[0]).left, 0);

    state.holds["q"].committed = true;
    hold = std::get<HoldRow>(menuPanel(state, now).rows[0]);
    EXPECT_EQ(hold.words, "Yes. Sent to Codex");
    EXPECT_FALSE(hold.undo);
}

TEST(MenuPanel, anAgentLineSaysTheMostThatIsKnown) {
    const auto line = [](AgentsStatus::Session session, const char* edgeHolder = nullptr) {
        auto state = withSessions({std::move(session)});
        state.topics["t1"] = {"t1", "Taxes", {}, 0};
        if (edgeHolder)
            lockEdge(state, edgeHolder);
        const auto line = menuPanel(state, now).agents.at(0);
        return line.name + ": " + line.words + " (" + std::string(rawValue(line.lamp)) + ")";
    };
    auto s = session("codex", "1", "busy");
    EXPECT_EQ(line(s), "Codex: working (working)");
    s.topic = "t1";
    EXPECT_EQ(line(s), "Codex: Working on Taxes (working)");
    s.detail = "running tests";
    EXPECT_EQ(line(s), "Codex: Working on Taxes (working)");
    s.topicTitle = "Taxes 2026";
    EXPECT_EQ(line(s), "Codex: Working on Taxes 2026 (working)");
    s.detail = "waits for you";
    EXPECT_EQ(line(s), "Codex: waits for you (needsYou)");
    s.detail = "";
    s.status = "idle";
    EXPECT_EQ(line(s), "Codex: idle, Taxes 2026 (idle)");
    s.label = "Books";
    EXPECT_EQ(line(s, "books run"), "Codex Books: Holding Edge (idle)");
    s.topic = "unknown";
    s.topicTitle.reset();
    s.status = "stalled_out";
    EXPECT_EQ(line(s, "another"), "Codex Books: stalled out (idle)");
    s.status = "crashed";
    EXPECT_EQ(line(s), "Codex Books: crashed (failed)");
}

namespace {

std::optional<double> changesIn(const AppState& state) {
    return menuPanelChangesIn(menuPanel(state, now), state, now);
}

} // namespace

TEST(MenuPanel, itKnowsWhenTimeChangesIt) {
    EXPECT_EQ(changesIn(ready()), std::nullopt);

    struct Row {
        std::string openedAt;
        std::optional<double> wait;
    };
    const std::vector<Row> rows = {{"2027-01-15T07:59:50Z", 50}, {"2027-01-15T07:58:30Z", 30},
        {"2027-01-15T06:30:00Z", 1800}, {"2027-01-13T20:00:00Z", 43'200}, {"2027-01-15T08:00:05Z", 65},
        {"some day", std::nullopt}};
    for (const auto& row : rows) {
        auto asked = card("a");
        asked.openedAt = row.openedAt;
        auto state = ready({asked});
        const auto wait = changesIn(state);
        ASSERT_EQ(wait.has_value(), row.wait.has_value()) << row.openedAt;
        if (!wait)
            continue;
        EXPECT_NEAR(*wait, *row.wait, 1e-3) << row.openedAt;
        // Not a moment too late: just before it the words are the same, just after it they differ.
        EXPECT_EQ(menuPanel(state, now + seconds(*wait - 0.01)), menuPanel(state, now)) << row.openedAt;
        EXPECT_NE(menuPanel(state, now + seconds(*wait + 0.01)), menuPanel(state, now)) << row.openedAt;
    }

    auto state = ready({card("a")});
    state.later["a"] = now + seconds(1800);
    EXPECT_TRUE(menuPanel(state, now).rows.empty());
    EXPECT_EQ(menuPanel(state, now + seconds(*changesIn(state))).rows.size(), 1U);

    state.holds["a"] = PanelHold{card("a"), "Yes", now + seconds(2), 2, false};
    EXPECT_EQ(changesIn(state), 0.25);
    state.later.clear();
    state.holds["a"].committed = true;
    EXPECT_EQ(changesIn(state), std::nullopt);
    state.connection = Connection::failed("gone");
    state.holds["a"].committed = false;
    EXPECT_EQ(changesIn(state), std::nullopt);
}

namespace {

class FakeCenter final : public NotificationCenter {
public:
    bool accepts = true;
    std::optional<bool> answer = true; // absent: an error
    bool failsToAdd = false;
    std::function<void()> opened;
    std::vector<Category> categories;
    std::vector<NotificationRequest> requests;

    bool acceptsThisProcess() override { return accepts; }
    void setOpened(std::function<void()> call) override { opened = std::move(call); }
    void registerCategory(Category category) override { categories.push_back(std::move(category)); }
    Task<bool> requestAuthorization() override {
        if (!answer)
            throw std::runtime_error("no centre");
        co_return *answer;
    }
    Task<> add(NotificationRequest request) override {
        requests.push_back(std::move(request));
        if (failsToAdd)
            throw std::runtime_error("no centre");
        co_return;
    }
};

struct NotifierWorld {
    test::TestLoop loop;
    std::shared_ptr<FakeCenter> center = std::make_shared<FakeCenter>();
    std::shared_ptr<Notifier> notifier = std::make_shared<Notifier>(loop.executor(), center);
    std::vector<bool> reports;

    void setUp(bool enabled = true) {
        loop.run(notifier->setUp(enabled, [this](bool allowed) { reports.push_back(allowed); }));
    }
};

} // namespace

TEST(Notifier, asksOnceItMayAndReportsTheAnswer) {
    {
        NotifierWorld world;
        world.setUp();
        EXPECT_EQ(world.reports, std::vector{true});
        ASSERT_EQ(world.center->categories.size(), 1U);
        EXPECT_EQ(world.center->categories[0].identifier, "kelvadrome.stop");
        EXPECT_EQ(world.center->categories[0].actions.at(0).identifier, "kelvadrome.open");
        EXPECT_EQ(world.center->categories[0].actions.at(0).title, "Open kelvadrome");
    }
    for (const auto answer : {std::optional(false), std::optional<bool>()}) {
        NotifierWorld world;
        world.center->answer = answer;
        world.setUp();
        EXPECT_EQ(world.reports, std::vector{false});
        world.loop.run(world.notifier->postStop(1));
        EXPECT_TRUE(world.center->requests.empty());
    }
    NotifierWorld off;
    off.setUp(false);
    NotifierWorld bare;
    bare.center->accepts = false;
    bare.setUp();
    for (auto* world : {&off, &bare}) {
        EXPECT_TRUE(world->reports.empty());
        EXPECT_TRUE(world->center->categories.empty());
        EXPECT_FALSE(world->notifier->enabled());
    }
}

TEST(Notifier, postsOneNotificationForTheNewStops) {
    NotifierWorld world;
    world.setUp();
    world.loop.run(world.notifier->postStop(0));
    EXPECT_TRUE(world.center->requests.empty());
    world.loop.run(world.notifier->postStop(1));
    world.center->failsToAdd = true;
    world.loop.run(world.notifier->postStop(2)); // its error is nobody's
    ASSERT_EQ(world.center->requests.size(), 2U);
    const auto& [first, second] = std::tie(world.center->requests[0], world.center->requests[1]);
    EXPECT_EQ(first.title, "kelvadrome");
    EXPECT_EQ(first.body, "1 stop needs you. Open to review.");
    EXPECT_EQ(first.category, "kelvadrome.stop");
    EXPECT_EQ(first.thread, "stops");
    EXPECT_TRUE(first.identifier.starts_with("stop-"));
    EXPECT_NE(first.identifier, second.identifier);
    EXPECT_EQ(second.body, "2 stops need you. Open to review.");
}

TEST(Notifier, anOpenedNotificationArrivesOnTheMainExecutor) {
    NotifierWorld world;
    world.setUp();
    int opened = 0;
    world.notifier->onOpen = [&] { ++opened; };
    std::thread([&] { world.center->opened(); }).join();
    EXPECT_EQ(opened, 0);
    world.loop.until([&] { return opened == 1; }, "the press to arrive");
    world.notifier.reset();
    world.center->opened(); // after its end a press is nothing
    world.loop.drain();
    EXPECT_EQ(opened, 1);
}
