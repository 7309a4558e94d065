#include "KelvadromeKit/attention/AgentStrip.h"

#include "KelvadromeKit/attention/InboxLogic.h"
#include "KelvadromeKit/support/Text.h"

#include <algorithm>

namespace kelvadrome {

AgentStrip::AgentStrip(const std::vector<AgentsStatus::Session>& sessions, std::int64_t needsYou)
    : needsYou(needsYou) {
    for (const auto& session : sessions) {
        if (session.status == "ended")
            continue;
        items.push_back({session.agent + ":" + session.sessionId,
            session.label.value_or(Text::capitalized(session.agent)), lamp(session.status, session.detail),
            session.detail.value_or(session.status)});
    }
    std::stable_sort(
        items.begin(), items.end(), [](const Item& a, const Item& b) { return a.lamp < b.lamp; });
}

std::string AgentStrip::headline() const {
    return InboxLogic::cautionText(needsYou);
}

AgentStrip::Lamp AgentStrip::lamp(std::string_view status, const std::optional<std::string>& detail) {
    const std::string_view words = detail ? std::string_view(*detail) : std::string_view();
    if (words == "waits for you")
        return Lamp::needsYou;
    if (status == "busy" || words == "holding Edge")
        return Lamp::working;
    if (status == "waiting" || words == "queued for Edge")
        return Lamp::waiting;
    return Lamp::idle;
}

std::string_view rawValue(AgentStrip::Lamp lamp) {
    switch (lamp) {
    case AgentStrip::Lamp::needsYou:
        return "needsYou";
    case AgentStrip::Lamp::working:
        return "working";
    case AgentStrip::Lamp::waiting:
        return "waiting";
    case AgentStrip::Lamp::idle:
        break;
    }
    return "idle";
}

} // namespace kelvadrome
