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
    bool pageFails = false;
    bool daemonRefuses = false;
    std::function<void()> whilePicking = [] {};

    Task<bool> evaluate(std::string script) override {
        calls.push_back(script);
        if (pageFails)
            throw std::runtime_error("no page");
        co_return false;
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

TEST_F(Onboarding, aTaskKeepsTheCoordinatorNotTheWindow) {
    const auto path = folder.path().string();
    around->choice = path;
    around->whilePicking = [this] {
        window.reset();
        setup.reset();
    };
    EXPECT_TRUE(loop.run(setup->handle(BridgeMessage::ChooseFolder{})));
    EXPECT_EQ(around->calls, (Lines{"pick /home/me", "set " + path}));
}

TEST(FirstRun, thePageReplacesWhateverPathAndQueryTheBaseHas) {
    const std::string page = "http://127.0.0.1:4711/onboarding?shell=native&first_run=";
    EXPECT_EQ(FirstRun::url("http://127.0.0.1:4711/topics/x?scope=work&first_run=7", true), page + "1");
    EXPECT_EQ(FirstRun::url("http://127.0.0.1:4711/", false), page + "0");
    for (const auto* base : {"", "127.0.0.1:4711", "/onboarding", "http://a b/"})
        EXPECT_EQ(FirstRun::url(base, true), std::nullopt) << base;
}

} // namespace

} // namespace kelvadrome::test
