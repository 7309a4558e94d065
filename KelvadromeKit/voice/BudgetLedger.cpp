#include "KelvadromeKit/voice/BudgetLedger.h"

namespace kelvadrome {

namespace {

constexpr double timeout = 10; // seconds

// Each call runs on a copy of its client, which a caller may drop meanwhile.

Task<BudgetGrant> askDaemon(DaemonClient client, boost::json::object body) {
    auto asking =
        client.post<DaemonBudgetLedger::ReserveOut>("/v1/voice/budget/reserve", std::move(body), timeout);
    auto out = co_await std::move(asking);
    if (out.reservationId)
        co_return BudgetGrant::granted(std::move(*out.reservationId));
    co_return BudgetGrant::denied(out.usedMinutes.value_or(0));
}

Task<> tellDaemon(DaemonClient client, boost::json::object body) {
    auto telling = client.post<AnyDecodable>("/v1/voice/engine/used", std::move(body), timeout);
    co_await attempt(std::move(telling));
}

} // namespace

DaemonBudgetLedger::ReserveOut DaemonBudgetLedger::ReserveOut::decode(const JSONValue& value) {
    const auto object = value.object();
    return {object.optional<std::string>("reservation_id"), object.optional<bool>("denied"),
        object.optional<double>("used_minutes")};
}

Task<BudgetGrant> DaemonBudgetLedger::reserve(std::string engine, std::string model, std::int64_t seconds) {
    return askDaemon(client_, {{"engine", engine}, {"model", model}, {"seconds", seconds}});
}

Task<> DaemonBudgetLedger::used(std::string reservation, std::int64_t seconds, bool ok) {
    return tellDaemon(client_, {{"reservation_id", reservation}, {"seconds", seconds}, {"ok", ok}});
}

} // namespace kelvadrome
