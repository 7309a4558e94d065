#include "Kelvadrome/terminal/panel/PanelRules.h"

#include <algorithm>

namespace kelvadrome::PanelRules {

const char* headingOf(PanelEntry::Group group) {
    switch (group) {
    case PanelEntry::Group::needsYou:
        break;
    case PanelEntry::Group::open:
        return "Open all the same";
    case PanelEntry::Group::agentEnded:
        return "From agents that have ended";
    case PanelEntry::Group::snoozed:
        return "Snoozed";
    }
    return "";
}

const char* headingOf(FoundEntry::Kind kind) {
    switch (kind) {
    case FoundEntry::Kind::question:
        break;
    case FoundEntry::Kind::decision:
        return "Decisions";
    case FoundEntry::Kind::topic:
        return "Topics";
    }
    return "Open questions";
}

const PanelEntry* rowOf(const PanelContent& content, const std::optional<std::string>& id) {
    if (!id)
        return nullptr;
    const auto found = std::ranges::find(content.inbox, *id, &PanelEntry::id);
    return found == content.inbox.end() ? nullptr : &*found;
}

bool sameQuestion(const Card& left, const Card& right) {
    return left.id == right.id && left.version == right.version && left.options == right.options &&
           left.defaultAnswer == right.defaultAnswer && left.risk == right.risk && left.rows == right.rows;
}

bool sameRow(const PanelEntry& left, const PanelEntry& right) {
    return left.row.index() == right.row.index() && left.group == right.group &&
           takesAnswer(left.row) == takesAnswer(right.row) &&
           sameQuestion(cardOf(left.row), cardOf(right.row));
}

const char* whyNoAnswer(const PanelCard& row) {
    if (!row.way.empty())
        return answerUnderWay;
    if (row.card.state == "gone")
        return "Its agent has ended: nobody is left to take an answer.";
    return row.highRisk ? "High risk: v reviews it in kelvadrome."
                        : "No answer can be typed for this: v opens it in kelvadrome.";
}

} // namespace kelvadrome::PanelRules
