#include "KelvadromeKit/delivery/AutomationPrompter.h"
#include "KelvadromeKit/delivery/HostAccess.h"
#include "KelvadromeKit/delivery/SystemHostAccess.h"
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

class AutomationPrompterTest : public testing::Test {
protected:
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
    Result request() { return loop.run(prompter->request(TerminalApp::iterm2)); }
    std::optional<AutomationStatus> automatic(bool running = true) {
        return loop.run(prompter->autoRequestIfNeeded(TerminalApp::iterm2, running));
    }
};

} // namespace

TEST_F(AutomationPrompterTest, aPressAsksOnlyWhenThereIsSomethingToAsk) {
    question->locked = true;
    EXPECT_EQ(request(), (Result{Kind::screenLocked}));
    question->locked = false;
    question->checked = consentDenied;
    EXPECT_EQ(request(), (Result{Kind::status, AutomationStatus::denied}));
    EXPECT_TRUE(question->asked.empty());

    flags->set(AutomationPrompter::autoKey(TerminalApp::iterm2)); // binds only the automatic path
    question->checked = std::nullopt;
    const auto pressed = start(prompter->request(TerminalApp::iterm2));
    ASSERT_EQ(question->open.size(), 1u);
    question->answer(0);
    loop.drain();
    EXPECT_EQ(pressed->value().take(), (Result{Kind::status, AutomationStatus::granted}));
}

TEST_F(AutomationPrompterTest, oneQuestionAtATimePerApp) {
    const auto first = start(prompter->request(TerminalApp::iterm2));
    EXPECT_EQ(request(), (Result{Kind::alreadyAsking}));
    EXPECT_FALSE(automatic());
    const auto other = start(prompter->request(TerminalApp::terminal));
    EXPECT_EQ(question->asked, (std::vector<std::string>{"com.googlecode.iterm2", "com.apple.Terminal"}));
    question->answer(std::nullopt);
    loop.drain();
    EXPECT_EQ(first->value().take(), (Result{Kind::status, AutomationStatus::unknown}));
    EXPECT_FALSE(other->has_value());
    question->answer(std::nullopt);
    loop.drain();
    EXPECT_TRUE(other->has_value());

    auto probe = Question::probe(question);
    probe.request = [](const std::string&) -> Task<ConsentCode> { throw std::runtime_error("no display"); };
    const auto failing = std::make_shared<AutomationPrompter>(loop.executor(), probe, flags);
    for (int time = 0; time < 2; ++time) // the question that failed is no longer in flight
        EXPECT_THROW(loop.run(failing->request(TerminalApp::iterm2)), std::runtime_error);
}

TEST_F(AutomationPrompterTest, byItselfItAsksOnceEverAndOnlyWhenItHelps) {
    const auto key = AutomationPrompter::autoKey(TerminalApp::iterm2);
    EXPECT_FALSE(automatic(false));
    question->locked = true;
    EXPECT_FALSE(automatic());
    question->locked = false;
    for (const ConsentCode checked : {ConsentCode(0), ConsentCode(consentDenied), ConsentCode()}) {
        question->checked = checked;
        EXPECT_FALSE(automatic());
    }
    EXPECT_FALSE(flags->isSet(key)) << "nothing was asked yet";

    question->checked = consentNotAsked;
    const auto asked = start(prompter->autoRequestIfNeeded(TerminalApp::iterm2, true));
    EXPECT_TRUE(flags->isSet(key)) << "set while the question is still open";
    question->answer(std::nullopt);
    loop.drain();
    EXPECT_EQ(asked->value().take(), AutomationStatus::unknown);
    EXPECT_FALSE(automatic()) << "a lost answer is not asked for again";
    EXPECT_EQ(question->asked.size(), 1u);
}

TEST(HostAccess, aListScriptsResultSaysHowTheAppIsReached) {
    using enum HostAccess;
    const RunOutput good{0, "", "", false}, failed{1, "", "boom", false}, hung{-15, "", "", true};
    const RunOutput refused{1, "", "execution error: Not authorized (-1743)", false};
    EXPECT_EQ(classifyHostAccess(good, consentDenied, true), ok);
    EXPECT_EQ(classifyHostAccess(failed, consentDenied, false), denied);
    EXPECT_EQ(classifyHostAccess(refused, std::nullopt, false), denied);
    EXPECT_EQ(classifyHostAccess(failed, consentNotAsked, false), waiting);
    EXPECT_EQ(classifyHostAccess(hung, consentNotAsked, true), waiting);
    EXPECT_EQ(classifyHostAccess(failed, 0, true), std::nullopt);
    EXPECT_EQ(classifyHostAccess(hung, 0, true), locked);
    EXPECT_EQ(classifyHostAccess(hung, 0, false), busy);
    EXPECT_EQ(classifyHostAccess(hung, std::nullopt, false), waiting);
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
        {chain(10), {iterm}},
        {chain(11), {}},
        {"10 10 claude\n20 21 claude\n21 20 zsh\n", {}},
        {"10 11 claude\n12 1 iTerm2\n11 1\n1 x y\n", {}},
        {"10 11 vim claude\n11 1 iTerm2\n", {}},
        {"  10   11   /opt/My Tools/claude  \nPID PPID COMM\n11 1 iTerm2\n", {iterm}},
        {"10 11 pi\n11 1 /System/Terminal.app/Contents/MacOS/Terminal\n20 21 codex\n21 1 iTerm2\n",
            {iterm, terminal}},
    };
    for (const auto& [ps, hosts] : rows)
        EXPECT_EQ(TerminalAncestry::hostsWithAgents(ps), hosts) << ps;
}

TEST(SystemHostAccess, aSystemWithoutConsentHasNoOpinion) {
    TestLoop loop;
    const SystemHostAccess access({nullptr, nullptr, [] { return true; }});
    EXPECT_EQ(access.probe().consent("a"), std::nullopt);
    EXPECT_TRUE(access.probe().screenLocked());
    EXPECT_EQ(access.automation().check("a"), std::nullopt);
    EXPECT_EQ(loop.run(access.automation().request("a")), std::nullopt);
}
