#include "Kelvadrome/model/Lookups.h"

#include <algorithm>
#include <iterator>

namespace kelvadrome {

namespace {

constexpr double timeout = 10; // seconds
constexpr std::int64_t hitLimit = 50;

struct ReceiptsReply {
    std::vector<ReceiptEntry> receipts;

    static ReceiptsReply decode(const JSONValue& value) {
        return {value.object().required<std::vector<ReceiptEntry>>("receipts")};
    }
};

struct SearchReply {
    std::vector<FoundEntry> hits;

    static SearchReply decode(const JSONValue& value) {
        SearchReply reply;
        const auto object = value.object();
        for (const auto* kind : {"questions", "decisions", "topics"}) {
            auto hits = object.valueOr<std::vector<FoundEntry>>(kind, {});
            std::ranges::move(hits, std::back_inserter(reply.hits));
        }
        return reply;
    }
};

struct CardReply {
    CardRecord card;

    static CardReply decode(const JSONValue& value) { return {value.object().required<CardRecord>("card")}; }
};

/// Why a read failed. What the socket says is for nobody but a log.
std::string inWords(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const DaemonError& refused) {
        return refused.message();
    } catch (const DecodingError&) {
        return "The daemon's answer can't be read.";
    } catch (...) {
        return "The daemon doesn't answer now.";
    }
}

} // namespace

template <class Reply>
void Lookups::start(
    TaskHandle& reading, Request request, std::function<void(LookupResults& results, Reply reply)> keep) {
    reading.cancel();
    const auto name = request.path;
    reading = tasks_.launch(
        name, read<Reply>(weak_from_this(), clock_, client_, std::move(request), std::move(keep)));
}

template <class Reply>
Task<> Lookups::read(std::weak_ptr<Lookups> weak, std::shared_ptr<Clock> clock, DaemonClient client,
    Request request, std::function<void(LookupResults& results, Reply reply)> keep) {
    if (request.pause > 0)
        co_await clock->sleep(request.pause);
    if (weak.expired())
        co_return;
    auto call = client.post<Reply>(std::move(request.path), std::move(request.body), timeout);
    auto reply = co_await attempt(std::move(call));
    const bool replaced = co_await taskCancelled();
    const auto self = weak.lock();
    if (replaced || !self)
        co_return;
    self->change([&](LookupResults& results) {
        results.error = reply ? std::string() : inWords(reply.error());
        if (reply)
            keep(results, reply.take());
    });
}

void Lookups::readReceipts(std::string typed) {
    const bool types = results_.receipts && results_.receipts->filter != typed;
    Request request{
        types ? typingPause : 0, "/v1/receipts/list", ReceiptFilter::parse(typed).request(receiptLimit)};
    start<ReceiptsReply>(
        readingReceipts_, std::move(request), [typed](LookupResults& results, ReceiptsReply reply) {
            const bool more = reply.receipts.size() == static_cast<std::size_t>(receiptLimit);
            results.receipts = ReceiptList{typed, std::move(reply.receipts), more};
        });
}

void Lookups::search(std::string text) {
    Request request{0, "/v1/search", {{"q", text}, {"limit", hitLimit}}};
    start<SearchReply>(searching_, std::move(request), [text](LookupResults& results, SearchReply reply) {
        results.found = SearchHits{text, std::move(reply.hits)};
    });
}

void Lookups::readCard(std::string id) {
    start<CardReply>(readingCard_, {0, "/v1/cards/detail", {{"card_id", id}}},
        [](LookupResults& results, CardReply reply) { results.card = std::move(reply.card); });
}

void Lookups::closeCard() {
    readingCard_.cancel();
    change([](LookupResults& results) { results.card.reset(); });
}

} // namespace kelvadrome
