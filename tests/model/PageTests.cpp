#include "Kelvadrome/model/NativeActions.h"

#include "tests/model/World.h"

namespace kelvadrome::test {
namespace {

using Lines = std::vector<std::string>;

class Pages : public testing::Test, protected World {};

TEST_F(Pages, theShellFollowsThePagesRoute) {
    make();
    for (const auto& [route, section] :
        std::vector<std::pair<std::string, NavSection>>{{"/topics/t-1?x=/agents", NavSection::topics},
            {"//receipts//", NavSection::receipts}, {"?card=1", NavSection::inbox},
            {"/search?q=a", NavSection::skills}, {"/Topics", NavSection::skills}}) {
        model->followPageRoute("/skills");
        model->followPageRoute(route);
        EXPECT_EQ(state().section, section) << route;
    }
    loop.drain();
    EXPECT_EQ(clock->sleepers(), 0U) << "the scope `all` needs no giving back";
}

TEST_F(Pages, aPageThatHasJustLoadedGetsTheShellsScopeBack) {
    make().setScope(ScopeFilter::companies);
    EXPECT_EQ(defaults->string("KDScopeFilter"), "companies");
    model->followPageRoute("/topics");
    loop.advance(*clock, 0.24);
    EXPECT_EQ(web->calls.lines(), Lines{"setScope companies /"});
    loop.advance(*clock, 0.02);
    EXPECT_EQ(web->calls.lines(), (Lines{"setScope companies /", "setScope companies /topics"}));

    web->calls.clear();
    loop.run(model->connect());
    web->onFirstLoad();
    loop.advance(*clock, 0.41);
    EXPECT_EQ(web->calls.lines(), (Lines{"load s1 topics companies", "setScope companies /topics"}));
}

TEST_F(Pages, anOpenedPathBecomesRouteAndFocus) {
    make();
    struct Row {
        const char* path;
        NavSection section; // from `skills`
        const char* navigated;
    };
    for (const auto& row : {Row{"", NavSection::inbox, "navigate / all -"},
             Row{"/agents?card=c-1&card=c-2", NavSection::agents, "navigate /agents all c-1"},
             Row{"/?x=1&card=a%20b+c?d", NavSection::inbox, "navigate / all a b+c?d"},
             Row{"/search?q=a%20b%3F", NavSection::skills, "search a b? all"},
             Row{"/topics/t", NavSection::skills, "navigate /topics/t all -"}}) {
        model->followPageRoute("/skills");
        model->openMain(row.path);
        EXPECT_EQ(state().section, row.section) << row.path;
        EXPECT_EQ(web->calls.lines().back(), row.navigated) << row.path;
        EXPECT_EQ(screen->calls.lines(), (Lines{"openMainWindow", "activate"}));
        screen->calls.clear();
    }
}

TEST_F(Pages, aSectionIsOpenedInThePageOrByItsAddress) {
    make().open(NavSection::topics, std::nullopt);
    EXPECT_EQ(web->calls.last("callShell"), R"(callShell b.navigate("/topics") -)")
        << "no page was loaded yet";
    loop.run(model->connect());
    model->setScope(ScopeFilter::family);
    model->setInterfaceMode(InterfaceMode::expert, InterfaceModeSource::menu);
    model->open(NavSection::inbox, std::nullopt);
    EXPECT_EQ(web->calls.last("callShell"),
        R"(callShell b.navigate("/") http://127.0.0.1:4711/?shell=native&scope=family&mode=expert)");

    readCards({cardJSON("low"), cardJSON("high", "stop", "high")});
    model->openFirstNeedingYou();
    EXPECT_EQ(web->calls.last("navigate"), "navigate / family high");
}

TEST_F(Pages, aSwitchOfModeIsStoredAndEchoedUnlessItCameFromThePage) {
    flags.inspector = true;
    make().setInterfaceMode(InterfaceMode::expert, InterfaceModeSource::page);
    EXPECT_FALSE(state().inspectorShown);
    EXPECT_EQ(defaults->string("interfaceMode"), "expert");
    EXPECT_EQ(web->calls.lines(), Lines{});
    model->setInterfaceMode(InterfaceMode::simple, InterfaceModeSource::toolbar);
    EXPECT_EQ(web->calls.countOf("runScript window.kelvadrome && window.kelvadrome.setMode"), 1U);
}

TEST_F(Pages, theAgentStripShowsAtOnceAndIsRightAfterEachRefresh) {
    make().setAgentStrip(true);
    EXPECT_EQ(screen->calls.countOf("updateAgentStrip"), 1U);
    reply("/v1/inbox",
        R"({"counts":{"needs_you":7,"answered_by_rules_today":0,"agents_working":0,"verified_today":0}})");
    refresh();
    EXPECT_EQ(screen->calls.last("updateAgentStrip"), "updateAgentStrip 7 need you") << "not one late";
    model->setAgentStrip(false);
    refresh();
    EXPECT_EQ(screen->calls.last("updateAgentStrip"), "updateAgentStrip none");
}

TEST_F(Pages, aURLOfOursOpensTheWindowThatIsDue) {
    make();
    for (const auto* url :
        {"https://open", "kelvadrome://close", "kelvadrome:open", "", "kelvadrome://open me"}) {
        model->handleOpenURL(url);
        EXPECT_TRUE(screen->calls.lines().empty()) << url;
    }
    model->handleOpenURL("KELVADROME://Open/x?y=1");
    EXPECT_EQ(screen->calls.lines(), (Lines{"openMainWindow", "activate"}));
    model->openOnboarding(false);
    loop.until([&] { return screen->onboardingMade; }, "the setup window");
    screen->calls.clear();
    model->handleOpenURL("kelvadrome://open");
    EXPECT_EQ(screen->calls.lines(), (Lines{"raiseOnboarding", "activate"}));

    // Put off, setup comes again; without an item in the menu bar the main window is there to lead to it.
    screen->onboardingMade = false;
    screen->calls.clear();
    model->onboardingPutOff();
    EXPECT_TRUE(screen->calls.lines().empty());
    model->reopen();
    loop.until([&] { return screen->onboardingMade; }, "the setup window to come again");
    screen->onboardingMade = screen->inMenuBar = false;
    for (const auto& come : {&AppModel::onboardingPutOff, &AppModel::reopen}) {
        screen->calls.clear();
        ((*model).*come)();
        EXPECT_EQ(screen->calls.last("openMain"), "openMainWindow");
        EXPECT_EQ(screen->calls.last("activate"), "activate");
    }
}

TEST_F(Pages, setupWithoutAPageSessionSaysSo) {
    refuseLogin = true;
    screen->inMenuBar = false;
    make().openOnboarding(true);
    loop.until([&] { return state().panelError.has_value(); }, "the refusal");
    EXPECT_TRUE(screen->calls.has("openMainWindow")) << "else there would be no window at all";
    EXPECT_TRUE(state().onboardingActive);
    EXPECT_FALSE(screen->onboardingMade);
}

TEST_F(Pages, aTopicsFolderIsTheFirstAbsolutePathInTheDetailsOrItsAbsenceIsSaid) {
    for (const auto& [json, path] : std::vector<std::pair<std::string, std::optional<std::string>>>{
             {R"({"folder":"a","folder_path":"/b","continuity_path":"/c/d.md"})", "/b"},
             {R"({"folder":7,"folder_path":null,"continuity_path":"/c/d.md"})", "/c"},
             {R"({"topic":{"topic":{"folder":"/deep"}}})", "/deep"}, {R"({"topic":"/t"})", std::nullopt}}) {
        EXPECT_EQ(
            readJSON(json, [](const JSONValue& root) { return NativeActions::findPath(root.object()); }),
            path)
            << json;
    }
    reply("/v1/topic/detail", "[]");
    loop.run(make().revealTopicFolder("t-1"));
    EXPECT_EQ(state().panelError, "This topic has no folder on this Mac yet.");
    EXPECT_TRUE(screen->calls.lines().empty());
    reply("/v1/topic/detail", R"({"folder":")" + folder.path().string() + R"("})");
    loop.run(make().revealTopicFolder("t-1"));
    EXPECT_EQ(screen->calls.lines(), Lines{"revealFile " + folder.path().string()});
}

/// What a page says to the shell.
class NativeAction : public Pages {
protected:
    NativeAction() {
        probe = {.check = [this](std::string) { return consent; },
            .request = [](std::string) -> Task<ConsentCode> { co_return 0; },
            .screenLocked = [] { return false; }};
        make();
    }

    void say(const std::string& type, const std::string& body) {
        readJSON(body, [&](const JSONValue& root) {
            NativeActions::handle(type, root.object(), *model);
            return 0;
        });
        loop.drain();
    }
    void act(const std::string& action, const std::string& rest = "") {
        say("action", R"({"action":")" + action + "\"" + rest + "}");
    }

    ConsentCode consent;
};

TEST_F(NativeAction, whatFailsACheckIsDroppedWithoutAWord) {
    for (const auto& [type, body] : std::vector<std::pair<std::string, std::string>>{
             {"route", R"({"route":7})"}, {"mode", R"({"mode":"wizard"})"}, {"voice", "{}"}, {"action", "{}"},
             {"action", R"({"action":"format"})"}, {"other", R"({"action":"chooseFolder"})"},
             {"action", R"({"action":"delegate","command":"rm -rf ~"})"},
             {"action", R"({"action":"delegate","command":"kdx"})"},
             {"action", R"({"action":"runSkill","run_id":"r1","command":"kd skills run r2"})"},
             {"action", R"({"action":"allowTerminal","app":"xterm"})"},
             {"action", R"({"action":"openFolder"})"},
             {"action", R"({"action":"openReceiptFile","path":"/no/such/file"})"},
             {"action", R"({"action":"openReceiptFile","path":"etc/passwd"})"}, {"ready", "{}"}}) {
        say(type, body);
        EXPECT_TRUE(screen->calls.lines().empty() && web->calls.lines().empty() && calls.lines().empty())
            << type << body;
        EXPECT_FALSE(state().notice || state().onboardingActive) << type << body;
    }
    EXPECT_TRUE(daemon->requests().empty());
}

TEST_F(NativeAction, eachMessageHasItsEffect) {
    say("route", R"({"route":"/agents"})");
    EXPECT_EQ(state().section, NavSection::agents);
    say("mode", R"({"mode":"expert"})");
    EXPECT_EQ(state().interfaceMode, InterfaceMode::expert);
    EXPECT_EQ(web->calls.lines(), Lines{}) << "no echo into the page";
    say("voice", R"({"action":"start"})");
    EXPECT_EQ(calls.lines(), Lines{"voice start"});

    act("delegate", R"(,"command":"q hello")");
    EXPECT_EQ(screen->calls.last("copyText"), "copyText q hello");
    act("bringEdgeToFront");
    EXPECT_EQ(screen->calls.last("activateApplication"), "activateApplication com.microsoft.edgemac");

    act("openReceiptFile", R"(,"path":")" + folder.path().string() + R"(/.")");
    EXPECT_EQ(screen->calls.last("revealFile"), "revealFile " + folder.path().string());
    act("openFolder", R"(,"topic":"t-9")");
    until([&] { return asked("/v1/topic/detail") == 1; }, "the topic's details to be asked for");

    act("chooseFolder");
    until([&] { return screen->onboardingMade; }, "the setup window");
    say("onboarding_done", "{}");
    EXPECT_FALSE(state().onboardingActive);
    EXPECT_EQ(screen->calls.last("close"), "closeOnboarding");
    EXPECT_EQ(web->calls.last("navigate"), "navigate / all -");
}

TEST_F(NativeAction, aTerminalIsAskedForAndThePageToldHowItStands) {
    const auto told = [&](std::size_t times) {
        until([&] { return web->calls.countOf("runScript") == times; }, "the page to be told");
    };
    consent = consentNotAsked;
    act("allowTerminal", R"(,"app":"iterm2")");
    told(1);
    EXPECT_EQ(screen->calls.lines(), Lines{});
    EXPECT_TRUE(web->calls.lines()[0].ends_with(R"(({"iterm2":"notDetermined","terminal":"notDetermined"}))"))
        << web->calls.lines()[0];
    consent = consentDenied;
    act("allowTerminal", R"(,"app":"terminal")");
    told(2);
    EXPECT_EQ(screen->calls.lines(),
        Lines{"openURL x-apple.systempreferences:com.apple.preference.security?Privacy_Automation"});
}

} // namespace
} // namespace kelvadrome::test
