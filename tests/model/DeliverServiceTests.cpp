#include "Kelvadrome/model/DeliverService.h"
#include "KelvadromeKit/delivery/Presence.h"

#include "tests/support/FakeFrontEnd.h"
#include "tests/support/FakePage.h"
#include "tests/support/ScriptedRunner.h"
#include "tests/support/TestLoop.h"

#include <boost/json/parse.hpp>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <deque>

namespace kelvadrome::test {
namespace {

using Lines = std::vector<std::string>;

constexpr auto data = &FakePage::data;

HTTPResponse failure(const std::string& code) {
    return FakePage::failure(code, "no");
}

/// The daemon's side of delivery. A claim without a prepared reply is held, as a long poll is.
class DeliverPage final : public FakePage {
public:
    using Answer = std::function<HTTPResponse(const boost::json::object&)>;

    std::deque<HTTPResponse> claims;
    std::map<std::string, Answer> answers; // by path
    std::function<void()> onClaim = [] {};

    void deliver(HTTPResponse reply) {
        claims.push_back(std::move(reply));
        if (held_)
            std::exchange(held_, {})(true);
    }

    std::vector<boost::json::object> bodies(const std::string& path) const {
        std::vector<boost::json::object> found;
        for (const auto& post : posts) {
            if (post.url == origin() + path)
                found.push_back(boost::json::parse(post.body.value()).as_object());
        }
        return found;
    }

protected:
    Task<HTTPResponse> answer(std::string path) override {
        if (path != "/v1/deliver/claim") {
            const auto known = answers.find(path);
            co_return known == answers.end() ? FakePage::failure("not_found", "no")
                                             : known->second(bodies(path).back());
        }
        if (claims.empty()) {
            auto hold = [this](Completion<bool> finish) {
                held_ = std::move(finish);
                return [this] {
                    if (held_)
                        std::exchange(held_, {})(false);
                };
            };
            const bool delivered = co_await suspendUntil<bool>(hold);
            if (!delivered)
                throw boost::system::system_error(asio::error::operation_aborted);
        }
        onClaim();
        const auto reply = claims.front();
        claims.pop_front();
        co_return reply;
    }

private:
    std::function<void(bool)> held_;
};

class DeliverServiceTest : public testing::Test {
protected:
    DeliverServiceTest() {
        page->answers["/v1/deliver/report"] = [this](const boost::json::object& body) {
            return body.at("outcome") == "start" ? startReply : doneReply;
        };
        page->answers["/v1/live/hosts"] = [](const auto&) { return data("{}"); };
        runner->on("tmux select-pane", ScriptedRunner::says(""));
    }
    ~DeliverServiceTest() override {
        if (service)
            service->stop();
        loop.drain();
    }

    void begin() {
        session = std::make_shared<PageSession>(loop.executor(), page, FakePage::mint);
        const AutomationProbe automation{[this](const std::string& bundle) { return consent[bundle]; },
            [](std::string) -> Task<ConsentCode> { co_return 0; }, [] { return false; }};
        prompter = std::make_shared<AutomationPrompter>(
            loop.executor(), automation, std::make_shared<MemoryFlags>());
        service = std::make_shared<DeliverService>(DeliverService::Dependencies{.executor = loop.executor(),
            .clock = clock,
            .session = session,
            .live = {runner, {{"tmux", "/opt/tmux"}}, clock, "/h"},
            .prompter = prompter,
            .probe = {[this](const std::string& bundle) { return consent[bundle]; }, [] { return false; }},
            .apps = apps});
        service->start();
        service->start();
        loop.drain();
    }

    static std::string job(const std::string& id, const std::string& session = "s1",
        const std::string& rest = R"("type":"focus")") {
        return fmt::format(R"({{"id":"{}","agent":"claude","host":"tmux","host_ref":"%1","tty":"ttys001",)"
                           R"("presence":"{}","expires_at":"2030-01-01T00:00:00Z",{}}})",
            id, Presence::tag(session), rest);
    }
    static Task<> endOf(std::shared_ptr<DeliverService> service, double limit, bool* ended) {
        co_await service->finish(limit);
        *ended = true;
    }
    void claim(const std::vector<std::string>& jobs) {
        page->deliver(data(fmt::format(R"({{"jobs":[{}]}})", fmt::join(jobs, ","))));
        loop.drain();
    }
    /// The reports as "j1 start", "j1 refused: why".
    std::vector<std::string> reports() const {
        std::vector<std::string> lines;
        for (const auto& body : page->bodies("/v1/deliver/report")) {
            auto line = std::string(body.at("job_id").as_string()) + " " +
                        std::string(body.at("outcome").as_string());
            if (const auto* reason = body.if_contains("reason"))
                line += ": " + std::string(reason->as_string());
            lines.push_back(line);
        }
        return lines;
    }
    std::size_t asked(const std::string& path) const { return page->bodies(path).size(); }
    void pass(double seconds) { loop.advance(*clock, seconds); }

    void runITerm(const std::string& list) {
        apps->running.insert("com.googlecode.iterm2");
        runner->on("itermList", ScriptedRunner::says(list));
    }

    TestLoop loop;
    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    std::shared_ptr<DeliverPage> page = std::make_shared<DeliverPage>();
    std::shared_ptr<ScriptedRunner> runner = std::make_shared<ScriptedRunner>();
    std::shared_ptr<FakeApps> apps = std::make_shared<FakeApps>();
    std::map<std::string, ConsentCode> consent;
    std::shared_ptr<PageSession> session;
    std::shared_ptr<AutomationPrompter> prompter;
    std::shared_ptr<DeliverService> service;
    HTTPResponse startReply = data(R"({"proceed":true})");
    HTTPResponse doneReply = data("{}");
};

TEST_F(DeliverServiceTest, jobsAreSeenThroughOneByOneAndTheNextClaimFollowsAtOnce) {
    begin();
    EXPECT_EQ(asked("/v1/deliver/claim"), 1U) << "a second start starts nothing";
    EXPECT_EQ(page->bodies("/v1/deliver/claim")[0], (boost::json::object{{"wait_ms", 8000}}));
    claim({job("j1"), job("j2")});
    EXPECT_EQ(reports(), (Lines{"j1 start", "j1 done", "j2 start", "j2 done"}));
    EXPECT_EQ(page->bodies("/v1/deliver/report")[1],
        (boost::json::object{{"job_id", "j1"}, {"outcome", "done"}, {"path", "host"}}));
    EXPECT_EQ(service->lastOutcome(), "focus done");
    EXPECT_EQ(asked("/v1/deliver/claim"), 2U);

    // A final report that is lost isn't repeated and holds nothing up.
    page->posts.clear();
    doneReply = failure("broken");
    claim({job("j3"), job("j4")});
    EXPECT_EQ(reports(), (Lines{"j3 start", "j3 done", "j4 start", "j4 done"}));
}

TEST_F(DeliverServiceTest, onlyAClearYesLetsAJobBegin) {
    const std::pair<HTTPResponse, const char*> rows[] = {
        {data(R"({"proceed":false,"reason":"gone"})"), "gone"},
        {data("{}"), "the job is no longer valid"},
        {failure("conflict"), "the daemon did not confirm the job"},
        {data(R"({"proceed":"yes"})"), "the daemon did not confirm the job"},
    };
    begin();
    for (const auto& [reply, reason] : rows) {
        startReply = reply;
        claim({job("j")});
        EXPECT_EQ(reports().back(), std::string("j refused: ") + reason);
    }
    EXPECT_TRUE(runner->lines("select-pane").empty());
}

TEST_F(DeliverServiceTest, aJobOfAnotherPageSessionIsRefusedAndTheRefusalReported) {
    const Lines refusal{"j refused: the answer was not pressed in this app"};
    begin();
    claim({job("j", "s2")});
    EXPECT_EQ(reports(), refusal);

    // Logged out while the claim's reply was on its way: no tag at all.
    page->posts.clear();
    page->onClaim = [this] { spawn(loop.executor(), "reset", session->reset()); };
    claim({job("j")});
    EXPECT_EQ(reports(), refusal);
}

TEST_F(DeliverServiceTest, aDaemonWithoutDeliveryIsAskedRarelyAndAnyOtherErrorSoonAgain) {
    const std::pair<HTTPResponse, double> rows[] = {
        {failure("not_implemented"), 30}, {failure("not_found"), 30}, {failure("busy"), 2}, {data("{}"), 2}};
    begin();
    for (const auto& [reply, pause] : rows) {
        const auto before = asked("/v1/deliver/claim");
        page->deliver(reply);
        loop.drain();
        pass(pause - 0.1);
        EXPECT_EQ(asked("/v1/deliver/claim"), before) << reply.body;
        pass(0.2);
        EXPECT_EQ(asked("/v1/deliver/claim"), before + 1) << reply.body;
    }
}

TEST_F(DeliverServiceTest, anUnchangedPictureIsRepeatedAfterTwentySecondsAsASignOfLife) {
    begin();
    pass(20.1);
    EXPECT_EQ(asked("/v1/live/hosts"), 1U);
    clock->shiftWall(-3600);
    pass(5);
    EXPECT_EQ(asked("/v1/live/hosts"), 2U);

    runITerm("/dev/ttys003\tABC\tmy tab\ttrue\n");
    pass(5);
    ASSERT_EQ(asked("/v1/live/hosts"), 3U) << "a change goes out with the next beat";
    const auto latest = page->bodies("/v1/live/hosts").back();
    EXPECT_EQ(latest.at("hosts").as_array().at(0).as_object().at("tty"), "ttys003");
    EXPECT_EQ(latest.at("access"), boost::json::parse(R"({"iterm2":"ok"})"));
    consent["com.googlecode.iterm2"] = consentNotAsked;
    page->answers["/v1/live/hosts"] = [](const auto&) { return failure("busy"); };
    pass(10);
    EXPECT_EQ(asked("/v1/live/hosts"), 5U) << "what the daemon didn't take is tried again";
}

TEST_F(DeliverServiceTest, tabsAreNamedTwelveAtATimeAndOnlyASuccessIsRemembered) {
    std::string list;
    std::vector<std::string> rows;
    for (int i = 1; i <= 20; ++i) {
        list += fmt::format("/dev/ttys{:03}\tR{}\t\tfalse\n", i, i);
        rows.push_back(fmt::format(
            R"({{"key":"k{}","host":"iterm2","tty":"ttys{:03}","callsign":"Ada-{}","status":"working"}})", i,
            i, i));
    }
    page->answers["/v1/sessions/live"] = [&](const auto&) {
        return data(fmt::format(R"({{"sessions":[{}]}})", fmt::join(rows, ",")));
    };
    runner->on("itermLabel", ScriptedRunner::says("ok\n"));
    runner->on("itermLabel /dev/ttys002", {ScriptedRunner::says("moved\n"), ScriptedRunner::says("ok")});
    runITerm(list);
    begin();
    EXPECT_EQ(runner->lines("itermLabel").at(0), "osascript itermLabel /dev/ttys001 R1 Ada-1");
    for (const std::size_t soFar : {12U, 21U, 21U}) { // ttys002 comes back until it says ok
        EXPECT_EQ(runner->lines("itermLabel").size(), soFar);
        pass(5);
    }
}

TEST_F(DeliverServiceTest, whatEscapesAJobOrABeatEndsNeitherLoop) {
    bool broken = true;
    const auto breaking = [&broken](std::string text) {
        return [&broken, text] {
            if (broken)
                throw std::runtime_error("no thread to spare");
            return ScriptedRunner::says(text);
        };
    };
    runITerm("");
    runner->on("itermList", breaking("/dev/ttys003\tABC\tmy tab\ttrue\n"));
    runner->on("tmux select-pane", breaking(""));
    begin();
    claim({job("j1"), job("j2")});
    const auto end = " failed: the delivery broke off";
    EXPECT_EQ(reports(), (Lines{"j1 start", std::string("j1") + end, "j2 start", std::string("j2") + end}));
    EXPECT_EQ(asked("/v1/live/hosts"), 0U);
    broken = false;
    claim({job("j3")});
    pass(5);
    EXPECT_EQ(reports().back(), "j3 done");
    EXPECT_EQ(asked("/v1/live/hosts"), 1U);
}

TEST_F(DeliverServiceTest, theLoopsEndWithTheServiceAndWithStop) {
    begin();
    const std::weak_ptr<DeliverService> weak = service;
    page->deliver(failure("not_found")); // the claim loop now sleeps
    loop.drain();
    service.reset();
    EXPECT_TRUE(weak.expired()) << "no loop keeps it while it waits";
    pass(31);
    EXPECT_EQ(clock->sleepers(), 0U);

    begin();
    service->stop();
    loop.drain();
    EXPECT_EQ(clock->sleepers(), 0U);
}

TEST_F(DeliverServiceTest, anAnswerOnItsWayEndsWithItsReportBeforeTheServiceDoes) {
    runner->on("tmux send-keys", ScriptedRunner::says(""));
    runner->on("tmux display-message", ScriptedRunner::says("/dev/ttys001 0 0 0\n"));
    runner->on("ps -o", ScriptedRunner::says("7 7 7 ttys001 claude\n"));
    const std::string typing = R"("type":"answer","pid":7,"steps":[{"kind":"text","text":"yes"}])";
    for (const bool slow : {false, true}) {
        begin();
        claim({job("j1", slow ? "s2" : "s1", typing), job("j2")}); // now in the pause between text and Return
        bool ended = false;
        spawn(loop.executor(), "finish", endOf(service, slow ? 0.2 : 8, &ended));
        loop.drain();
        EXPECT_FALSE(ended);
        pass(0.25); // Return goes out
        if (!slow)
            pass(0.1);
        EXPECT_TRUE(ended) << "after its limit at the latest";
        pass(20);
        EXPECT_EQ(clock->sleepers(), 0U);
    }
    EXPECT_EQ(reports(), (Lines{"j1 start", "j1 done", "j1 start"})) << "and begins no other";
}

} // namespace
} // namespace kelvadrome::test
