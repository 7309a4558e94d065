#include "Kelvadrome/platform/linux/audio/PocketSphinxEngine.h"
#include "Kelvadrome/platform/linux/audio/RequestLanguage.h"
#include "Kelvadrome/platform/linux/audio/SphinxDecoder.h"
#include "KelvadromeKit/voice/AudioSource.h"

#include "tests/support/TestLoop.h"
#include "tests/support/VirtualMicrophone.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace kelvadrome::test {
namespace {

struct PocketSphinxTest : testing::Test {
    void SetUp() override {
        ASSERT_FALSE(engine->installedLocales().empty()) << "is the package pocketsphinx-en-us installed?";
    }
    void TearDown() override {
        engine.reset();
        loop.drain(); // ends what waits for the clock
    }
    static Clip clip(const std::string& sentence) {
        return std::make_shared<const std::vector<std::int16_t>>(spoken(sentence, "slt"));
    }
    std::string hear(Clip clip) { return loop.run(engine->transcribe(std::move(clip), "en-US")); }

    TestLoop loop;
    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    std::shared_ptr<PocketSphinxEngine> engine = std::make_shared<PocketSphinxEngine>(loop.pool(), clock);
};

Task<> keep(std::shared_ptr<PocketSphinxEngine> engine, Clip clip,
    std::shared_ptr<Outcome<std::string>> outcome, std::shared_ptr<bool> ended) {
    auto heard = co_await attempt(engine->transcribe(std::move(clip), "en-US"));
    *outcome = std::move(heard);
    *ended = true;
}

} // namespace

TEST_F(PocketSphinxTest, requestsAreHeardOneAfterTheOtherAndAtTheSameTime) {
    EXPECT_FALSE(engine->loaded());
    EXPECT_EQ(hear(std::make_shared<const std::vector<std::int16_t>>(voiceSampleRate)), "");
    EXPECT_EQ(hear(clip("tell claude to run the tests")), "tell claude to run the tests");
    EXPECT_EQ(hear(clip("ask codex to review the pull request")), "ask codex to review the pull request");
    auto [first, second] = loop.run(gather(engine->transcribe(clip("show me the open questions"), "en-US"),
        engine->transcribe(clip("what is waiting for me"), "en-US")));
    EXPECT_EQ(first.take(), "show me the open questions");
    EXPECT_EQ(second.take(), "what is waiting for me");
}

TEST_F(PocketSphinxTest, theModelGoesWhenItWasIdle) {
    hear(clip("yes"));
    clock->advance(PocketSphinxEngine::idleLimit - 1);
    hear(clip("no")); // begins the time anew
    clock->advance(PocketSphinxEngine::idleLimit - 1);
    loop.drain();
    EXPECT_TRUE(engine->loaded());
    clock->advance(1);
    loop.until([&] { return !engine->loaded(); }, "the model to go");
    EXPECT_EQ(hear(clip("stop")), "stop");
}

TEST_F(PocketSphinxTest, theModelIsLoadedAheadAndGoesUnused) {
    auto [ready, again, text] =
        loop.run(gather(engine->prepare(), engine->prepare(), engine->transcribe(clip("stop"), "en-US")));
    EXPECT_TRUE(ready && again);
    EXPECT_EQ(text.take(), "stop");
    loop.run(engine->prepare());
    clock->advance(PocketSphinxEngine::idleLimit);
    loop.until([&] { return !engine->loaded(); }, "the model to go");
    loop.run(engine->prepare());
    EXPECT_TRUE(engine->loaded());
}

TEST_F(PocketSphinxTest, aCancelledCallerIsLetGoAndTheNextIsServed) {
    const auto sentence = spoken("tell claude to stop", "slt");
    std::vector<std::int16_t> samples;
    for (int i = 0; i < 20; ++i)
        samples.insert(samples.end(), sentence.begin(), sentence.end());
    const auto outcome = std::make_shared<Outcome<std::string>>();
    const auto ended = std::make_shared<bool>(false);
    const auto handle = spawn(loop.executor(), "a long clip",
        keep(engine, std::make_shared<const std::vector<std::int16_t>>(samples), outcome, ended));
    loop.drain();
    handle.cancel();
    loop.until([&] { return *ended; }, "the cancelled caller to go on");
    EXPECT_TRUE(isCancellation(outcome->error()));
    EXPECT_EQ(hear(clip("tell claude to stop")), "tell claude to stop");
}

TEST_F(PocketSphinxTest, withoutAModelThereIsNoLanguageAndNoEngine) {
    const auto bare =
        std::make_shared<PocketSphinxEngine>(loop.pool(), clock, std::vector<std::string>{"/nowhere"});
    EXPECT_TRUE(bare->installedLocales().empty());
    EXPECT_THROW(loop.run(bare->transcribe(clip("yes"), "en-US")), std::runtime_error);
    EXPECT_THROW(SphinxDecoder("/nowhere"), std::runtime_error);
    EXPECT_THROW(requestLanguageModel("Order: tell $nobody"), std::runtime_error);
}

TEST(FirstPiece, aLongClipIsCutWhereItIsQuiet) {
    std::vector<std::int16_t> samples(30 * voiceSampleRate, 1000);
    const auto quiet = samples.begin() + 8 * voiceSampleRate;
    std::fill(quiet, quiet + voiceSampleRate / 2, std::int16_t{0});
    const auto first = firstPiece(samples);
    EXPECT_GT(first.size(), 8u * voiceSampleRate);
    EXPECT_LT(first.size(), 8.5 * voiceSampleRate);
    EXPECT_EQ(firstPiece(std::span(samples).first(12 * voiceSampleRate)).size(), 12u * voiceSampleRate);
}

} // namespace kelvadrome::test
