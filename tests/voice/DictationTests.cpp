#include "KelvadromeKit/voice/DictationController.h"
#include "KelvadromeKit/voice/MicRecorder.h"

#include "tests/support/FakeVoice.h"
#include "tests/support/TestLoop.h"

#include <gtest/gtest.h>

namespace kelvadrome::test {
namespace {

using Lines = std::vector<std::string>;
using Status = DictationController::Status;
const std::string startURL = "superwhisper://record/start", stopURL = "superwhisper://record/stop";
const std::string ownURL = "superwhisper://mode?key=kelvadrome", backURL = "superwhisper://mode?key=default";

class DictationTest : public testing::Test {
public:
    std::shared_ptr<DictationController> controller(
        const DictationURLApp& of = DictationURLApp::superwhisper()) {
        return DictationController::make({of, "/Applications/x.app", of.declared},
            {app, app, journal, gate,
                [this](std::string mode, bool back) { return report(std::move(mode), back); }});
    }
    /// Starts it and runs as far as it goes by itself.
    void go(Task<> task) {
        spawn(loop.executor(), "dictation", std::move(task));
        loop.drain();
    }
    void go(Task<bool> task) { go(dropped(std::move(task))); }

    TestLoop loop;
    const std::shared_ptr<FakeDictationApp> app = std::make_shared<FakeDictationApp>();
    const std::shared_ptr<MemoryModeJournal> journal = std::make_shared<MemoryModeJournal>();
    const std::shared_ptr<RecordingGate> gate = std::make_shared<RecordingGate>();
    Lines reports;

private:
    static Task<> dropped(Task<bool> task) { co_await std::move(task); }
    Task<> report(std::string mode, bool back) {
        reports.push_back(mode + (back ? " back" : " away"));
        co_return;
    }
};

TEST_F(DictationTest, aStopDuringTheStartComesAfterIt) {
    const auto dictation = controller();
    app->opening.holds = true;
    go(dictation->start());
    go(dictation->start());
    go(dictation->stop());
    EXPECT_EQ(app->opened, Lines{startURL});
    app->opening.open();
    loop.drain();
    EXPECT_EQ(app->opened, (Lines{startURL, stopURL}));
    EXPECT_FALSE(dictation->recording() || gate->active());
    EXPECT_EQ(dictation->status(), Status::listening) << "the answer is still to come";
    go(dictation->stop());
    EXPECT_EQ(app->opened.size(), 2U);
}

TEST_F(DictationTest, oneRecordingAtATime) {
    const auto dictation = controller();
    gate->begin(RecordingGate::Kind::openAI);
    EXPECT_FALSE(loop.run(dictation->start()));
    EXPECT_EQ(DictationController::text(dictation->status(), "A"), "1 recording is already running.");
    gate->end(RecordingGate::Kind::urlApp);
    EXPECT_TRUE(gate->active()) << "of another kind";
    gate->end(RecordingGate::Kind::openAI);
    app->refuses = {startURL};
    EXPECT_FALSE(loop.run(dictation->start()));
    EXPECT_EQ(DictationController::text(dictation->status(), "A"), "A did not answer.");
    EXPECT_FALSE(gate->active());

    app->refuses = {};
    EXPECT_TRUE(loop.run(dictation->start()));
    dictation->abandon();
    go(dictation->stop());
    EXPECT_FALSE(gate->active());
    EXPECT_FALSE(loop.run(dictation->start()));
    EXPECT_EQ(app->opened, (Lines{startURL, startURL})) << "nothing for an app that lost its proof";
}

TEST_F(DictationTest, theModeIsLentForAsLongAsTheBarIsOpen) {
    struct Row {
        std::string name;
        std::optional<std::string> mode;
        std::function<void()> meanwhile;
        Lines opened, reports;
        std::optional<std::string> mode_, journal;
    };
    const auto nothing = [] {};
    const std::vector<Row> rows{{"lent and given back", "default", nothing, {ownURL, backURL},
                                    {"default away", "default back"}, "default", {}},
        {"the user's own from before", "kelvadrome", nothing, {}, {}, "kelvadrome", {}},
        {"can't be read", {}, nothing, {}, {}, {}, {}},
        {"no plain name", "My Mode", nothing, {}, {}, "My Mode", {}},
        {"changed by hand meanwhile", "default", [&] { app->mode = "notes"; }, {ownURL}, {"default away"},
            "notes", {}},
        {"can't be lent", "default", nothing, {ownURL}, {}, "default", {}},
        {"can't be given back", "default", [&] { app->refuses = {backURL}; }, {ownURL, backURL},
            {"default away"}, "kelvadrome", "default"}};
    for (const auto& row : rows) {
        app->mode = row.mode;
        app->opened.clear();
        app->refuses = row.name == "can't be lent" ? Lines{ownURL} : Lines{};
        reports.clear();
        const auto dictation = controller();
        go(dictation->barOpened(true));
        row.meanwhile();
        go(dictation->barClosed());
        EXPECT_EQ(app->opened, row.opened) << row.name;
        EXPECT_EQ(reports, row.reports) << row.name;
        EXPECT_EQ(app->mode, row.mode_) << row.name;
        EXPECT_EQ(journal->pendingPrevious(), row.journal) << row.name;
        EXPECT_EQ(dictation->status() == Status::modeSwitchFailed,
            row.name.starts_with("can't be lent") || row.name.starts_with("can't be given"));
    }
    app->mode = "default";
    app->opened.clear();
    go(controller(DictationURLApp::spokenly())->barOpened(true));
    go(controller()->barOpened(false));
    EXPECT_EQ(app->opened, Lines{});
}

TEST_F(DictationTest, aBarThatClosesWhileTheModeChangesGivesItBack) {
    const auto dictation = controller();
    app->opening.holds = true;
    go(dictation->barOpened(true));
    EXPECT_EQ(journal->pendingPrevious(), "default") << "written before the app is told";
    go(dictation->barClosed());
    app->opening.open();
    loop.drain();
    EXPECT_EQ(app->opened, (Lines{ownURL, backURL}));
    EXPECT_EQ(app->mode, "default");

    app->reading.holds = true;
    go(dictation->barOpened(true));
    go(dictation->barClosed());
    app->reading.open();
    loop.drain();
    EXPECT_EQ(app->opened.size(), 2U) << "closed before anything was changed";
    EXPECT_EQ(journal->pendingPrevious(), std::nullopt);
}

TEST_F(DictationTest, aModeIsGivenBackAfterACrash) {
    struct Row {
        std::string mode, journal;
        Lines opened;
        std::optional<std::string> left = {};
        bool refuses = false;
    };
    for (const auto& row : {Row{"kelvadrome", "default", {backURL}}, Row{"notes", "default", {}},
             Row{"kelvadrome", "Bad Value", {}}, Row{"kelvadrome", "default", {backURL}, "default", true}}) {
        app->opened.clear();
        app->mode = row.mode;
        app->refuses = row.refuses ? Lines{backURL} : Lines{};
        journal->setPendingPrevious(row.journal);
        go(controller(DictationURLApp::spokenly())->recoverAfterCrash());
        EXPECT_EQ(journal->pendingPrevious(), row.journal) << "it is another app's";
        go(controller()->recoverAfterCrash());
        EXPECT_EQ(app->opened, row.opened);
        EXPECT_EQ(journal->pendingPrevious(), row.left);
    }
}

TEST(MicRecorder, theLimitCutsAndIsToldWithoutTheLock) {
    TestLoop loop;
    const auto audio = std::make_shared<FakeAudio>();
    auto recorder = MicRecorder::make(audio);
    int limits = 0, losses = 0;
    std::vector<std::int16_t> taken;
    const auto start = [&] {
        loop.run(recorder->start({.onLimit =
                                      [&] {
                                          if (++limits == 1)
                                              taken = recorder->stop(); // which takes the lock
                                      },
            .onLost = [&] { ++losses; }}));
    };
    start();
    audio->hear(MicRecorder::limit - 1);
    EXPECT_EQ(limits, 0);
    const auto late = audio->heard();
    audio->hear(10);
    EXPECT_EQ(limits, 1);
    EXPECT_EQ(taken.size(), MicRecorder::limit);
    EXPECT_EQ(recorder->stop().size(), 0U);
    late(std::vector<std::int16_t>(5)); // on its way when it was stopped

    start();
    start();
    EXPECT_EQ(audio->opened, 2);
    audio->hear(3);
    audio->lost()();
    EXPECT_EQ(losses, 1);
    EXPECT_EQ(recorder->stop(), (std::vector<std::int16_t>{7, 7, 7}));
    start();
    recorder.reset();
    EXPECT_FALSE(audio->isOpen());
}

} // namespace
} // namespace kelvadrome::test
