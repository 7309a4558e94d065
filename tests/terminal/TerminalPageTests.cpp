#include "Kelvadrome/terminal/panel/TerminalPage.h"

#include "tests/support/TestLoop.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace kelvadrome;

TEST(TerminalPage, theLinkSaysWhereToGoAndWhoComes) {
    const std::vector<std::tuple<std::string, std::string, std::string>> rows = {
        {"http://127.0.0.1:4711/login?t=abc", "/",
            "http://127.0.0.1:4711/login?t=abc&surface=browser&next=%2F"},
        {"http://127.0.0.1:4711/login?surface=mac&t=a%2Bb&next=%2Fevil", "/topics?card=c%201",
            "http://127.0.0.1:4711/login?t=a%2Bb&surface=browser&next=%2Ftopics%3Fcard%3Dc%25201"},
    };
    for (const auto& [login, next, link] : rows)
        EXPECT_EQ(TerminalPage::browserLink(login, next), link);
    for (const auto* login : {"http://localhost:4711/login?t=a", "http://127.0.0.1/login?t=a",
             "http://127.0.0.1.evil.org:1/", "::"})
        EXPECT_THROW(TerminalPage::browserLink(login, "/"), PageSession::Failure) << login;
}

TEST(TerminalPage, overSSHTheTunnelLeadsBackToThisMachine) {
    using Rows = std::vector<std::pair<EnvironmentMap, std::string>>;
    const std::string here = "192.0.2.7 50000 10.0.0.5 ";
    for (const auto& [environment, target] :
        Rows{{{{"USER", "me"}}, ""}, {{{"USER", "me"}, {"SSH_CONNECTION", here + "22"}}, "me@10.0.0.5"},
            {{{"SSH_CONNECTION", here + "2222"}}, "-p 2222 10.0.0.5"},
            {{{"USER", "me"}, {"SSH_CONNECTION", "odd"}}, "me@this-machine"}})
        EXPECT_EQ(TerminalPage::tunnelTarget(environment), target);
}

namespace {

struct PageWorld {
    test::TestLoop loop;
    std::shared_ptr<test::ManualClock> clock = std::make_shared<test::ManualClock>();
    std::shared_ptr<PanelBoard> board = std::make_shared<PanelBoard>();
    std::vector<std::string> opened;
    int pages = 0; // that are kept for the browser
    int minted = 0;
    bool fails = false;
    std::string expiresAt; // 60 s by default
    std::shared_ptr<TerminalPage> page =
        std::make_shared<TerminalPage>(TerminalPage::Dependencies{.executor = loop.executor(),
            .clock = clock,
            .board = board,
            .mint = [this] { return mint(this); },
            .openLink =
                [this](std::string link) {
                    opened.push_back(std::move(link));
                    ++pages;
                    return std::shared_ptr<void>(
                        this, [](void* world) { --static_cast<PageWorld*>(world)->pages; });
                },
            .tunnelTo = "me@host"});

    static Task<LoginLink> mint(PageWorld* world) {
        ++world->minted;
        if (world->fails)
            throw std::runtime_error("No daemon.");
        co_return LoginLink{
            "http://127.0.0.1:4711/login?t=" + std::to_string(world->minted), world->expiresAt};
    }
    std::string url() const { return board->extras().link ? board->extras().link->url : "none"; }
};

} // namespace

TEST(TerminalPage, aLinkShowsForAsLongAsItIsGood) {
    PageWorld world;
    world.page->navigate("/", ScopeFilter::all, "c1");
    EXPECT_EQ(world.url(), ""); // being made
    world.loop.drain();
    EXPECT_EQ(world.url(), "http://127.0.0.1:4711/login?t=1&surface=browser&next=%2F%3Fcard%3Dc1");
    EXPECT_EQ(world.opened, std::vector{world.url()});
    EXPECT_EQ(world.board->extras().link->tunnel, "ssh -L 4711:127.0.0.1:4711 me@host");
    EXPECT_EQ(world.pages, 1);

    // The next one takes its place, and the first one's end doesn't end it.
    world.loop.advance(*world.clock, 30);
    world.page->navigate("/topics", ScopeFilter::family, std::nullopt);
    world.loop.drain();
    EXPECT_EQ(world.url(), "http://127.0.0.1:4711/login?t=2&surface=browser&next=%2Ftopics%3Fscope%3Dfamily");
    world.loop.advance(*world.clock, 45);
    EXPECT_NE(world.url(), "none");
    EXPECT_EQ(world.pages, 1);
    world.loop.advance(*world.clock, 20);
    EXPECT_EQ(world.url(), "none");

    world.expiresAt = "2027-01-15T08:01:45Z"; // 10 s from then
    world.page->callShell("b.navigate(\"/\")", "http://127.0.0.1:4711/agents?shell=native&mode=expert");
    world.loop.drain();
    EXPECT_TRUE(world.url().ends_with("next=%2Fagents%3Fmode%3Dexpert"));
    world.loop.advance(*world.clock, 11);
    EXPECT_EQ(world.url(), "none");
    EXPECT_EQ(world.pages, 0) << "what leads to a link goes when it is over";
}

TEST(TerminalPage, aFailureIsToldAndLeavesNoLink) {
    PageWorld world;
    world.fails = true;
    world.page->navigate("/", ScopeFilter::all, std::nullopt);
    world.loop.drain();
    EXPECT_EQ(world.url(), "none");
    EXPECT_EQ(world.board->extras().note, "The page could not be opened. No daemon.");
    world.fails = false;
    world.page->search("two words", ScopeFilter::all);
    world.loop.drain();
    EXPECT_TRUE(world.url().ends_with("next=%2Fsearch%3Fq%3Dtwo%2520words"));
    EXPECT_FALSE(world.board->extras().note);
    world.page->dismiss();
    world.loop.drain();
    EXPECT_EQ(world.url(), "none");
}
