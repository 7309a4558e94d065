#include "KelvadromeKit/daemon/NavSection.h"

#include <cstddef>

namespace kelvadrome {

namespace {

constexpr std::array<std::string_view, 7> rawValues = {
    "inbox", "topics", "handoffs", "skills", "receipts", "agents", "autopilot"};

} // namespace

std::string_view rawValue(NavSection section) {
    return rawValues.at(static_cast<std::size_t>(section));
}

std::optional<NavSection> navSectionFromRawValue(std::string_view text) {
    for (const auto section : allNavSections) {
        if (rawValue(section) == text)
            return section;
    }
    return std::nullopt;
}

std::string title(NavSection section) {
    std::string text(rawValue(section));
    text.front() = static_cast<char>(text.front() - 'a' + 'A');
    return text;
}

std::string path(NavSection section) {
    return section == NavSection::inbox ? "/" : "/" + std::string(rawValue(section));
}

} // namespace kelvadrome
