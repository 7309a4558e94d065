#include "KelvadromeKit/delivery/ProcFacts.h"

#include "KelvadromeKit/support/Text.h"

namespace kelvadrome {

namespace {

std::optional<ProcFacts> parseLine(std::string_view line) {
    const auto fields = Text::split(line, ' ', Text::EmptyPieces::drop, 4);
    if (fields.size() < 5)
        return std::nullopt;
    const auto pid = Text::parseInteger(fields[0]);
    const auto pgid = Text::parseInteger(fields[1]);
    const auto tpgid = Text::parseInteger(fields[2]);
    if (!pid || !pgid || !tpgid)
        return std::nullopt;

    ProcFacts facts{*pid, *pgid, *tpgid, std::nullopt, std::string(Text::trimWhitespace(fields[4]))};
    // "?" is how Linux writes what macOS writes as "??".
    if (fields[3] != "??" && fields[3] != "?" && fields[3] != "-")
        facts.tty = fields[3];
    return facts;
}

} // namespace

std::optional<ProcFacts> ProcFacts::parse(std::string_view output) {
    for (const auto line : Text::split(output, '\n', Text::EmptyPieces::drop)) {
        if (auto facts = parseLine(line))
            return facts;
    }
    return std::nullopt;
}

bool ProcFacts::isAgent(std::string_view name) const {
    return Text::lastPathComponent(comm) == name;
}

} // namespace kelvadrome
