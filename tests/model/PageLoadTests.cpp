#include "Kelvadrome/model/PageLoad.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

namespace kelvadrome::test {
namespace {

using namespace PageEvent;
using Kind = LoadFailed::Kind;

/// An action in a word or two, with what it is about.
struct Text {
    std::string operator()(const PageAction::Prepare&) const { return "prepare"; }
    std::string operator()(const PageAction::Request& action) const { return "request " + action.url; }
    std::string operator()(const PageAction::Reload&) const { return "reload"; }
    std::string operator()(const PageAction::StopLoading&) const { return "stop"; }
    std::string operator()(const PageAction::EndProcess&) const { return "end the process"; }
    std::string operator()(const PageAction::ShowPage&) const { return "show"; }
    std::string operator()(const PageAction::ShowTrouble& trouble) const {
        return trouble.title + ": " + trouble.words;
    }
    std::string operator()(const PageAction::PageLoaded& page) const {
        return page.first ? "first loaded" : "loaded";
    }
};

const std::string base = "http://127.0.0.1:1";
const SessionBegan session{base, base + "/"};
const AddressWanted topics{base + "/topics"};
const LoadFailed broken{Kind::broken, base + "/a", "Connection refused"};
const LoadFailed notAllowed{Kind::notAllowed, "https://example.test/", "interrupted"};
const LoadFailed cancelled{Kind::cancelled, base + "/", "cancelled"};

class PageLoadTest : public testing::Test {
protected:
    struct Row {
        PageLoad::Event event;
        std::string actions; // in their order, with ", " between them
    };

    std::string after(const PageLoad::Event& event) {
        std::string all;
        for (const auto& action : load.handle(event, now))
            all += (all.empty() ? "" : ", ") + std::visit(Text(), action);
        return all;
    }
    void play(const std::vector<Row>& rows) {
        for (std::size_t i = 0; i < rows.size(); ++i)
            EXPECT_EQ(after(rows[i].event), rows[i].actions) << "event " << i;
    }
    /// From nothing to a page that has loaded, at this moment.
    void open() {
        play({{session, "prepare"}, {Prepared{}, "request " + base + "/"}, {LoadStarted{}, ""},
            {DocumentShown{}, "show"}, {DocumentArrived{}, ""}, {LoadFinished{}, "first loaded"}});
    }
    static std::string words(const std::string& what, int pause = 2) {
        return fmt::format("The page did not load: {} kelvadrome tries again in {} seconds.", what, pause);
    }

    PageLoad load;
    double now = 1000;
};

TEST_F(PageLoadTest, aLoadIsTheFirstOnceInASession) {
    EXPECT_FALSE(load.hasDocument());
    open();
    EXPECT_TRUE(load.loaded() && load.hasDocument());
    EXPECT_EQ(load.wakeAt(), std::nullopt);
    play({{LoadStarted{}, ""}, {DocumentShown{}, "show"}});
    EXPECT_TRUE(load.loaded()) << "the page went on by itself";
    play({{LoadFinished{}, "loaded"}});

    EXPECT_EQ(after(session), "prepare");
    EXPECT_TRUE(!load.loaded() && load.hasDocument()) << "the old page stands, and is not to be called";
    play({{LoadFinished{}, ""}, {Prepared{}, "request " + base + "/"}, {LoadFinished{}, ""},
        {LoadStarted{}, ""}, {DocumentShown{}, "show"}});
    EXPECT_FALSE(load.loaded());
    EXPECT_EQ(after(LoadFinished{}), "first loaded");
}

TEST_F(PageLoadTest, theAddressWantedLastIsTheOneThatIsRequested) {
    play(
        {{session, "prepare"}, {topics, ""}, {Prepared{}, "request " + base + "/topics"}, {LoadStarted{}, ""},
            {AddressWanted{base + "/agents"}, "prepare"}, {cancelled, ""}, {LoadFinished{}, ""},
            {Prepared{}, "request " + base + "/agents"}, {cancelled, ""}, {LoadFinished{}, ""},
            {LoadStarted{}, ""}, {DocumentShown{}, "show"}, {LoadFinished{}, "first loaded"}});
}

TEST_F(PageLoadTest, eachFailureIsToldOnceAndTheNextTryGoesWhereThePageWas) {
    const auto gone = [](const std::string& what) {
        return "The page stopped working: " + what +
               " What the daemon keeps is safe. kelvadrome tries again in 2 seconds.";
    };
    const auto ended = gone("The program that shows it ended.");
    const auto unreached = words("kelvadrome could not reach its page: Connection refused.");
    const auto error = words("The daemon answered with an error (503).");
    struct Failure {
        PageLoad::Event event;
        std::string before; // what is said when no page shows yet
        std::string shown;  // and in the place of one
        std::string goal = "/";
    };
    for (const auto& [event, before, shown, goal] :
        {Failure{broken, unreached, unreached, "/a"}, {ServerErrorCame{503, base + "/b"}, error, error, "/b"},
            {notAllowed, words("The daemon sent the page to an address that is not its own."), ""},
            {cancelled, "", ""}, {ProcessEnded{.shown = base + "/c"}, ended, ended, "/c"},
            {ProcessEnded{.shown = "http://127.0.0.1:2/d"}, ended, ended},
            {ProcessEnded{.outOfMemory = true, .shown = {}}, gone("It needed more memory than there is."),
                gone("It needed more memory than there is.")}}) {
        load = {};
        play({{session, "prepare"}, {Prepared{}, "request " + base + "/"}, {LoadStarted{}, ""},
            {event, before}});
        EXPECT_EQ(load.inTrouble(), !before.empty());
        load = {};
        open();
        play({{LoadStarted{}, ""}, {event, shown}});
        const bool alive = !std::holds_alternative<ProcessEnded>(event);
        EXPECT_EQ(load.loaded(), shown.empty());
        EXPECT_EQ(load.hasDocument(), alive);
        if (alive)
            play({{LoadFinished{}, ""}, {broken, ""}, {LoadFinished{}, ""}});
        play({{TryAgainPressed{}, "prepare"}, {Prepared{}, "request " + base + goal}});
    }
    // A load that is about to be replaced says nothing, nor does a process.
    load = {};
    open();
    play({{topics, "prepare"}, {broken, ""}, {ProcessEnded{}, ""},
        {Prepared{}, "request " + base + "/topics"}});
    EXPECT_TRUE(!load.hasDocument() && !load.inTrouble());
}

TEST_F(PageLoadTest, whatFailedIsTriedAgainEverMoreSlowlyUntilItShows) {
    const std::string refused = "kelvadrome could not reach its page: Not the daemon.";
    play({{session, "prepare"}, {Prepared{.refusal = "Not the daemon."}, words(refused)}});
    EXPECT_EQ(load.wakeAt(), now + 2);
    now += 1;
    EXPECT_EQ(after(TimeCame{}), "");
    now += 1;
    EXPECT_EQ(after(TimeCame{}), "prepare");
    EXPECT_EQ(load.wakeAt(), std::nullopt);
    play({{TryAgainPressed{}, ""}, {ReloadWanted{}, ""},
        {Prepared{.refusal = {}, .cookiePlaced = false},
            words("The program that keeps the page's cookie does not answer.", 4)}});
    // Nobody has to wait for the pause.
    EXPECT_EQ(after(TryAgainPressed{}), "prepare");
    EXPECT_EQ(load.wakeAt(), std::nullopt);
    EXPECT_EQ(after(Prepared{.refusal = "Not the daemon."}), words(refused, 8));
    EXPECT_EQ(after(ReloadWanted{}), "prepare");
    play({{Prepared{}, "request " + base + "/"}, {LoadStarted{}, ""}});
    EXPECT_TRUE(load.inTrouble());
    play({{DocumentShown{}, "show"}, {LoadFinished{}, "first loaded"}});
    EXPECT_FALSE(load.inTrouble());

    // A page that has stood for a minute begins anew; a page that shows by itself ends the waiting.
    now += 60;
    EXPECT_EQ(after(ServerErrorCame{500, base + "/x"}), words("The daemon answered with an error (500)."));
    play({{LoadFinished{}, ""}, {LoadStarted{}, ""}, {DocumentShown{}, "show"}, {LoadFinished{}, "loaded"}});
    EXPECT_EQ(load.wakeAt(), std::nullopt);
    EXPECT_EQ(after(TryAgainPressed{}), "prepare") << "a press that was on its way";
}

TEST_F(PageLoadTest, aLoadMayBeQuietForAMinute) {
    const auto late = "stop, " + words("The daemon did not answer within a minute.");
    play({{session, "prepare"}, {Prepared{}, "request " + base + "/"}});
    EXPECT_EQ(load.wakeAt(), now + 60) << "also for one that doesn't even start";
    now += 30;
    after(LoadStarted{});
    now += 59;
    EXPECT_EQ(after(LoadProgressed{}), "");
    now += 59;
    EXPECT_EQ(after(TimeCame{}), "");
    EXPECT_EQ(load.wakeAt(), now + 1);
    after(DocumentShown{});
    now += 1;
    EXPECT_EQ(after(TimeCame{}), late);
    play({{cancelled, ""}, {LoadFinished{}, ""}});
    EXPECT_EQ(load.wakeAt(), now + 2);

    // A whole document may wait for its pictures for ever.
    play({{TryAgainPressed{}, "prepare"}, {Prepared{}, "request " + base + "/"}, {LoadStarted{}, ""},
        {DocumentShown{}, "show"}, {DocumentArrived{}, ""}});
    EXPECT_EQ(load.wakeAt(), std::nullopt);
    now += 600;
    play({{TimeCame{}, ""}, {LoadFinished{}, "first loaded"}});
}

TEST_F(PageLoadTest, aProcessThatHangsIsEnded) {
    EXPECT_EQ(after(ReloadWanted{}), "") << "there is nothing to load again";
    open();
    EXPECT_EQ(after(ReloadWanted{}), "reload");
    now += 60;
    EXPECT_EQ(after(TimeCame{.processAnswers = false}), "end the process");
    EXPECT_EQ(load.wakeAt(), std::nullopt);
    EXPECT_TRUE(
        after(ProcessEnded{}).starts_with("The page stopped working: The program that shows it ended."));
    EXPECT_EQ(load.wakeAt(), now + 2);
}

} // namespace
} // namespace kelvadrome::test
