#include "KelvadromeKit/voice/SpeechPipeline.h"
#include "KelvadromeKit/voice/TranscriptionError.h"

#include "tests/support/FakeVoice.h"
#include "tests/support/TestLoop.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

namespace kelvadrome::test {
namespace {

using Lines = std::vector<std::string>;
using Case = TranscriptionError::Case;

/// A ledger that writes down what it is told.
class FakeLedger final : public BudgetLedger {
public:
    Lines calls;
    BudgetGrant grant = BudgetGrant::granted("r");
    bool broken = false;
    Barrier asking, settling;

    Task<BudgetGrant> reserve(std::string engine, std::string model, std::int64_t seconds) override {
        calls.push_back(fmt::format("reserve {} {} {}", engine, model, seconds));
        co_await asking.pass();
        if (broken)
            throw std::runtime_error("no daemon");
        co_return grant;
    }
    Task<> used(std::string reservation, std::int64_t seconds, bool ok) override {
        calls.push_back(fmt::format("used {} {} {}", reservation, seconds, ok));
        co_await settling.pass();
        calls.emplace_back("settled");
    }
};

class SpeechPipelineTest : public testing::Test {
public:
    SpeechPipelineTest() { secrets->set("key"); }

    SpeechPipeline pipeline(const std::string& model = "gpt-4o-mini-transcribe") {
        return {OpenAITranscriber(model, {secrets, http, &loop.pool()}), ledger};
    }
    /// The text, or the words of the failure.
    std::string result(double seconds = 1) {
        try {
            return loop.run(pipeline().transcribe("wav", seconds));
        } catch (const TranscriptionError& error) {
            return error.errorDescription();
        }
    }
    /// Cancels a call when `reached` holds, lets everything go on and waits for its end.
    void cancelAt(const std::function<bool()>& reached, const std::function<void()>& goOn) {
        const auto handle = spawn(loop.executor(), "clip", take());
        loop.until(reached, "the moment to cancel");
        handle.cancel();
        loop.drain();
        EXPECT_FALSE(ended && !ledger->calls.empty() && ledger->calls.back() != "settled")
            << "ended before its grant was settled";
        goOn();
        loop.until([&] { return ended; }, "the end of the call");
    }

    TestLoop loop;
    const std::shared_ptr<FakeLedger> ledger = std::make_shared<FakeLedger>();
    const std::shared_ptr<FakePoster> http = std::make_shared<FakePoster>();
    const std::shared_ptr<MemorySecretStore> secrets = std::make_shared<MemorySecretStore>();
    bool ended = false;
    std::optional<std::string> text;

private:
    Task<> take() {
        auto call = pipeline().transcribe("wav", 1);
        auto outcome = co_await attempt(std::move(call));
        ended = true;
        if (outcome)
            text = *outcome;
    }
};

TEST_F(SpeechPipelineTest, eachGrantIsSettledOnceAndNothingLeavesWithoutOne) {
    const std::string settledBadly = "used r 1 false", vague = "Couldn't transcribe that. Try again.";
    struct Row {
        std::string name;
        std::function<void()> fault;
        std::string result;
        std::string settled; // empty: nothing was granted
        std::size_t sent = 1;
    };
    const auto reply = [this](std::int64_t status, std::string body = "{}") {
        return [this, status, body] { http->reply = {body, status}; };
    };
    const std::vector<Row> rows{{"all well", [] {}, "hello", "used r 1 true"},
        {"no words", reply(204, R"({"text":" "})"), "", "used r 1 true"},
        {"no daemon", [this] { ledger->broken = true; },
            "kelvadrome could not check today's voice limit. Nothing was sent.", "", 0},
        {"over the limit", [this] { ledger->grant = BudgetGrant::denied(31.5); },
            "Daily voice limit reached.", "", 0},
        {"no key", [this] { secrets->remove(); }, "Add your OpenAI key in Settings, Voice.", settledBadly, 0},
        {"a key with a header in it", [this] { secrets->set("a\r\nX: y"); },
            "Add your OpenAI key in Settings, Voice.", settledBadly, 0},
        {"no server", [this] { http->broken = true; }, vague, settledBadly},
        {"refused", reply(401), "OpenAI refused the key (401).", settledBadly},
        {"busy", reply(429), "OpenAI is busy or the key has no credit (429).", settledBadly},
        {"broken", reply(500), vague + " (HTTP 500)", settledBadly},
        {"not JSON", reply(200, "hello"), vague, settledBadly},
        {"no text", reply(200, R"({"text":7})"), vague, settledBadly}};
    for (const auto& row : rows) {
        ledger->broken = http->broken = false;
        ledger->grant = BudgetGrant::granted("r");
        ledger->calls.clear();
        http->sent.clear();
        http->reply = {R"({"text":" hello \n"})", 200};
        secrets->set("key");
        row.fault();
        EXPECT_EQ(result(), row.result) << row.name;
        EXPECT_EQ(http->sent.size(), row.sent) << row.name;
        Lines calls{"reserve openai gpt-4o-mini-transcribe 1"};
        if (!row.settled.empty())
            calls.insert(calls.end(), {row.settled, "settled"});
        EXPECT_EQ(ledger->calls, calls) << row.name;
    }
}

TEST_F(SpeechPipelineTest, wholeSecondsAreChargedAndLongClipsRefused) {
    for (const auto& [seconds, charged] :
        std::vector<std::pair<double, int>>{{0.2, 1}, {1.01, 2}, {120, 120}}) {
        ledger->calls.clear();
        EXPECT_EQ(result(seconds), "hello");
        EXPECT_EQ(ledger->calls[1], fmt::format("used r {} true", charged));
    }
    ledger->calls.clear();
    EXPECT_EQ(result(120.01), "Clips stop at 120 seconds.");
    EXPECT_EQ(ledger->calls, Lines{});
    loop.run(pipeline("whisper-9").transcribe("wav", 1));
    EXPECT_EQ(ledger->calls[0], "reserve openai gpt-transcribe 1");
    EXPECT_NE(http->sent.front().headers.at("Content-Type"), http->sent.back().headers.at("Content-Type"));
}

TEST_F(SpeechPipelineTest, aCancelledClipStillSettlesWhatItWasGranted) {
    ledger->asking.holds = true;
    cancelAt([&] { return ledger->asking.waiting() == 1; }, [&] { ledger->asking.open(); });
    EXPECT_EQ(http->sent.size(), 0U) << "the grant came after the cancellation";
    EXPECT_EQ(ledger->calls.back(), "settled");
    EXPECT_EQ(ledger->calls[1], "used r 1 false");

    ended = false;
    ledger->calls.clear();
    http->wire.holds = ledger->settling.holds = true;
    cancelAt([&] { return http->wire.waiting() == 1; }, [&] { ledger->settling.open(); });
    EXPECT_EQ(ledger->calls.size(), 3U);
    EXPECT_EQ(ledger->calls[1], "used r 1 false");
    http->wire.open();

    ended = false;
    ledger->calls.clear();
    ledger->settling.holds = true;
    cancelAt([&] { return ledger->settling.waiting() == 1; }, [&] { ledger->settling.open(); });
    EXPECT_EQ(ledger->calls[1], "used r 1 true");
    EXPECT_EQ(ledger->calls.size(), 3U) << "once";
}

} // namespace
} // namespace kelvadrome::test
