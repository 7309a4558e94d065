#include "KelvadromeKit/support/Files.h"

#include "tests/daemon/LoginItem.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kelvadrome::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using State = BackgroundService::State;
using Status = BackgroundServiceStatus;

constexpr const char* preference = BackgroundService::preferenceKey;
constexpr const char* build = BackgroundService::buildKey;

TEST(BackgroundService, launchIsReconciledWithThePreference) {
    struct Row {
        const char* what;
        std::optional<DefaultsValue> wish;
        std::optional<std::string> builtBy;
        Status before;
        std::vector<std::string> calls;
        State after;
        AgentRegistration registered = AgentRegistration::current;
    };
    const DefaultsValue yes = true, no = false;
    const std::vector<std::string> anew = {"unregister", "register"};
    const std::vector<Row> rows = {
        {"unset and off", {}, {}, Status::notRegistered, {}, {Status::notRegistered, false}},
        {"unset and on", {}, "7", Status::enabled, {}, {Status::enabled, true}},
        {"unset, on and old", {}, "6", Status::enabled, anew, {Status::enabled, true}},
        {"wanted and off", yes, "6", Status::notRegistered, {"register"}, {Status::enabled, true}},
        {"wanted, build unknown", yes, {}, Status::enabled, anew, {Status::enabled, true}},
        {"moved", yes, "7", Status::enabled, anew, {Status::enabled, true}, AgentRegistration::outdated},
        {"another's", yes, "6", Status::enabled, {}, {Status::enabled, true}, AgentRegistration::elsewhere},
        {"wanted and waiting", yes, "6", Status::requiresApproval, {}, {Status::requiresApproval, true}},
        {"unwanted and on", no, "6", Status::enabled, {"unregister"}, {Status::notRegistered, false}},
        {"unwanted and waiting", no, {}, Status::requiresApproval, {"unregister"},
            {Status::notRegistered, false}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        LoginItem item;
        if (row.wish)
            item.defaults.set(preference, *row.wish);
        if (row.builtBy)
            item.defaults.set(build, *row.builtBy);
        item.service->now = row.before;
        item.service->registered = row.registered;
        EXPECT_EQ(item.background.prepareAtLaunch(item.defaults), row.after);
        EXPECT_EQ(item.service->calls, row.calls);
        const bool registered = !row.calls.empty() && row.calls.back() == "register";
        EXPECT_EQ(item.defaults.string(build), registered ? "7" : row.builtBy);
        // The same build at the next launch does nothing more.
        item.service->calls.clear();
        item.background.prepareAtLaunch(item.defaults);
        EXPECT_THAT(item.service->calls, IsEmpty());
        EXPECT_THAT(item.launchd, IsEmpty());
    }
}

TEST(BackgroundService, refusalsAreToldUnlessTheServiceStandsAllTheSame) {
    LoginItem item;
    item.service->refusal = "no room";
    const auto refused = item.background.set(true, item.defaults);
    EXPECT_TRUE(refused.error.value_or("none").contains("(no room)"));
    EXPECT_EQ(item.defaults.storedBoolean(preference), true);
    EXPECT_EQ(item.defaults.string(build), std::nullopt);

    // Registered in the middle of it all, but only until the user has said yes.
    item.service->now = Status::requiresApproval;
    const auto waiting = item.background.set(true, item.defaults);
    EXPECT_EQ(waiting, (State{Status::requiresApproval, true}));
    EXPECT_TRUE(waiting.needsApproval());

    // An update that can't refresh leaves the old registration, which still stands.
    item.service->now = Status::enabled;
    item.service->unregisterRefusal = "busy";
    item.service->calls.clear();
    EXPECT_EQ(item.background.prepareAtLaunch(item.defaults), (State{Status::enabled, true}));
    EXPECT_THAT(item.service->calls, ElementsAre("unregister"));
}

TEST(BackgroundService, theUsersWishIsStoredAndCarriedOut) {
    LoginItem item;
    EXPECT_EQ(item.background.set(true, item.defaults), (State{Status::enabled, true}));
    item.service->unregisterRefusal = "busy";
    EXPECT_EQ(item.background.set(false, item.defaults), (State{Status::enabled, true, {}, "busy"}));
    EXPECT_EQ(item.defaults.storedBoolean(preference), true);
    item.service->unregisterRefusal.reset();
    EXPECT_EQ(item.background.set(false, item.defaults), (State{Status::notRegistered, false}));
}

TEST(BackgroundService, aLoginItemThatIsSwitchedOutsideIsToldAsItIsAndTheWishStays) {
    LoginItem item;
    for (const bool wish : {true, false}) {
        item.background.set(wish, item.defaults);
        item.service->calls.clear();
        for (const auto outside :
            {Status::notRegistered, Status::enabled, Status::requiresApproval, Status::notFound}) {
            item.service->now = outside;
            EXPECT_EQ(item.background.current(item.defaults), (State{outside, wish}));
        }
        EXPECT_THAT(item.service->calls, IsEmpty()) << "it only looks";
    }
    // The next launch carries the wish out again.
    item.background.set(true, item.defaults);
    item.service->now = Status::notRegistered;
    EXPECT_EQ(item.background.prepareAtLaunch(item.defaults), (State{Status::enabled, true}));
}

TEST(BackgroundService, whoAsksForItTakesOverFromAnotherInstallation) {
    LoginItem item;
    const auto takesOver = [&](auto ask) {
        item.service->now = Status::enabled;
        item.service->registered = AgentRegistration::elsewhere;
        EXPECT_EQ(ask(), (State{Status::enabled, true}));
        EXPECT_EQ(item.service->registered, AgentRegistration::current);
    };
    takesOver([&] { return item.background.set(true, item.defaults); });
    takesOver([&] { return item.background.prepareAfterInstall(item.defaults); });
}

TEST(BackgroundService, theOldAgentIsMovedAwayOnceItHasStopped) {
    LoginItem item;
    item.installOldAgent();
    item.unloadsAt = 101;
    item.defaults.set(preference, false);
    const auto state = item.background.prepareAtLaunch(item.defaults);
    ASSERT_TRUE(state.migratedTo);
    EXPECT_EQ(state, (State{Status::enabled, true, state.migratedTo}));
    EXPECT_EQ(item.uptime, 101);
    EXPECT_THAT(item.launchd, ElementsAre("bootout com.kelvadrome.daemon"));
    EXPECT_EQ(item.defaults.storedBoolean(preference), true);
    EXPECT_EQ(item.defaults.string(build), "7");
    EXPECT_FALSE(Files::exists(item.background.legacy.path));
    EXPECT_EQ(fs::status(*state.migratedTo).permissions(), fs::perms::owner_all);
    EXPECT_TRUE(Files::exists(*state.migratedTo + "/com.kelvadrome.daemon.plist"));
}

TEST(BackgroundService, anOldAgentThatStaysLoadedStaysWhereItIs) {
    LoginItem item;
    item.installOldAgent();
    item.unloadsAt = 1000;
    const auto state = item.background.prepareAtLaunch(item.defaults);
    EXPECT_TRUE(state.error->contains("did not stop")) << *state.error;
    EXPECT_EQ(item.uptime, 120);
    EXPECT_TRUE(item.background.legacy.isPresent());
    EXPECT_EQ(item.defaults.object(preference), std::nullopt);

    EXPECT_THAT(item.service->calls, IsEmpty());
}

TEST(BackgroundService, aMigrationThatIsRefusedIsRolledBack) {
    LoginItem item;
    item.installOldAgent();
    item.service->refusal = "no";
    const auto state = item.background.prepareAtLaunch(item.defaults);
    EXPECT_TRUE(state.error);
    EXPECT_EQ(state.migratedTo, std::nullopt);
    EXPECT_TRUE(item.background.legacy.isPresent());
    EXPECT_THAT(item.launchd,
        ElementsAre("bootout com.kelvadrome.daemon", "bootstrap " + item.background.legacy.path));
}

TEST(LegacyLaunchAgent, isOnlyARegularFileWithItsOwnLabel) {
    TemporaryFolder folder;
    const LegacyLaunchAgent agent{folder / "a.plist"};
    const auto present = [&](const std::string& bytes) {
        std::ofstream(agent.path, std::ios::binary) << bytes;
        return agent.isPresent();
    };
    EXPECT_FALSE(agent.isPresent());
    const auto ours = agentPlist("com.kelvadrome.daemon");
    EXPECT_TRUE(present(ours));
    EXPECT_FALSE(present(agentPlist("com.kelvadrome.daemon2")));
    for (const auto& other :
        {std::string(), std::string("bplist00 and no more"), ours.substr(0, ours.size() / 2)})
        EXPECT_FALSE(present(other)) << other;
    EXPECT_TRUE(present(ours));
    fs::create_symlink(agent.path, folder / "link.plist");
    EXPECT_FALSE((LegacyLaunchAgent{folder / "link.plist"}.isPresent()));
    EXPECT_FALSE((LegacyLaunchAgent{folder.path()}.isPresent()));
}

} // namespace
} // namespace kelvadrome::test
