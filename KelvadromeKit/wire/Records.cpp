#include "KelvadromeKit/wire/Records.h"

#include <cmath>

namespace kelvadrome {

namespace {

/// Text to this system; sent as a string or as a number.
std::optional<std::string> decodeWatermark(const JSONObject& object) {
    if (auto text = object.lenient<std::string>("watermark"))
        return text;
    const auto number = object.lenient<double>("watermark");
    if (!number || std::fabs(*number) >= 9223372036854775808.0)
        return std::nullopt;
    return std::to_string(static_cast<std::int64_t>(*number));
}

} // namespace

Health Health::decode(const JSONValue& value) {
    const auto object = value.object();
    Health health;
    health.name = object.valueOr<std::string>("name", "kelvadromed");
    health.version = object.valueOr<std::string>("version", "?");
    health.pid = object.valueOr<std::int64_t>("pid", 0);
    health.home = object.valueOr<std::string>("home", "");
    health.watermark = decodeWatermark(object);
    health.uptimeS = object.optional<double>("uptime_s");
    health.kd = object.lenient<std::string>("kd").value_or("kd");
    return health;
}

BoardRow BoardRow::decode(const JSONValue& value) {
    const auto object = value.object();
    BoardRow row;
    row.id = object.required<std::string>("id");
    row.title = object.valueOr("title", row.id);
    row.scope = object.optional<std::string>("scope");
    row.openCards = object.lenient<std::int64_t>("open_cards").value_or(0);
    return row;
}

Receipt Receipt::decode(const JSONValue& value) {
    const auto object = value.object();
    Receipt receipt;
    receipt.eventId = object.required<std::string>("event_id");
    receipt.action = object.required<std::string>("action");
    receipt.line = object.required<std::string>("line");
    receipt.topic = object.optional<std::string>("topic");
    receipt.ts = object.required<std::string>("ts");
    receipt.cardId = object.lenient<std::string>("card_id");
    return receipt;
}

InboxCounts InboxCounts::decode(const JSONValue& value) {
    const auto object = value.object();
    InboxCounts counts;
    counts.needsYou = object.required<std::int64_t>("needs_you");
    counts.answeredByRulesToday = object.required<std::int64_t>("answered_by_rules_today");
    counts.agentsWorking = object.required<std::int64_t>("agents_working");
    counts.verifiedToday = object.required<std::int64_t>("verified_today");
    return counts;
}

InboxFeed InboxFeed::decode(const JSONValue& value) {
    return {value.object().optional<InboxCounts>("counts")};
}

LoginLink LoginLink::decode(const JSONValue& value) {
    const auto object = value.object();
    return {object.required<std::string>("url"), object.required<std::string>("expires_at")};
}

OnboardingStatus::Install OnboardingStatus::Install::decode(const JSONValue& value) {
    const auto object = value.object();
    return {object.required<std::string>("state"), object.optional<std::string>("kind")};
}

OnboardingStatus::Agent OnboardingStatus::Agent::decode(const JSONValue& value) {
    const auto object = value.object();
    return {object.required<std::string>("id"), object.optional<std::string>("name"),
        object.optional<Install>("install")};
}

OnboardingStatus OnboardingStatus::decode(const JSONValue& value) {
    const auto object = value.object();
    return {object.optional<bool>("completed"), object.valueOr<std::vector<Agent>>("agents", {})};
}

std::vector<std::string> OnboardingStatus::installingNames() const {
    std::vector<std::string> names;
    for (const auto& agent : agents) {
        if (agent.install && busyStates.contains(agent.install->state))
            names.push_back(agent.name.value_or(agent.id));
    }
    return names;
}

} // namespace kelvadrome
