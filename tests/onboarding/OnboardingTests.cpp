#include "KelvadromeKit/onboarding/FirstRun.h"
#include "KelvadromeKit/onboarding/OnboardingCoordinator.h"

#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestLoop.h"

#include <gtest/gtest.h>

#include <fstream>
#include <stdexcept>

namespace kelvadrome::test {

namespace {

using Lines = std::vector<std::string>;

/// The window's side, the picker and the daemon; each writes down what it was asked, in one order.
struct Around final : OnboardingHost, FolderPicking {
    Lines calls;
    std::optional<std::string> choice;
    bool pickerFails = false;
    bool pageTakes = false;
    bool pageFails = false;
    bool daemonRefuses = false;
    std::function<void()> whilePicking = [] {};

    Task<bool> evaluate(std::string script) override {
        calls.push_back(script);
        if (pageFails)
            throw std::runtime_error("no page");
        co_return pageTakes;
    }
    void reloadPage() override { calls.emplace_back("reload"); }
    void closeOnboardingWindow() override { calls.emplace_back("close"); }
    void openMainWindowOnInbox() override { calls.emplace_back("inbox"); }
    Task<std::optional<std::string>> pick(std::string startingAt) override {
        calls.push_back("pick " + startingAt);
        whilePicking();
        if (pickerFails)
            throw std::runtime_error("no dialog");
        co_return choice;
    }
    Task<> setFolder(std::string path) {
        calls.push_back("set " + path);
        if (daemonRefuses)
            throw std::runtime_error("the daemon's own words");
        co_return;
    }
};

class Onboarding : public testing::Test {
protected:
    TestLoop loop;
    TemporaryFolder folder;
    std::shared_ptr<Around> around = std::make_shared<Around>(); // as the picker and the daemon
    std::shared_ptr<OnboardingHost> window{around.get(), [](OnboardingHost*) {}};
    std::shared_ptr<OnboardingCoordinator> setup = std::make_shared<OnboardingCoordinator>(
        window, around, [this](std::string path) { return around->setFolder(std::move(path)); }, "/home/me");

    Lines choose(std::optional<std::string> path) {
        around->choice = std::move(path);
        around->calls.clear();
        EXPECT_TRUE(loop.run(setup->handle(BridgeMessage::ChooseFolder{})));
        return around->calls;
    }
    static std::string script(const std::string& literal) {
        return "(function(){var b=window.kelvadrome;if(b&&typeof "
               "b.folderChosen==='function'){b.folderChosen(" +
               literal + ");return true}return false})()";
    }
};

TEST_F(Onboarding, keepsWhatThePageSaysOfItselfAndLeavesTheRestToOthers) {
    EXPECT_TRUE(loop.run(setup->handle(BridgeMessage::Onboarding{"agents", true})));
    EXPECT_EQ(setup->step(), "agents");
    EXPECT_TRUE(setup->primaryEnabled());
    const std::vector<BridgeMessage::Message> others{BridgeMessage::Ready{},
        BridgeMessage::RunSkill{"r", "kd run"}, BridgeMessage::Other{"action", "open"}};
    for (const auto& message : others)
        EXPECT_FALSE(loop.run(setup->handle(message)));
    EXPECT_EQ(around->calls, Lines{});
}

TEST_F(Onboarding, aPageThatTakesTheFolderSendsItByItself) {
    around->pageTakes = true;
    const auto path = folder / "a \"quoted\" name";
    std::filesystem::create_directory(path);
    EXPECT_EQ(
        choose(path), (Lines{"pick /home/me", script("\"" + (folder / "a \\\"quoted\\\" name") + "\"")}));
    EXPECT_EQ(setup->lastFolder(), path);
    EXPECT_EQ(setup->lastError(), std::nullopt);
}

TEST_F(Onboarding, anotherPageIsReloadedOnceTheDaemonHasTheFolder) {
    const auto path = folder.path().string();
    const Lines calls{"pick /home/me", script("\"" + path + "\""), "set " + path, "reload"};
    EXPECT_EQ(choose(path), calls);
    around->pageFails = true;
    EXPECT_EQ(choose(path), calls);

    around->daemonRefuses = true;
    EXPECT_EQ(choose(path), Lines(calls.begin(), calls.end() - 1));
    EXPECT_EQ(setup->lastError(), "kelvadrome could not use that folder yet.");
    EXPECT_EQ(setup->lastFolder(), path);
    EXPECT_EQ(choose(std::nullopt), Lines{"pick /home/me"});
    EXPECT_EQ(setup->lastError(), std::nullopt) << "the next choice begins afresh";
}

TEST_F(Onboarding, whatIsNoFolderChangesNothing) {
    choose(folder.path().string());
    const auto file = folder / "file";
    std::ofstream(file) << "x";
    const auto unspeakable = folder / "caf\xE9"; // neither the page nor the daemon can be told
    std::filesystem::create_directory(unspeakable);
    for (const auto& path : {file, folder / "missing", std::string("."), std::string(), unspeakable}) {
        EXPECT_EQ(choose(path), Lines{"pick /home/me"}) << path;
        EXPECT_EQ(setup->lastError(), "That folder is not available.") << path;
        EXPECT_EQ(setup->lastFolder(), folder.path().string()) << path;
    }
    around->pickerFails = true;
    EXPECT_EQ(choose(file), Lines{"pick /home/me"});
    EXPECT_EQ(setup->lastError(), std::nullopt);
}

TEST_F(Onboarding, aWindowThatGoesWhileTheUserPicksIsNotCalledAgain) {
    const auto path = folder.path().string();
    around->whilePicking = [this] { window.reset(); };
    EXPECT_EQ(choose(path), (Lines{"pick /home/me", "set " + path}));
    EXPECT_EQ(setup->lastError(), std::nullopt);
    EXPECT_TRUE(loop.run(setup->handle(BridgeMessage::OnboardingDone{})));
    EXPECT_EQ(around->calls.back(), "set " + path);
}

TEST_F(Onboarding, aTaskKeepsTheCoordinatorNotTheWindow) {
    around->choice = folder.path().string();
    auto task = setup->handle(BridgeMessage::ChooseFolder{});
    setup.reset();
    EXPECT_EQ(window.use_count(), 1);
    EXPECT_TRUE(loop.run(std::move(task)));
    EXPECT_EQ(around->calls.back(), "reload");
}

TEST_F(Onboarding, closingAsksUntilSetupIsDoneAndOnlyOnceAtATime) {
    using Decision = OnboardingCoordinator::CloseDecision;
    EXPECT_EQ(setup->closeRequested(), Decision(ClosePrompt::finishLater));
    std::vector<Completion<bool>> questions;
    const OnboardingCoordinator::Ask ask = [&](ClosePrompt) {
        const auto keep = [&questions](Completion<bool> answer) { questions.push_back(std::move(answer)); };
        return suspendUntil<bool>(keep);
    };
    for (const bool later : {false, true}) {
        std::optional<bool> closes;
        const auto request = [](Task<bool> may, std::optional<bool>* result) -> Task<> {
            *result = co_await std::move(may);
        };
        spawn(loop.executor(), "first request", request(setup->mayClose(ask), &closes));
        loop.until([&] { return questions.size() == 1; }, "the question");
        EXPECT_FALSE(loop.run(setup->mayClose(ask)));
        EXPECT_EQ(questions.size(), 1U) << "a second request asks nothing";
        questions.front()(later);
        loop.until([&] { return closes.has_value(); }, "the answer");
        EXPECT_EQ(closes, later);
        questions.clear();
    }
    const OnboardingCoordinator::Ask failing = [](ClosePrompt) -> Task<bool> {
        throw std::runtime_error("no sheet");
        co_return true;
    };
    EXPECT_FALSE(loop.run(setup->mayClose(failing)));

    EXPECT_TRUE(loop.run(setup->handle(BridgeMessage::OnboardingDone{})));
    EXPECT_EQ(around->calls, (Lines{"close", "inbox"}));
    EXPECT_EQ(setup->closeRequested(), Decision(OnboardingCoordinator::Close{}));
    EXPECT_TRUE(loop.run(setup->mayClose(ask)));
    EXPECT_TRUE(questions.empty());
}

TEST(FirstRun, thePageReplacesWhateverPathAndQueryTheBaseHas) {
    const std::string page = "http://127.0.0.1:4711/onboarding?shell=native&first_run=";
    EXPECT_EQ(FirstRun::url("http://127.0.0.1:4711/topics/x?scope=work&first_run=7", true), page + "1");
    EXPECT_EQ(FirstRun::url("http://127.0.0.1:4711/", false), page + "0");
    for (const auto* base : {"", "127.0.0.1:4711", "/onboarding", "http://a b/"})
        EXPECT_EQ(FirstRun::url(base, true), std::nullopt) << base;
}

TEST(FirstRun, aQuitIsQuestionedOnlyWhileSomethingIsInstalling) {
    EXPECT_EQ(FirstRun::quitPrompt({}), std::nullopt);
    EXPECT_EQ(FirstRun::quitPrompt({"Codex", "Claude"}), "Codex and Claude are installing. Quit anyway?");
    EXPECT_EQ(FirstRun::quitPrompt({"A", "B", "C"}), "A, B and C are installing. Quit anyway?");
}

} // namespace

} // namespace kelvadrome::test
