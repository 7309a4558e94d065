#include "KelvadromeKit/voice/TranscriptionError.h"

#include <fmt/format.h>

namespace kelvadrome {

namespace {

std::string ofStatus(std::int64_t status) {
    if (status == 429)
        return "OpenAI is busy or the key has no credit (429).";
    if (status == 401)
        return "OpenAI refused the key (401).";
    return fmt::format("Couldn't transcribe that. Try again. (HTTP {})", status);
}

std::string words(TranscriptionError::Case kind, std::int64_t status) {
    using Case = TranscriptionError::Case;
    switch (kind) {
    case Case::http:
        return ofStatus(status);
    case Case::overCap:
        return "Daily voice limit reached.";
    case Case::noKey:
        return "Add your OpenAI key in Settings, Voice.";
    case Case::capUnavailable:
        return "kelvadrome could not check today's voice limit. Nothing was sent.";
    case Case::busy:
        return "1 recording is already running.";
    case Case::tooLong:
        return "Clips stop at 120 seconds.";
    case Case::timeout:
    case Case::badResponse:
        break;
    }
    return "Couldn't transcribe that. Try again.";
}

} // namespace

TranscriptionError::TranscriptionError(Case kind, std::int64_t status, double usedMinutes)
    : kind_(kind), status_(status), usedMinutes_(usedMinutes), description_(words(kind, status)) {}

} // namespace kelvadrome
