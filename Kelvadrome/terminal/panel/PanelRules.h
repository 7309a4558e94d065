#pragma once

#include "Kelvadrome/terminal/panel/PanelContent.h"

#include <optional>
#include <string>

/// What the keys and the picture have to agree on. Pure.
namespace kelvadrome::PanelRules {

inline constexpr int listHeight = 2; // lines of a row that isn't selected, without the blank one below it

inline constexpr const char* answerUnderWay = "An answer to this is under way already.";
inline constexpr const char* justChanged = "This row has just changed. Look again, then press again.";

/// The heading above the first row of a group; empty for none.
const char* headingOf(PanelEntry::Group group);
const char* headingOf(FoundEntry::Kind kind);

const PanelEntry* rowOf(const PanelContent& content, const std::optional<std::string>& id);
/// Whether an answer that is meant for one card fits the other: the same question with the same answers.
bool sameQuestion(const Card& left, const Card& right);
/// Whether a key that is meant for one row does the same on the other.
bool sameRow(const PanelEntry& left, const PanelEntry& right);
/// Why no answer to this card can be pressed.
const char* whyNoAnswer(const PanelCard& row);

} // namespace kelvadrome::PanelRules
