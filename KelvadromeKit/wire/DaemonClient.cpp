#include "KelvadromeKit/wire/DaemonClient.h"

#include <map>

namespace kelvadrome {

namespace {

constexpr double timeout = 10; // seconds

struct CardsOut {
    std::vector<Card> cards;

    static CardsOut decode(const JSONValue& value) {
        return {value.object().required<std::vector<Card>>("cards")};
    }
};

struct BoardOut {
    std::vector<BoardRow> topics;

    static BoardOut decode(const JSONValue& value) {
        return {value.object().required<std::vector<BoardRow>>("topics")};
    }
};

struct ReceiptsOut {
    std::vector<Receipt> receipts;

    static ReceiptsOut decode(const JSONValue& value) {
        return {value.object().required<std::vector<Receipt>>("receipts")};
    }
};

struct Registered {
    bool registered;

    static Registered decode(const JSONValue& value) { return {value.object().required<bool>("registered")}; }
};

template <class T>
Task<T> postNothing(const DaemonClient& client, const char* path) {
    return client.post<T>(path, {}, timeout);
}

// Each call runs on a copy of its client, which a caller may drop meanwhile.

Task<std::vector<Card>> readCards(DaemonClient client) {
    auto out = co_await postNothing<CardsOut>(client, "/v1/cards/list");
    co_return std::move(out.cards);
}

Task<std::vector<BoardRow>> readBoard(DaemonClient client) {
    auto out = co_await postNothing<BoardOut>(client, "/v1/board");
    co_return std::move(out.topics);
}

Task<std::vector<Receipt>> readReceipts(DaemonClient client, std::int64_t limit) {
    boost::json::object body;
    body["limit"] = limit;
    auto out = co_await client.post<ReceiptsOut>("/v1/receipts/list", std::move(body), timeout);
    co_return std::move(out.receipts);
}

Task<std::optional<AgentsStatus>> readAgentsStatus(DaemonClient client) {
    try {
        co_return co_await postNothing<AgentsStatus>(client, "/v1/agents/status");
    } catch (const DaemonError& error) {
        if (!error.isMissingRoute())
            throw;
    }
    co_return std::nullopt;
}

Task<std::optional<InboxCounts>> readInboxCounts(DaemonClient client) {
    try {
        auto feed = co_await postNothing<InboxFeed>(client, "/v1/inbox");
        co_return feed.counts;
    } catch (const DaemonError& error) {
        // The route's request changed between versions: to be refused is as good as having no such route.
        if (!error.isMissingRoute() && error.code() != "validation_failed")
            throw;
    }
    co_return std::nullopt;
}

Task<> registerPageKey(DaemonClient client, std::string pageKey) {
    boost::json::object body;
    body["key"] = pageKey;
    try {
        co_await client.post<Registered>("/v1/page/claim", std::move(body), timeout);
    } catch (const DaemonError& error) {
        if (!error.isMissingRoute())
            throw;
    }
}

Task<LoginLink> takeLogin(DaemonClient client, std::optional<std::string> pageKey) {
    std::map<std::string, std::string> headers;
    if (pageKey) {
        co_await registerPageKey(client, *pageKey);
        headers["x-kd-page-key"] = *pageKey;
    }
    auto exchange = client.transport.send("POST", "/v1/page/token", "{}", std::move(headers), timeout);
    const auto response = co_await std::move(exchange);
    co_return Envelope::decode<LoginLink>(response);
}

} // namespace

Task<Health> DaemonClient::health(double timeout) const {
    return decoded<Health>(transport.send("GET", "/v1/health", std::nullopt, {}, timeout));
}

Task<std::vector<Card>> DaemonClient::cards() const {
    return readCards(*this);
}

Task<std::vector<BoardRow>> DaemonClient::board() const {
    return readBoard(*this);
}

Task<std::vector<Receipt>> DaemonClient::receipts(std::int64_t limit) const {
    return readReceipts(*this, limit);
}

Task<std::optional<AgentsStatus>> DaemonClient::agentsStatus() const {
    return readAgentsStatus(*this);
}

Task<std::optional<InboxCounts>> DaemonClient::inboxCounts() const {
    return readInboxCounts(*this);
}

Task<LoginLink> DaemonClient::mintLogin(std::optional<std::string> pageKey) const {
    return takeLogin(*this, std::move(pageKey));
}

Task<OnboardingStatus> DaemonClient::onboardingStatus(double timeout) const {
    return post<OnboardingStatus>("/v1/onboarding/status", {}, timeout);
}

} // namespace kelvadrome
