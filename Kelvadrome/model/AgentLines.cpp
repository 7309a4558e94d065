#include "Kelvadrome/model/AgentLines.h"

#include <algorithm>

namespace kelvadrome {

namespace {

using Session = AgentsStatus::Session;

bool isOf(const Card& card, const Session& session) {
    return card.agent == session.agent && card.sessionId.value_or("") == session.sessionId;
}

std::string lastPart(std::string path) {
    while (path.ends_with('/'))
        path.pop_back();
    return path.substr(path.rfind('/') + 1);
}

} // namespace

std::string placeOf(const Session& session, const std::optional<std::string>& topic) {
    std::string place = session.callsign.value_or("");
    const auto add = [&](const std::string& words) {
        if (!words.empty())
            place += (place.empty() ? "" : " · ") + words;
    };
    if (const auto folder = lastPart(session.folder.value_or("")); folder != topic)
        add(folder);
    std::string terminal = session.host && *session.host != "unknown" ? *session.host : "";
    if (const auto& where = session.pane ? session.pane : session.tty)
        terminal += (terminal.empty() ? "" : " ") + *where;
    add(terminal);
    return place;
}

const Session* sessionOf(const Card& card, const std::vector<Session>& sessions) {
    if (!card.agent || !card.sessionId)
        return nullptr;
    const auto found = std::ranges::find_if(sessions, [&](const Session& s) { return isOf(card, s); });
    return found == sessions.end() ? nullptr : &*found;
}

AgentLine agentLine(const AppState& state, const Session& session) {
    AgentLine line{.lamp = InboxLogic::lamp(session.status, session.detail),
        .name = InboxLogic::agentDisplay(session.agent, session.label),
        .id = session.agent + ":" + session.sessionId,
        .waiting = std::ranges::count_if(state.cards,
            [&](const Card& card) { return InboxLogic::needsYou(card) && isOf(card, session); })};
    const auto topic = session.topicTitle ? session.topicTitle : topicTitle(state, session.topic);
    line.place = placeOf(session, topic);
    if (line.lamp == InboxLogic::Lamp::working && topic) {
        line.words = "Working on " + *topic;
    } else if (session.detail && !session.detail->empty()) {
        line.words = *session.detail;
    } else if (holdsEdge(state, session)) {
        line.words = "Holding Edge";
    } else {
        line.words = InboxLogic::statusWord(session.status, false, false, std::nullopt);
        if (topic)
            line.words += ", " + *topic;
    }
    return line;
}

std::vector<AgentLine> agentLines(const AppState& state) {
    std::vector<AgentLine> lines;
    for (const auto& session : agentRows(state))
        lines.push_back(agentLine(state, session));
    return lines;
}

std::string_view lampWords(InboxLogic::Lamp lamp) {
    switch (lamp) {
    case InboxLogic::Lamp::working:
        return "working";
    case InboxLogic::Lamp::needsYou:
        return "needs you";
    case InboxLogic::Lamp::idle:
        return "idle";
    case InboxLogic::Lamp::failed:
        return "failed";
    }
    return "";
}

std::string sentenceOf(const AgentLine& line) {
    std::string words = line.name;
    if (!line.place.empty())
        words += ", " + line.place;
    words += ": ";
    words += lampWords(line.lamp);
    if (!line.words.empty() && line.words != lampWords(line.lamp))
        words += ", " + line.words;
    return words;
}

} // namespace kelvadrome
