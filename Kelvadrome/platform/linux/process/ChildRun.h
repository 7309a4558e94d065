#pragma once

#include "Kelvadrome/platform/linux/process/PosixSpawn.h"

#include <chrono>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>

namespace kelvadrome {

/// What a child is given as its input once it has printed the line `ready`; then its input ends. An absent
/// text ends it at once. `give` gets what was printed so far, as far as it is kept.
struct InputOnceReady {
    std::string ready;
    std::function<std::optional<std::string>(std::string_view printed)> give;
};

/// How a child is seen to its end.
struct ChildRules {
    // Of each stream the beginning is kept; the rest is read and dropped. In bytes.
    std::size_t keptOutput = 0;
    std::size_t keptErrors = 0;
    /// Gets each chunk of the output, if set, and standard error then is a part of the output.
    std::function<void(std::string)> onOutput = {};
    /// What it writes goes nowhere: nothing is read.
    bool unheard = false;
    /// Takes the place of the request's standard input.
    std::optional<InputOnceReady> input = {};
    /// Whether it is over only when nobody, grandchildren included, holds its streams open any more.
    bool untilStreamsEnd = false;
    /// At the limit the child is asked to stop (SIGTERM, once) and waited for all the same, or it and its
    /// group are killed.
    enum class AtLimit { ask, killGroup };
    AtLimit atLimit = AtLimit::ask;
    double limit = std::numeric_limits<double>::infinity(); // seconds
};

/// What became of a child.
struct ChildEnd {
    std::optional<int> status; // as SpawnedProcess::reap gives it; absent when it still ran and was left
    std::string output;
    std::string errors;
    bool timedOut = false; // it still ran at its limit
};

/// One child from its start to its end; every child process of ours is one. `finish` is for one thread, and
/// what the rules hold is called there.
class ChildRun {
public:
    /// Starts the program with output streams of its own. Throws std::system_error.
    ChildRun(SpawnRequest request, ChildRules rules);

    const std::shared_ptr<SpawnedProcess>& process() const { return process_; }

    /// Reads, feeds and waits until the end, and reaps. When the descriptor `leave` becomes readable it
    /// returns at once and the child goes on, not reaped.
    ChildEnd finish(int leave = -1);

private:
    using Instant = std::chrono::steady_clock::time_point;

    /// The reading end of one of the child's streams.
    struct Stream {
        Descriptor end;
        std::size_t limit = 0;
        std::string kept;
    };

    bool isOver() const;
    int millisToWait() const;
    void stopAtLimit();
    void read(Stream& stream, bool ready);
    bool readChunk(Stream& stream);
    void feed();
    void give();

    ChildRules rules_;
    Stream output_;
    Stream errors_;
    Descriptor input_; // of a child that waits for it
    std::shared_ptr<SpawnedProcess> process_;
    std::optional<Instant> deadline_; // absent once it is past
    bool dead_ = false;
    bool timedOut_ = false;
};

} // namespace kelvadrome
