#include "tests/live/keystrokes/Round.h"

#include "Kelvadrome/platform/linux/process/DeliveryRunners.h"
#include "KelvadromeKit/delivery/LiveExecutor.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <thread>

namespace kelvadrome::test {

namespace {

/// Stands before a runner and tells of each key, and when the last look before it began, once all has been
/// looked at that this runner's caller looks at. It tells on any thread, of one key after the other.
class Watched final : public CommandRunning {
public:
    using BeforeKey = std::function<void(std::chrono::steady_clock::time_point)>;

    Watched(std::shared_ptr<CommandRunning> inner, BeforeKey beforeKey)
        : inner_(std::move(inner)), beforeKey_(std::move(beforeKey)) {}

    Task<RunOutput> run(RunCommand command, double timeout) override {
        if (command.input)
            command.input = told(std::move(command.input));
        else if (std::ranges::any_of(command.args, types))
            beforeKey_(std::chrono::steady_clock::now());
        auto running = inner_->run(std::move(command), timeout);
        co_return co_await std::move(running);
    }

private:
    static bool types(std::string_view words) { return words.find("send-keys") != std::string_view::npos; }

    /// The same input, with a word before it goes to the child.
    std::shared_ptr<const LateInput> told(std::shared_ptr<const LateInput> input) const {
        const auto wrapped = [input, beforeKey = beforeKey_](std::string_view printed) {
            const auto began = std::chrono::steady_clock::now();
            auto text = input->give(printed);
            if (text && types(*text))
                beforeKey(began);
            return text;
        };
        return std::make_shared<const LateInput>(LateInput{input->ready, wrapped});
    }

    const std::shared_ptr<CommandRunning> inner_;
    const BeforeKey beforeKey_;
};

/// The runner that a job gets in the program. `asked` is called before the gate gets a key's command, and
/// `sent` when the gate has looked for the last time and hands the key to tmux.
std::shared_ptr<CommandRunning> runnerFor(const DeliverJob& job, const Stage& stage, BackgroundPool& pool,
    std::shared_ptr<Clock> clock, Watched::BeforeKey asked, Watched::BeforeKey sent) {
    auto real = std::make_shared<ProcessRunner>(pool, stage.environment());
    auto inner = std::make_shared<Watched>(std::move(real), std::move(sent));
    const DeliveryRunners runners(pool, stage.environment(), std::move(clock), std::move(inner));
    return std::make_shared<Watched>(runners.forJob(job), std::move(asked));
}

/// What is to be typed, and what should come of it.
struct Answer {
    std::string kind;
    std::vector<DeliverStep> steps;
    std::string marked, want; // of the question
    std::string bytes;
    std::size_t keys = 0;       // commands that type
    std::string above = "exit"; // of the folder question
};

std::string anyText(Random& random) {
    static const std::vector<std::string> texts{"yes", "Use port 8081 - grüße, 世界", "done;",
        "-l x; $HOME #{pane_id} %1", "\"q\" 'q' {a} \\n #(x)", "rm -rf x",
        "a longer answer that is wider than the pane: the quick brown fox jumps over the lazy dog, and then "
        "over another "
        "one, and so on, until it has been on all 3 lines"};
    return texts[random() % texts.size()];
}

Answer anyAnswer(const Row& row, Random& random) {
    if (row.question == Row::Question::folder) {
        const auto kind = random() % 3;
        const std::string above = random() % 2 == 0 ? "exit" : "trust";
        const std::string moved = above == "exit" ? "\033[B\r" : "\033[A\r";
        if (kind == 0)
            return {"move", {DeliverStep::nav("down"), DeliverStep::nav("enter")}, "exit", "trust", moved, 2,
                above};
        const std::string marked = kind == 1 ? "trust" : "exit";
        return {marked, {DeliverStep::nav("enter")}, marked, marked, "\r", 1, above};
    }
    if (row.question == Row::Question::menu)
        return {"menu", {DeliverStep::key("2")}, "menu", "Blue", "2", 1};
    const auto text = anyText(random);
    switch (row.inPause ? 2 : random() % 4) {
    case 0:
        return {"key", {DeliverStep::key("2")}, "", "", "2", 1};
    case 1:
        return {"escape", {DeliverStep::escape(), DeliverStep::text(text)}, "", "", "\033" + text + "\r", 3};
    default:
        return {"text", {DeliverStep::text(text)}, "", "", text + "\r", 2};
    }
}

Stage::Setup setupFor(const Row& row, const Answer& answer, Random& random) {
    static const std::vector<std::string> shells{"bash", "zsh", "xonsh", ""};
    Stage::Setup setup{shells[random() % shells.size()], answer.marked};
    setup.above = answer.above;
    if (row.below == Row::Below::shell && setup.shell.empty())
        setup.shell = "bash";
    if (row.below == Row::Below::nothing)
        setup.shell.clear();
    return setup;
}

constexpr double pauseBeforeReturn = 0.25; // seconds

/// Of CLOCK_MONOTONIC, which the recorders use.
std::int64_t monotonic() {
    return std::chrono::steady_clock::now().time_since_epoch().count();
}

/// Nanoseconds of the steady clock, for one key.
struct Typed {
    std::int64_t lookBegan = 0;
    std::int64_t handedOver = 0; // to tmux
};

/// Applies the change once, at its moment, on whichever thread that comes.
class Change {
public:
    Change(const Row& row, Stage& stage, Random random) : row_(row), stage_(stage), random_(random) {}

    void apply() {
        if (applied_.exchange(true))
            return;
        began_ = monotonic();
        try {
            row_.apply(stage_, random_);
        } catch (const Impossible& error) {
            impossible_ = error.what();
        } catch (const std::exception& error) {
            // An agent that has ended, as it was told to, may have left no pane to change.
            if (!stage_.agentEnded())
                error_ = error.what();
        }
        at_ = monotonic();
    }

    const std::string& impossible() const { return impossible_; }
    const std::string& error() const { return error_; }
    std::int64_t began() const { return began_; }
    std::int64_t at() const { return at_; } // it was complete

private:
    const Row& row_;
    Stage& stage_;
    Random random_;
    std::atomic<bool> applied_ = false;
    std::string impossible_, error_;
    std::int64_t began_ = 0;
    std::int64_t at_ = 0;
};

Task<std::optional<std::string>> goAhead(std::shared_ptr<Clock> clock, double delay) {
    co_await clock->sleep(delay);
    co_return std::nullopt;
}

void judge(Verdict& verdict, const Answer& answer, const Recording& seen) {
    verdict.strays = seen.strays("agent");
    auto got = seen.bytes("agent");
    const auto chosen = seen.find("agent", "chose");
    if (chosen && chosen->word != answer.want)
        verdict.strays +=
            fmt::format("{}the agent took \"{}\"", verdict.strays.empty() ? "" : ", ", chosen->word);
    verdict.got = got;
    // What a user had typed before is not ours; what stands amidst our keys makes them something else.
    const bool inOnePiece = got.find(answer.bytes) != std::string::npos;
    std::erase(got, foreignKey);
    // The keys that lead to an option depend on which one had the mark.
    const bool exact = answer.want.empty() ? inOnePiece && got == answer.bytes
                                           : chosen && chosen->word == answer.want &&
                                                 got.find(answer.bytes.back()) + 1 == got.size();
    const bool nothing = got.empty() && verdict.strays.empty();
    const auto& said = verdict.outcome.outcome;
    verdict.saidDone = said == "done" && (!exact || !verdict.strays.empty());
    verdict.right = said == "done" && !verdict.saidDone;
    verdict.saidRefused = said == "refused" && !nothing;
    verdict.refused = said == "refused" && nothing;
    verdict.warned = said == "failed";
}

/// When somebody else read a key after the change began; 0 when nobody did.
std::int64_t firstStray(const Recording& seen, std::int64_t since) {
    for (const auto& event : seen.events) {
        if (since != 0 && event.nanoseconds > since && event.name == "read" && event.who != "agent")
            return event.nanoseconds;
    }
    return 0;
}

/// Whether a change that was complete at this time came after the last look before the command that typed the
/// stray key (or else before any).
bool cameAfterLook(std::int64_t change, const std::vector<Typed>& typed, std::int64_t stray) {
    for (auto key = typed.rbegin(); key != typed.rend(); ++key) {
        if (stray == 0 || key->handedOver < stray)
            return change != 0 && change > key->lookBegan;
    }
    return false;
}

} // namespace

double Pace::secondsOf(const std::string& kind) const {
    std::lock_guard guard(lock_);
    const auto found = seconds_.find(kind);
    return found == seconds_.end() ? 0.5 : found->second;
}

void Pace::learn(const std::string& kind, double seconds) {
    std::lock_guard guard(lock_);
    auto& known = seconds_.try_emplace(kind, seconds).first->second;
    known += (seconds - known) / 8;
}

std::string Verdict::text() const {
    return fmt::format("{}{}: {} ({}); the agent read \"{}\"{}{}", unseen ? "unseen, " : "", played,
        hung ? "no outcome" : outcome.outcome, outcome.reason.value_or("no reason"), readable(got),
        strays.empty() ? "" : "; strays: ", strays);
}

Verdict Round::play(Pace& pace) const {
    Random random(seed);
    const auto answer = anyAnswer(*row, random);
    const double fraction = std::uniform_real_distribution<>(0, 1)(random);
    const std::size_t keyOfChange = row->inPause ? answer.keys - 1 : random() % answer.keys;
    const double delayOfStart = random() % 6 == 0 ? 0.6 : 0;
    const double moment = after.value_or(fraction * (pace.secondsOf(answer.kind) + delayOfStart));

    TestLoop loop; // outlives the stage, whose end frees what its pool still waits for
    const auto setup = setupFor(*row, answer, random);
    Stage stage(setup);
    row->prepare(stage);
    auto job = stage.answer(answer.steps);
    if (row->question == Row::Question::menu)
        job.menu = std::vector<std::string>{"Red", "Blue"};
    if (row->question == Row::Question::folder)
        job.screen = DeliverJob::Screen{"claude_trust", answer.want, stage.project()};

    const auto clock = std::make_shared<SystemClock>();
    Change change(*row, stage, random);
    std::size_t asked = 0;
    std::vector<Typed> typed;
    const auto begin = monotonic();
    const auto elapsed = [begin] { return static_cast<double>(monotonic() - begin) / 1e9; };
    const auto beforeAsked = [&](auto) {
        if (asked++ == keyOfChange && this->moment == Moment::beforeKey)
            change.apply();
    };
    std::atomic<double> firstKey = 0;
    const auto beforeSent = [&](std::chrono::steady_clock::time_point lookBegan) {
        if (typed.empty())
            firstKey = elapsed();
        typed.push_back({lookBegan.time_since_epoch().count(), monotonic()});
        if (typed.size() == keyOfChange + 1 && this->moment == Moment::lastInstant)
            change.apply();
    };
    LiveExecutor executor{runnerFor(job, stage, loop.pool(), clock, beforeAsked, beforeSent),
        {{"tmux", "/usr/bin/tmux"}, {"claude", stage.agentBin()}}, clock, "/nobody"};
    const LiveExecutor::Start start = [clock, delayOfStart] { return goAhead(clock, delayOfStart + 0.01); };

    std::jthread changer([&](std::stop_token stop) {
        while (this->moment == Moment::random && !stop.stop_requested()) {
            const double key = firstKey;
            if (row->inPause ? key != 0 && elapsed() >= key + fraction * pauseBeforeReturn
                             : elapsed() >= moment)
                return change.apply();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    Verdict verdict;
    verdict.played =
        fmt::format("{}, below {}, change {}", answer.kind, setup.shell.empty() ? "nothing" : setup.shell,
            this->moment == Moment::random ? fmt::format("after {:.3f} s", moment)
                                           : fmt::format("at key {}", keyOfChange + 1));
    try {
        verdict.outcome = loop.run(executor.perform(job, {"tag"}, clock->now(), start));
    } catch (const std::exception&) {
        verdict.hung = true;
    }
    changer.request_stop();
    changer.join();
    verdict.impossible = change.impossible();
    if (!verdict.impossible.empty())
        return verdict;
    if (!change.error().empty())
        throw std::runtime_error(fmt::format("{}, seed {}: {}", row->name, seed, change.error()));

    const auto seen = stage.settled();
    if (!verdict.hung)
        judge(verdict, answer, seen);
    if (verdict.right && !typed.empty())
        pace.learn(answer.kind, static_cast<double>(typed.back().handedOver - begin) / 1e9 - delayOfStart);
    // Keys that were typed before may be read by whom the change brings, while it is still under way.
    const auto stray = firstStray(seen, change.began());
    // In the random case the change may still be on its way when tmux looks: keys not read yet, a screen not
    // drawn yet.
    const bool late = this->moment == Moment::random ||
                      (this->moment == Moment::lastInstant && row->lastInstant == Row::LastInstant::unseen);
    verdict.unseen = late && verdict.wrong() && !verdict.hung && cameAfterLook(change.at(), typed, stray);
    return verdict;
}

} // namespace kelvadrome::test
