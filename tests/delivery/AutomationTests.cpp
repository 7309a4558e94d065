#include "KelvadromeKit/delivery/AutomationPrompter.h"
#include "KelvadromeKit/delivery/HostAccess.h"
#include "KelvadromeKit/delivery/TerminalAccessRow.h"
#include "KelvadromeKit/delivery/TerminalAncestry.h"

#include "tests/support/TestLoop.h"

#include <gtest/gtest.h>

using namespace kelvadrome;
using namespace kelvadrome::test;

namespace {

using Result = AutomationPrompter::RequestResult;
using Kind = Result::Kind;

/// The system's question; a test answers it when it wants.
struct Question {
    ConsentCode checked = consentNotAsked;
    bool locked = false;
    std::vector<std::string> asked;
    std::vector<Completion<ConsentCode>> open;

    void answer(ConsentCode code) {
        const auto completion = open.front();
        open.erase(open.begin());
        completion(code);
    }

    static Task<ConsentCode> ask(std::shared_ptr<Question> self, std::string bundle) {
        self->asked.push_back(bundle);
        auto wait = suspendUntil<ConsentCode>([self](auto completion) { self->open.push_back(completion); });
        co_return co_await std::move(wait);
    }

    static AutomationProbe probe(std::shared_ptr<Question> self) {
        return {[self](const std::string&) { return self->checked; },
            [self](std::string bundle) { return ask(self, std::move(bundle)); },
            [self] { return self->locked; }};
    }
};

struct World {
    TestLoop loop;
    std::shared_ptr<Question> question = std::make_shared<Question>();
    std::shared_ptr<MemoryFlags> flags = std::make_shared<MemoryFlags>();
    std::shared_ptr<AutomationPrompter> prompter =
        std::make_shared<AutomationPrompter>(loop.executor(), Question::probe(question), flags);

    /// Starts a task and keeps what it ends with.
    template <class T>
    std::shared_ptr<std::optional<Outcome<T>>> start(Task<T> task) {
        auto kept = std::make_shared<std::optional<Outcome<T>>>();
        asio::co_spawn(loop.executor(), attempt(std::move(task)),
            [kept](std::exception_ptr, Outcome<T> outcome) { *kept = std::move(outcome); });
        loop.drain();
        return kept;
    }
    Result request(TerminalApp app = TerminalApp::iterm2) { return loop.run(prompter->request(app)); }
    std::optional<AutomationStatus> automatic(bool running = true) {
        return loop.run(prompter->autoRequestIfNeeded(TerminalApp::iterm2, running));
    }
};

} // namespace

TEST(AutomationPrompter, aStatusNeverAsks) {
    World world;
    const std::pair<ConsentCode, AutomationStatus> rows[] = {{0, AutomationStatus::granted},
        {-1743, AutomationStatus::denied}, {-1744, AutomationStatus::notDetermined},
        {-600, AutomationStatus::unknown}, {std::nullopt, AutomationStatus::unknown}};
    for (const auto& [code, status] : rows) {
        world.question->checked = code;
        EXPECT_EQ(world.loop.run(world.prompter->status(TerminalApp::terminal)), status);
    }
    EXPECT_TRUE(world.question->asked.empty());
}

TEST(AutomationPrompter, aPressAsksOnlyWhenThereIsSomethingToAsk) {
    World world;
    world.question->locked = true;
    EXPECT_EQ(world.request(), (Result{Kind::screenLocked}));
    world.question->locked = false;
    world.question->checked = 0;
    EXPECT_EQ(world.request(), (Result{Kind::status, AutomationStatus::granted}));
    world.question->checked = consentDenied;
    EXPECT_EQ(world.request(), (Result{Kind::status, AutomationStatus::denied}));
    EXPECT_TRUE(world.question->asked.empty());

    world.flags->set(AutomationPrompter::autoKey(TerminalApp::iterm2)); // binds only the automatic path
    for (const ConsentCode checked : {ConsentCode(consentNotAsked), ConsentCode()}) {
        world.question->checked = checked;
        const auto pressed = world.start(world.prompter->request(TerminalApp::iterm2));
        ASSERT_EQ(world.question->open.size(), 1u);
        world.question->answer(0);
        world.loop.drain();
        EXPECT_EQ(pressed->value().take(), (Result{Kind::status, AutomationStatus::granted}));
    }
    EXPECT_EQ(world.question->asked, std::vector<std::string>(2, "com.googlecode.iterm2"));
}

TEST(AutomationPrompter, oneQuestionAtATimePerApp) {
    World world;
    const auto first = world.start(world.prompter->request(TerminalApp::iterm2));
    EXPECT_EQ(world.request(), (Result{Kind::alreadyAsking}));
    EXPECT_FALSE(world.automatic());
    const auto other = world.start(world.prompter->request(TerminalApp::terminal));
    EXPECT_EQ(
        world.question->asked, (std::vector<std::string>{"com.googlecode.iterm2", "com.apple.Terminal"}));
    world.question->answer(std::nullopt);
    world.loop.drain();
    EXPECT_EQ(first->value().take(), (Result{Kind::status, AutomationStatus::unknown}));
    EXPECT_FALSE(other->has_value());
    const auto third = world.start(world.prompter->request(TerminalApp::iterm2));
    EXPECT_EQ(world.question->asked.size(), 3u);
    world.question->answer(0);
    world.question->answer(0);
    world.loop.drain();
    EXPECT_TRUE(other->has_value() && third->has_value());
}

TEST(AutomationPrompter, aQuestionThatFailsIsNoLongerInFlight) {
    World world;
    auto probe = Question::probe(world.question);
    probe.request = [](const std::string&) -> Task<ConsentCode> {
        throw std::runtime_error("no window server");
    };
    const auto prompter = std::make_shared<AutomationPrompter>(world.loop.executor(), probe, world.flags);
    for (int i = 0; i < 2; ++i) {
        EXPECT_THROW(world.loop.run(prompter->request(TerminalApp::iterm2)), std::runtime_error);
    }
}

TEST(AutomationPrompter, byItselfItAsksOnceEverAndOnlyWhenItHelps) {
    World world;
    const auto key = AutomationPrompter::autoKey(TerminalApp::iterm2);
    EXPECT_EQ(key, "KDAutomationAutoAsked.iterm2");
    EXPECT_FALSE(world.automatic(false));
    world.question->locked = true;
    EXPECT_FALSE(world.automatic());
    world.question->locked = false;
    for (const ConsentCode checked : {ConsentCode(0), ConsentCode(consentDenied), ConsentCode()}) {
        world.question->checked = checked;
        EXPECT_FALSE(world.automatic());
    }
    EXPECT_FALSE(world.flags->isSet(key)) << "nothing was asked yet";

    world.question->checked = consentNotAsked;
    const auto asked = world.start(world.prompter->autoRequestIfNeeded(TerminalApp::iterm2, true));
    EXPECT_TRUE(world.flags->isSet(key)) << "set while the question is still open";
    EXPECT_FALSE(world.flags->isSet(AutomationPrompter::autoKey(TerminalApp::terminal)));
    world.question->answer(std::nullopt);
    world.loop.drain();
    EXPECT_EQ(asked->value().take(), AutomationStatus::unknown);
    EXPECT_FALSE(world.automatic()) << "a lost answer is not asked for again";
    EXPECT_EQ(world.question->asked.size(), 1u);
}

TEST(DefaultsFlags, aFlagIsABooleanOfTheUsersDefaults) {
    const auto defaults = std::make_shared<MemoryDefaults>();
    DefaultsFlags flags(defaults);
    EXPECT_FALSE(flags.isSet("KDx"));
    flags.set("KDx");
    EXPECT_TRUE(flags.isSet("KDx"));
    EXPECT_EQ(defaults->storedBoolean("KDx"), true);
}

TEST(HostAccess, aListScriptsResultSaysHowTheAppIsReached) {
    const RunOutput good{0, "", "", false}, failed{1, "", "boom", false}, hung{-15, "", "", true};
    const RunOutput refused{1, "", "execution error: Not authorized (-1743)", false};
    const auto word = [](const RunOutput& output, ConsentCode consent, bool locked = false) {
        const auto access = classifyHostAccess(output, consent, locked);
        return access ? std::string(rawValue(*access)) : "none";
    };
    EXPECT_EQ(word(good, consentDenied, true), "ok");
    EXPECT_EQ(word(failed, consentDenied), "denied");
    EXPECT_EQ(word(refused, std::nullopt), "denied");
    EXPECT_EQ(word(refused, consentNotAsked), "denied");
    EXPECT_EQ(word(failed, consentNotAsked), "waiting");
    EXPECT_EQ(word(hung, consentNotAsked, true), "waiting");
    EXPECT_EQ(word(failed, 0, true), "none");
    EXPECT_EQ(word(failed, std::nullopt), "none");
    EXPECT_EQ(word(hung, 0, true), "locked");
    EXPECT_EQ(word(hung, std::nullopt, true), "locked");
    EXPECT_EQ(word(hung, 0), "busy");
    EXPECT_EQ(word(hung, std::nullopt), "waiting");
    EXPECT_EQ(word(hung, -600), "waiting");
    const auto none = HostAccessProbe::none();
    EXPECT_FALSE(none.consent("com.apple.Terminal") || none.screenLocked());
}

TEST(TerminalAncestry, agentsAreFollowedUpToTheirTerminalApp) {
    using Hosts = std::set<TerminalApp>;
    const auto iterm = TerminalApp::iterm2, terminal = TerminalApp::terminal;
    const auto chain = [](int between) {
        std::string ps = "10 11 claude\n";
        for (int i = 0; i < between; ++i)
            ps += fmt::format("{} {} zsh\n", 11 + i, 12 + i);
        return ps + fmt::format("{} 1 /Applications/iTerm.app/Contents/MacOS/iTerm2\n", 11 + between);
    };
    const std::pair<std::string, Hosts> rows[] = {
        {chain(1), {iterm}},
        {chain(10), {iterm}},
        {chain(11), {}},
        {"10 11 /usr/local/bin/Claude\n11 1 iTermServer-3.5\n", {iterm}},
        {"10 11 codex\n11 1 /Applications/iTerm2.app/x\n20 21 pi\n21 1 "
         "/System/Terminal.app/Contents/MacOS/Terminal\n",
            {iterm, terminal}},
        {"10 11 cursor-agent\n11 1 Terminal\n", {}},
        {"10 1 claude\n1 0 launchd\n", {}},
        {"10 10 claude\n", {}},
        {"10 11 claude\n11 10 zsh\n", {}},
        {"10 11 claude\n12 1 iTerm2\n", {}},
        {"10 11 claudette\n11 1 iTerm2\n", {}},
        {"10 11 vim claude\n11 1 iTerm2\n", {}},
        {"  10   11   /opt/My Tools/claude  \nPID PPID COMM\n11 1 iTerm2\n", {iterm}},
        {"", {}},
    };
    for (const auto& [ps, hosts] : rows)
        EXPECT_EQ(TerminalAncestry::hostsWithAgents(ps), hosts) << ps;
    EXPECT_EQ(TerminalAncestry::rows(" 1  0 /sbin/my init \n1 x y\n2 1\n"),
        (std::map<std::int64_t, TerminalAncestry::Row>{{1, {1, 0, "/sbin/my init"}}}));
    EXPECT_EQ(TerminalAncestry::agents().size(), 12u);
}

TEST(TerminalAccessRow, theRowSaysWhatIsSoAndWhatToDo) {
    using Content = TerminalAccessRow::Content;
    const auto row = [](AutomationStatus status, bool running = true, bool asking = false) {
        return TerminalAccessRow::content(TerminalApp::iterm2, status, running, asking, "note");
    };
    EXPECT_EQ(row(AutomationStatus::granted).text, "Allowed");
    const auto denied = row(AutomationStatus::denied);
    EXPECT_EQ(denied.note, "You said no. Turn kelvadrome on for iTerm2 in Privacy and Security, Automation.");
    EXPECT_EQ(denied.button, "Open System Settings");
    EXPECT_EQ(denied.press, Content::Press::openSettings);
    EXPECT_EQ(row(AutomationStatus::notDetermined), (Content{"", "note", "Allow", Content::Press::request}));
    EXPECT_EQ(row(AutomationStatus::notDetermined, true, true),
        (Content{"", "note", "Waiting for your answer", Content::Press::nothing}));
    EXPECT_EQ(row(AutomationStatus::unknown, false).text, "Open iTerm2 first");
    EXPECT_EQ(row(AutomationStatus::unknown).text, "Not known yet");

    EXPECT_EQ(TerminalAccessRow::noteAfter({Kind::screenLocked}),
        "Unlock the Mac first: macOS shows its question only on an unlocked screen.");
    EXPECT_EQ(
        TerminalAccessRow::noteAfter({Kind::alreadyAsking}), "macOS is asking you now. Answer its window.");
    EXPECT_FALSE(TerminalAccessRow::noteAfter({Kind::status, AutomationStatus::denied}));
    EXPECT_EQ(allowTitle(TerminalApp::terminal), "Allow kelvadrome to type into Terminal");
}
