#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Whether setup is needed, where its page is, and what a quit in the middle of an install asks.
namespace kelvadrome::FirstRun {

enum class Decision { onboarding, main };

/// `completed` is the daemon's word. A daemon that doesn't know the idea, or didn't answer, has none, and
/// such a daemon isn't sent through setup; `forced` overrules it.
Decision decide(std::optional<bool> completed, bool forced);

/// The setup page at the origin `base`, whatever path and query that brings; absent if `base` is no URL.
std::optional<std::string> url(std::string_view base, bool first);

/// "A, B and C are installing. Quit anyway?"; absent when nothing is.
std::optional<std::string> quitPrompt(const std::vector<std::string>& installing);

} // namespace kelvadrome::FirstRun
