#pragma once

#include "Kelvadrome/model/LookupRecords.h"
#include "KelvadromeKit/support/Clock.h"
#include "KelvadromeKit/support/Observation.h"
#include "KelvadromeKit/support/TaskBag.h"
#include "KelvadromeKit/wire/DaemonClient.h"

#include <boost/json/object.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace kelvadrome {

/// Reads from the daemon what isn't part of the application's state: receipts, search results, a card that is
/// over. The last request of each kind counts; requests that come while the user types are put together. Main
/// executor; held by shared_ptr.
class Lookups : public std::enable_shared_from_this<Lookups> {
public:
    static constexpr double typingPause = 0.12; // seconds
    static constexpr std::int64_t receiptLimit = 200;

    Lookups(Executor executor, std::shared_ptr<Clock> clock, DaemonClient client)
        : clock_(std::move(clock)), client_(std::move(client)), changes_(executor), tasks_(executor) {}

    const LookupResults& results() const { return results_; }
    [[nodiscard]] Subscription observe(std::function<void()> observer) {
        return changes_.observe(std::move(observer));
    }

    /// The receipts that a filter, as it was typed, lets pass.
    void readReceipts(std::string typed);
    /// More than the command bar finds, and more of each.
    void search(std::string text);
    void readCard(std::string id);
    void closeCard();
    /// Nothing is read from then on.
    void close() { tasks_.close(); }

private:
    struct Request {
        double pause = 0; // seconds before it goes out
        std::string path;
        boost::json::object body;
    };

    template <class Change>
    void change(const Change& make) {
        const auto before = results_;
        make(results_);
        if (before != results_)
            changes_.changed();
    }
    /// One read in the place of the one before it. `keep` puts what came into the results.
    template <class Reply>
    void start(
        TaskHandle& reading, Request request, std::function<void(LookupResults& results, Reply reply)> keep);
    template <class Reply>
    static Task<> read(std::weak_ptr<Lookups> weak, std::shared_ptr<Clock> clock, DaemonClient client,
        Request request, std::function<void(LookupResults& results, Reply reply)> keep);

    std::shared_ptr<Clock> clock_;
    DaemonClient client_;
    LookupResults results_;
    ChangeAnnouncer changes_;
    TaskBag tasks_;
    TaskHandle readingReceipts_;
    TaskHandle searching_;
    TaskHandle readingCard_;
};

} // namespace kelvadrome
