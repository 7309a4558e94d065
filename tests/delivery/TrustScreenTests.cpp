#include "KelvadromeKit/delivery/TrustScreen.h"
#include "KelvadromeKit/support/Text.h"

#include "tests/delivery/LiveExecutorFixture.h"

namespace kelvadrome::test {
namespace {

const std::string folder = "/Users/me/p";
const std::string home = "/Users/me";

/// The question as Claude draws it, line by line, so that a test can spoil one.
struct Screen {
    std::vector<std::string> above{"$ claude", ""};
    std::string heading = " Accessing workspace:";
    std::vector<std::string> path{"", " /Users/me/p", ""};
    std::vector<std::string> question{" Quick safety check: Is this a project you created or one you trust?",
        "", " Claude Code'll be able to read, edit, and execute files here.", "", " Security guide", ""};
    std::string exit = " ❯ 1. No, exit";
    std::string trust = "   2. Yes, I trust this folder";
    std::vector<std::string> footer{"", " Enter to confirm · Esc to cancel", "", ""};
    bool trustFirst = false; // the order of the options, whose lines are the same

    static Screen ofOrder(bool trustFirst) {
        Screen screen;
        screen.trustFirst = trustFirst;
        if (trustFirst)
            screen.exit = " ❯ 2. No, exit", screen.trust = "   1. Yes, I trust this folder";
        return screen;
    }

    std::string text() const {
        std::vector<std::string> lines = above;
        lines.push_back(heading);
        lines.insert(lines.end(), path.begin(), path.end());
        lines.insert(lines.end(), question.begin(), question.end());
        lines.insert(lines.end(), {trustFirst ? trust : exit, trustFirst ? exit : trust});
        lines.insert(lines.end(), footer.begin(), footer.end());
        return Text::join(lines, "\n");
    }
    std::string selected(std::optional<std::string> at = folder) const {
        const auto match = TrustScreen::match(text(), at, home);
        return match && match->trustFirst == trustFirst ? match->selected : "none";
    }
};

/// The same in both orders, or else what each gave.
template <class Spoil>
std::string selectedAfter(Spoil spoil) {
    std::vector<std::string> selected;
    for (const bool trustFirst : {false, true}) {
        auto screen = Screen::ofOrder(trustFirst);
        spoil(screen);
        selected.push_back(screen.selected());
    }
    return selected[0] == selected[1] ? selected[0] : Text::join(selected, ", ");
}

TEST(TrustScreen, theSelectionIsRead) {
    EXPECT_EQ(selectedAfter([](Screen&) {}), "exit");
    const auto moved = [](Screen& s) {
        s.exit = "   1. No, exit", s.trust = " ❯ 2. Yes, I trust this folder";
    };
    EXPECT_EQ(selectedAfter(moved), "trust");
    EXPECT_EQ(selectedAfter([](Screen& s) { s.exit = "> No, exit\r"; }), "exit");
    const auto crlf = Text::replaceAll(Screen().text(), "\n", "\r\n");
    EXPECT_TRUE(TrustScreen::match(crlf, folder, home));
}

TEST(TrustScreen, anyDoubtIsNoMatch) {
    using Spoil = void (*)(Screen&);
    const std::pair<const char*, Spoil> rows[] = {
        {"both marked", [](Screen& s) { s.trust = " ❯ 2. Yes, I trust this folder"; }},
        {"none marked", [](Screen& s) { s.exit = "   1. No, exit"; }},
        {"number 3", [](Screen& s) { s.exit = " ❯ 3. No, exit"; }},
        {"one option twice", [](Screen& s) { s.exit = " ❯ 1. Yes, I trust this folder"; }},
        {"a third option", [](Screen& s) { s.footer.insert(s.footer.begin(), "   3. Maybe"); }},
        {"no Enter", [](Screen& s) { s.footer[1] = " Esc to cancel"; }},
        {"answered", [](Screen& s) { s.footer.push_back("$ "), s.footer.push_back("$ ls"); }},
        {"no question", [](Screen& s) { s.question[0] = " Quick check"; }},
        {"no heading", [](Screen& s) { s.heading = " Workspace:"; }},
        {"no path", [](Screen& s) { s.path = {""}; }},
        {"other path", [](Screen& s) { s.path = {" /Users/me/q"}; }},
        {"blank inside the path", [](Screen& s) { s.path = {" /Users/me /p"}; }},
        {"too far up", [](Screen& s) { s.question.insert(s.question.end(), 10, "text"); }},
    };
    for (const auto& [what, spoil] : rows)
        EXPECT_EQ(selectedAfter(spoil), "none") << what;
    const std::string bare = "No, exit\nYes, I trust this folder\nEnter to confirm Esc to cancel";
    EXPECT_FALSE(TrustScreen::match(bare, {}, {}));
}

TEST(TrustScreen, theFolderMayBeWrappedOrWrittenFromHome) {
    EXPECT_EQ(selectedAfter([](Screen& s) { s.path = {"  ~/p  "}; }), "exit");
    EXPECT_EQ(selectedAfter([](Screen& s) { s.path = {" /Users/", " me/p"}; }), "exit");

    Screen screen;
    screen.path = {" ~"};
    EXPECT_EQ(screen.selected(home), "exit");
    screen.path = {" ~2/p"};
    EXPECT_EQ(screen.selected("/Users/me2/p"), "none") << "home ends at a slash";
    screen.path = {" /Users/me/my", " project"};
    EXPECT_EQ(screen.selected("/Users/me/my project"), "exit");
    screen.path = {" ~/p"};
    EXPECT_FALSE(TrustScreen::match(screen.text(), folder, std::nullopt));
    screen.path = {};
    screen.heading = "";
    EXPECT_EQ(screen.selected(std::nullopt), "exit") << "no folder, no test";
}

TEST(TrustScreen, theWindowEndsTwelveLinesUp) {
    Screen screen;
    screen.question = {" Quick safety check"};
    screen.question.insert(screen.question.end(), 11, "text");
    EXPECT_EQ(screen.selected(std::nullopt), "exit");
    EXPECT_EQ(screen.selected(), "none") << "its heading is outside";
    screen.question.push_back("text");
    EXPECT_EQ(screen.selected(std::nullopt), "none");
}

class ScreenAnswerTest : public LiveExecutorTest {
protected:
    static constexpr const char* read = "tmux capture-pane -p -t %3";

    static std::string reversed(bool trustSelected) { return question(trustSelected, folder, true); }
    /// The screens in the order of the reads; the last one stays.
    JobOutcome answer(std::string want, std::vector<std::string> screens) {
        std::vector<RunOutput> outputs;
        for (auto& screen : screens)
            outputs.push_back(says(std::move(screen)));
        runner->on(read, outputs);
        return perform(trustJob(std::move(want)));
    }
    Lines keys() const { return runner->lines("send-keys"); }

    const std::string yes = question(true), no = question(false), blank = "$ \n";
    const std::string down = "tmux send-keys -t %3 Down", up = "tmux send-keys -t %3 Up",
                      enter = "tmux send-keys -t %3 Enter";
};

TEST_F(ScreenAnswerTest, theSelectionIsMovedThenConfirmedEachKeyFromAFreshRead) {
    EXPECT_EQ(answer("trust", {no, no, yes, blank}), JobOutcome::done());
    EXPECT_EQ(runner->lines(), (Lines{psLine, read, psLine, read, down, psLine, read, enter, read, psLine}));
    EXPECT_EQ(pauses, (Pauses{300, 900}));
    EXPECT_EQ(callsAtStart, 2U);

    healthy();
    EXPECT_EQ(answer("trust", {yes, yes, blank}), JobOutcome::done());
    EXPECT_EQ(keys(), Lines{enter});
    healthy();
    EXPECT_EQ(answer("exit", {yes, yes, no, blank}), JobOutcome::done());
    EXPECT_EQ(keys(), (Lines{up, enter}));
    EXPECT_EQ(runner->lines().back(), read) << "whoever exits needn't be there";

    // Each key goes by the order that the latest read shows.
    healthy();
    EXPECT_EQ(answer("trust", {reversed(false), reversed(false), no, yes, blank}), JobOutcome::done());
    EXPECT_EQ(keys(), (Lines{up, down, enter}));
    healthy();
    EXPECT_EQ(answer("exit", {reversed(true), reversed(true), reversed(false), blank}), JobOutcome::done());
    EXPECT_EQ(keys(), (Lines{down, enter}));
}

TEST_F(ScreenAnswerTest, aQuestionThatDoesNotGoAlongEndsTheAnswer) {
    const std::string left = "the folder question left the screen";
    const struct {
        std::vector<std::string> screens;
        JobOutcome outcome;
        Lines keys;
    } rows[] = {
        {{blank}, JobOutcome::refused("the folder question is no longer on screen"), {}},
        {{no, blank}, JobOutcome::refused(left), {}},
        {{no, no, blank}, JobOutcome::failed(left), {down}},
        {{no}, JobOutcome::failed("the selection did not move"), {down, down, down, down}},
        {{yes}, JobOutcome::failed("the folder question did not take Return"), {enter}},
    };
    for (const auto& [screens, outcome, pressed] : rows) {
        healthy();
        EXPECT_EQ(answer("trust", screens), outcome);
        EXPECT_EQ(keys(), pressed);
        EXPECT_EQ(asked, screens.size() == 1 && screens[0] == blank ? 0 : 1);
    }
    healthy();
    runner->on(psLine, {says(alive), says(alive), says("501 501 501 ttys004 zsh\n")});
    EXPECT_EQ(answer("trust", {yes, yes, blank}), JobOutcome::failed("Claude left after Return"));
}

TEST_F(ScreenAnswerTest, expiryCountsBetweenTheKeys) {
    whileAsking = [this] { clock->advance(101); };
    EXPECT_EQ(answer("trust", {yes}), JobOutcome::refused("before the key: the job expired"));
    healthy();
    whileAsking = [this] { clock->advance(99.8); }; // the pause after the first key does the rest
    EXPECT_EQ(answer("trust", {no}), JobOutcome::failed("before the key: the job expired"));
    EXPECT_EQ(keys(), Lines{down});
}

TEST_F(ScreenAnswerTest, aFailureAtAnyStepEndsTheAnswerThere) {
    const std::string gone = "before the key: the agent process ended";
    const std::string left = "the folder question left the screen";
    const std::string untaken = "the terminal did not take the key";
    const std::vector<JobOutcome> expected{JobOutcome::refused("the agent process ended"),
        JobOutcome::refused("the folder question is no longer on screen"), JobOutcome::refused(gone),
        JobOutcome::refused(left), JobOutcome::refused(untaken), JobOutcome::failed(gone),
        JobOutcome::failed(left), JobOutcome::failed(untaken)};
    for (std::size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE(i);
        healthy();
        runner->failing = i;
        EXPECT_EQ(answer("trust", {no, no, yes, blank}), expected[i]);
        EXPECT_EQ(runner->calls.size(), i + 1);
    }
}

TEST_F(ScreenAnswerTest, whatIsNoScreenAnswerIsABadKey) {
    auto herdr = trustJob(), anywhere = trustJob();
    herdr.host = "herdr";
    anywhere.screen->folder.reset();
    for (const auto& job : {herdr, anywhere, trustJob("maybe")}) {
        const auto executor = live();
        const auto judged = paced(executor.trustAnswer(job, start(), [] { return beforeExpiry; }));
        EXPECT_EQ(judged, JobOutcome::refused("bad key"));
    }
    EXPECT_TRUE(runner->calls.empty());
}

} // namespace
} // namespace kelvadrome::test
