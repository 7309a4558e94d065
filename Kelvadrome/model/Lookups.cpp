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
    std::vector<SearchHit> hits;

    static SearchReply decode(const JSONValue& value) {
        SearchReply reply;
        const auto object = value.object();
        for (const auto* kind : {"questions", "decisions", "topics"}) {
            auto hits = object.valueOr<std::vector<SearchHit>>(kind, {});
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

void Lookups::readReceipts(std::string typed) {
    const bool types = results_.receipts && results_.receipts->filter != typed;
    readingReceipts_.cancel();
    readingReceipts_ =
        tasks_.launch("receipts", receiptsNow(weak_from_this(), std::move(typed), types ? typingPause : 0));
}

Task<> Lookups::receiptsNow(std::weak_ptr<Lookups> weak, std::string typed, double pause) {
    const auto self = weak.lock();
    if (!self)
        co_return;
    if (pause > 0)
        co_await self->clock_->sleep(pause);
    auto body = ReceiptFilter::parse(typed).request(receiptLimit);
    auto call = self->client_.post<ReceiptsReply>("/v1/receipts/list", std::move(body), timeout);
    auto reply = co_await attempt(std::move(call));
    const bool replaced = co_await taskCancelled();
    if (replaced)
        co_return;
    self->change([&](LookupResults& results) {
        results.error = reply ? std::string() : inWords(reply.error());
        if (!reply)
            return;
        const bool more = reply->receipts.size() == static_cast<std::size_t>(receiptLimit);
        results.receipts = ReceiptList{typed, std::move(reply->receipts), more};
    });
}

void Lookups::search(std::string text) {
    searching_.cancel();
    if (text.find_first_not_of(' ') == std::string::npos)
        return change([](LookupResults& results) { results.found.reset(); });
    searching_ = tasks_.launch("search", searchNow(weak_from_this(), std::move(text)));
}

Task<> Lookups::searchNow(std::weak_ptr<Lookups> weak, std::string text) {
    const auto self = weak.lock();
    if (!self)
        co_return;
    co_await self->clock_->sleep(typingPause);
    boost::json::object body{{"q", text}, {"limit", hitLimit}};
    auto call = self->client_.post<SearchReply>("/v1/search", std::move(body), timeout);
    auto reply = co_await attempt(std::move(call));
    const bool replaced = co_await taskCancelled();
    if (replaced)
        co_return;
    self->change([&](LookupResults& results) {
        results.error = reply ? std::string() : inWords(reply.error());
        if (reply)
            results.found = SearchHits{text, std::move(reply->hits)};
    });
}

void Lookups::readCard(std::string id) {
    readingCard_.cancel();
    readingCard_ = tasks_.launch("card", cardNow(weak_from_this(), std::move(id)));
}

void Lookups::closeCard() {
    readingCard_.cancel();
    change([](LookupResults& results) { results.card.reset(); });
}

Task<> Lookups::cardNow(std::weak_ptr<Lookups> weak, std::string id) {
    const auto self = weak.lock();
    if (!self)
        co_return;
    boost::json::object body{{"card_id", id}};
    auto call = self->client_.post<CardReply>("/v1/cards/detail", std::move(body), timeout);
    auto reply = co_await attempt(std::move(call));
    const bool replaced = co_await taskCancelled();
    if (replaced)
        co_return;
    self->change([&](LookupResults& results) {
        results.error = reply ? std::string() : inWords(reply.error());
        if (reply)
            results.card = std::move(reply->card);
    });
}

} // namespace kelvadrome
