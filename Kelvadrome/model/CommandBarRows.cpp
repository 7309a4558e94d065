#include "Kelvadrome/model/CommandBarRows.h"

#include "KelvadromeKit/support/Text.h"

#include <boost/url/encode.hpp>
#include <boost/url/grammar/lut_chars.hpp>

namespace kelvadrome::CommandBar {

namespace {

using Row = CommandBarRow;

// What stays as it is in a path.
constexpr boost::urls::grammar::lut_chars letters(
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789");
constexpr auto idLetters = letters + '-' + '_';

std::string afterwards(const CommandBarState::Proposal& proposal) {
    if (proposal.clarify)
        return *proposal.clarify;
    std::string line = "Card ready in your Inbox";
    if (proposal.shots == 1) {
        line += ", with 1 screenshot";
    } else if (proposal.shots > 1) {
        line += ", with " + std::to_string(proposal.shots) + " screenshots";
    }
    return line + ". Nothing runs before you press Run.";
}

Row askRow(const CommandBarState& state) {
    const bool highlighted = state.selection == 0;
    return {.kind = Row::Kind::ask,
        .icon = "arrow.turn.down.right",
        .title = "Ask: " + std::string(Text::trimBlanks(state.text)),
        .ending = highlighted && !state.proposing ? "Make a card" : "",
        .busy = state.proposing,
        .highlighted = highlighted};
}

Row hitRow(const CommandBarState& state, std::size_t index) {
    const auto& hit = state.hits[index];
    return {.kind = Row::Kind::hit,
        .icon = hit.kind == "topic"      ? "rectangle.split.3x1"
                : hit.kind == "decision" ? "checkmark.seal"
                                         : "questionmark.bubble",
        .title = hit.title,
        .detail = hit.snippet,
        .highlighted = state.selection == index + 1,
        .selection = index + 1};
}

} // namespace

bool showsRows(const CommandBarState& state) {
    return !Text::trimBlanks(state.text).empty() || state.proposal || state.error;
}

std::vector<CommandBarRow> rows(const CommandBarState& state) {
    std::vector<Row> rows;
    if (!showsRows(state))
        return rows;
    if (state.proposal) {
        rows.push_back({.kind = Row::Kind::proposal,
            .title = state.proposal->summary,
            .detail = afterwards(*state.proposal),
            .ending = "Open"});
    } else {
        rows.push_back(askRow(state));
        for (std::size_t i = 0; i < state.hits.size(); ++i)
            rows.push_back(hitRow(state, i));
    }
    if (state.error)
        rows.push_back({.kind = Row::Kind::error, .icon = "exclamationmark.circle", .title = *state.error});
    return rows;
}

std::string footer(const BarVoice& voice) {
    if (auto status = voice.status())
        return *std::move(status);
    if (auto line = voice.textModeLine())
        return *std::move(line);
    return voice.hint();
}

std::string pathOf(const SearchHit& hit, std::string_view text) {
    const auto topic = hit.topic ? hit.topic : hit.kind == "topic" ? std::optional(hit.id) : std::nullopt;
    if (topic)
        return "/topics/" + boost::urls::encode(*topic, idLetters);
    return "/search?q=" + boost::urls::encode(Text::trimBlanks(text), letters);
}

Button attachWindow() {
    return {"macwindow", "Attach the window you were in (Control Option P)", "Attach the window you were in",
        "<Control><Alt>p"};
}

Button attachRegion() {
    return {"rectangle.dashed", "Attach a region of the screen (Control Option Shift P)",
        "Attach a region of the screen", "<Control><Alt><Shift>p"};
}

Button microphone(const BarVoice& voice) {
    if (!voice.micUsable())
        return {.icon = "waveform", .help = "", .accessible = "", .enabled = false};
    const bool recording = voice.recording();
    const std::string words = recording ? "Stop" : "Talk";
    return {recording ? "stop.fill" : "mic.fill", words, words};
}

Button removeShot() {
    return {"xmark", "Remove this screenshot", "Remove screenshot"};
}

} // namespace kelvadrome::CommandBar
