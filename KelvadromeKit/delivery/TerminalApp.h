#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kelvadrome {

/// What the system says about scripting another app: 0, one of the two below, or absent when no answer came.
using ConsentCode = std::optional<std::int32_t>;
inline constexpr std::int32_t consentDenied = -1743;
inline constexpr std::int32_t consentNotAsked = -1744;

enum class AutomationStatus { granted, denied, notDetermined, unknown };

std::string_view rawValue(AutomationStatus status);
AutomationStatus automationStatusFrom(ConsentCode code);

/// The terminal apps that are driven by scripts.
enum class TerminalApp { iterm2, terminal };

inline constexpr std::array allTerminalApps = {TerminalApp::iterm2, TerminalApp::terminal};

std::string_view rawValue(TerminalApp app);
std::optional<TerminalApp> terminalAppFromRawValue(std::string_view text);
std::string_view bundleId(TerminalApp app);
std::string_view name(TerminalApp app);
std::string allowTitle(TerminalApp app);
std::string allowDetail(TerminalApp app);

} // namespace kelvadrome
