#include "KelvadromeKit/delivery/SystemHostAccess.h"

#include "KelvadromeKit/delivery/ConsentGuard.h"

#include <map>
#include <mutex>
#include <thread>

namespace kelvadrome {

/// The open questions, of which one shows at a time. Each waits on a thread that nobody joins, for as long as
/// the user takes. Such a thread knows its question by number only, so that it can't reach an executor that
/// is gone.
class SystemHostAccess::Questions : public std::enable_shared_from_this<Questions> {
public:
    using Call = std::function<ConsentCode(std::string)>;

    explicit Questions(Call request) : request_(std::move(request)) {}

    static Task<ConsentCode> ask(std::shared_ptr<Questions> self, std::string bundleId) {
        auto start = [self, bundleId](
                         Completion<ConsentCode> finish) { self->begin(bundleId, std::move(finish)); };
        co_return co_await suspendUntil<ConsentCode>(std::move(start));
    }

    void close() {
        std::map<std::uint64_t, Completion<ConsentCode>> left;
        std::lock_guard guard(lock_);
        left.swap(open_);
        closed_ = true;
    }

private:
    void begin(const std::string& bundleId, Completion<ConsentCode> finish) {
        std::uint64_t number = 0;
        {
            std::lock_guard guard(lock_);
            if (closed_)
                return finish(std::nullopt);
            number = next_++;
            open_.emplace(number, std::move(finish));
        }
        std::thread([self = shared_from_this(), bundleId, number] {
            self->answer(number, self->show(bundleId));
        }).detach();
    }

    ConsentCode show(const std::string& bundleId) {
        std::lock_guard turn(turn_);
        return request_(bundleId);
    }

    /// Under the lock to the end: `close` returns only when no answer touches an executor any more.
    void answer(std::uint64_t number, ConsentCode code) {
        std::lock_guard guard(lock_);
        if (const auto question = open_.extract(number))
            question.mapped()(code);
    }

    Call request_;
    std::mutex turn_; // held while a question shows
    std::mutex lock_; // of the below
    std::map<std::uint64_t, Completion<ConsentCode>> open_;
    std::uint64_t next_ = 0;
    bool closed_ = false;
};

namespace {

ConsentCode noOpinion(const std::string&) {
    return std::nullopt;
}

Task<ConsentCode> noAnswer(std::string) {
    co_return std::nullopt;
}

} // namespace

SystemHostAccess::SystemHostAccess(Calls calls)
    : consent_(noOpinion), request_(noAnswer), screenLocked_(std::move(calls.screenLocked)) {
    if (calls.check) {
        consent_ = [guard = std::make_shared<ConsentGuard>(std::move(calls.check))](
                       std::string bundleId) { return guard->consent(std::move(bundleId)); };
    }
    if (calls.request) {
        questions_ = std::make_shared<Questions>(std::move(calls.request));
        request_ = [questions = questions_](
                       std::string bundleId) { return Questions::ask(questions, std::move(bundleId)); };
    }
}

SystemHostAccess::~SystemHostAccess() {
    if (questions_)
        questions_->close();
}

HostAccessProbe SystemHostAccess::probe() const {
    return {consent_, screenLocked_};
}

AutomationProbe SystemHostAccess::automation() const {
    return {consent_, request_, screenLocked_};
}

} // namespace kelvadrome
