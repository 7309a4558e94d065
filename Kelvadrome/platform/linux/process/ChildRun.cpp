#include "Kelvadrome/platform/linux/process/ChildRun.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

namespace kelvadrome {

namespace {

constexpr int chunksAfterExit = 16; // together more than a pipe holds

bool holdsLine(const std::string& text, const std::string& line) {
    return ("\n" + text).contains("\n" + line + "\n");
}

} // namespace

ChildRun::ChildRun(SpawnRequest request, ChildRules rules) : rules_(std::move(rules)) {
    auto output = rules_.unheard ? Pipe() : Pipe::make();
    auto errors = rules_.unheard || rules_.onOutput ? Pipe() : Pipe::make();
    auto input = rules_.input ? Pipe::makeSocket() : Pipe();
    for (const auto* pipe : {&output, &errors}) {
        if (pipe->readEnd)
            ::fcntl(pipe->readEnd.get(), F_SETFL, O_NONBLOCK);
    }
    request.standardOutput = output.writeEnd.get();
    request.standardError = rules_.onOutput ? output.writeEnd.get() : errors.writeEnd.get();
    if (rules_.input)
        request.standardInput = input.readEnd.get();

    process_ = spawnProcess(request);
    output_ = {std::move(output.readEnd), rules_.keptOutput, {}};
    errors_ = {std::move(errors.readEnd), rules_.keptErrors, {}};
    input_ = std::move(input.writeEnd);
    if (rules_.limit < std::numeric_limits<double>::infinity())
        deadline_ = std::chrono::steady_clock::now() +
                    std::chrono::ceil<Instant::duration>(std::chrono::duration<double>(rules_.limit));
}

ChildEnd ChildRun::finish(int leave) {
    while (!isOver()) {
        std::array<pollfd, 4> waits{{{dead_ ? -1 : process_->exited(), POLLIN, 0},
            {output_.end.get(), POLLIN, 0}, {errors_.end.get(), POLLIN, 0}, {leave, POLLIN, 0}}};
        if (::poll(waits.data(), waits.size(), millisToWait()) < 0)
            continue;
        // Before what was written is read, so that nothing is given after the deadline.
        if (deadline_ && std::chrono::steady_clock::now() >= *deadline_)
            stopAtLimit();
        if (!dead_)
            dead_ = waits[0].revents != 0 || (process_->exited() < 0 && !process_->isRunning());
        read(output_, waits[1].revents != 0);
        feed();
        read(errors_, waits[2].revents != 0);
        if (waits[3].revents != 0 && !isOver())
            return {std::nullopt, std::move(output_.kept), std::move(errors_.kept), timedOut_};
    }
    return {process_->reap(), std::move(output_.kept), std::move(errors_.kept), timedOut_};
}

bool ChildRun::isOver() const {
    return dead_ && (!rules_.untilStreamsEnd || (!output_.end && !errors_.end));
}

int ChildRun::millisToWait() const {
    if (!dead_ && process_->exited() < 0)
        return 20; // no descriptor tells of the exit
    if (!deadline_)
        return -1;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(*deadline_ - std::chrono::steady_clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 3'600'000));
}

void ChildRun::stopAtLimit() {
    deadline_.reset();
    timedOut_ = process_->isRunning();
    if (timedOut_ && rules_.atLimit == ChildRules::AtLimit::killGroup)
        process_->signalGroup(SIGKILL);
    else if (timedOut_)
        process_->signal(SIGTERM);
    input_.reset();
}

/// Reads one chunk; once the child has exited and nothing else is waited for, all that its pipe holds. That
/// is bounded, so that a grandchild that keeps writing can't hold this up for ever.
void ChildRun::read(Stream& stream, bool ready) {
    const bool last = dead_ && !rules_.untilStreamsEnd;
    int chunks = last ? chunksAfterExit : ready ? 1 : 0;
    while (stream.end && chunks-- > 0 && readChunk(stream))
        continue;
}

/// False when there is nothing more at this moment, or ever.
bool ChildRun::readChunk(Stream& stream) {
    std::array<char, 65'536> buffer; // as much as a pipe holds
    const auto count = ::read(stream.end.get(), buffer.data(), buffer.size());
    if (count < 0 && (errno == EAGAIN || errno == EINTR))
        return false;
    if (count <= 0) {
        stream.end.reset();
        return false;
    }
    const auto size = static_cast<std::size_t>(count);
    if (rules_.onOutput)
        rules_.onOutput(std::string(buffer.data(), size));
    stream.kept.append(buffer.data(), std::min(size, stream.limit - stream.kept.size()));
    return true;
}

void ChildRun::feed() {
    if (!input_)
        return;
    if (holdsLine(output_.kept, rules_.input->ready))
        give();
    if (!output_.end)
        input_.reset();
}

void ChildRun::give() {
    const auto text = rules_.input->give(output_.kept);
    std::string_view rest = text ? std::string_view(*text) : std::string_view();
    while (!rest.empty()) {
        const auto count = ::send(input_.get(), rest.data(), rest.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break; // gone, or far behind: a command cut off is not carried out
        rest.remove_prefix(static_cast<std::size_t>(count));
    }
    input_.reset();
}

} // namespace kelvadrome
