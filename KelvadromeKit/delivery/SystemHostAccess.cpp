#include "KelvadromeKit/delivery/SystemHostAccess.h"

#include "KelvadromeKit/delivery/ConsentGuard.h"

#include <mutex>
#include <thread>

namespace kelvadrome {

namespace {

using Call = std::function<ConsentCode(std::string)>;

ConsentCode noOpinion(const std::string&) {
    return std::nullopt;
}

Task<ConsentCode> noAnswer(std::string) {
    co_return std::nullopt;
}

/// One question at a time. Each waits on a thread of its own that nobody joins, for as long as the user
/// takes.
Task<ConsentCode> ask(std::shared_ptr<std::mutex> turn, Call request, std::string bundleId) {
    auto start = [=](Completion<ConsentCode> finish) {
        std::thread([=] {
            ConsentCode code;
            {
                std::lock_guard guard(*turn);
                code = request(bundleId);
            }
            finish(code);
        }).detach();
    };
    co_return co_await suspendUntil<ConsentCode>(std::move(start));
}

} // namespace

SystemHostAccess::SystemHostAccess(Calls calls) : screenLocked_(std::move(calls.screenLocked)) {
    consent_ = noOpinion;
    request_ = noAnswer;
    if (calls.check) {
        consent_ = [guard = std::make_shared<ConsentGuard>(std::move(calls.check))](
                       std::string bundleId) { return guard->consent(std::move(bundleId)); };
    }
    if (calls.request) {
        request_ = [turn = std::make_shared<std::mutex>(), request = std::move(calls.request)](
                       std::string bundleId) { return ask(turn, request, std::move(bundleId)); };
    }
}

HostAccessProbe SystemHostAccess::probe() const {
    return {consent_, screenLocked_};
}

AutomationProbe SystemHostAccess::automation() const {
    return {consent_, request_, screenLocked_};
}

} // namespace kelvadrome
