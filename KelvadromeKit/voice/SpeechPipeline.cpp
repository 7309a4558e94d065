#include "KelvadromeKit/voice/SpeechPipeline.h"

#include "KelvadromeKit/voice/TranscriptionError.h"

#include <cmath>

namespace kelvadrome {

namespace {

using Case = TranscriptionError::Case;

[[noreturn]] void throwCancelled() {
    throw boost::system::system_error(asio::error::operation_aborted);
}

} // namespace

Task<std::string> SpeechPipeline::transcribe(std::string wav, double seconds) const {
    return run(transcriber_, ledger_, std::move(wav), seconds);
}

/// A cancellation must not come between the grant and its settlement. So neither of the two calls feels it,
/// and in between it ends the transcription only: `throw_if_cancelled` says whether a wait that begins after
/// a cancellation throws.
Task<std::string> SpeechPipeline::run(
    OpenAITranscriber transcriber, std::shared_ptr<BudgetLedger> ledger, std::string wav, double seconds) {
    if (!(seconds <= static_cast<double>(longestClip)))
        throw TranscriptionError(Case::tooLong);
    const auto charged = std::max<std::int64_t>(1, static_cast<std::int64_t>(std::ceil(seconds)));

    auto asking = shielded(ledger->reserve("openai", transcriber.model(), charged));
    auto grant = co_await attempt(std::move(asking));
    if (isCancellation(grant.error()))
        grant.take(); // before anybody was asked
    if (!grant)
        throw TranscriptionError(Case::capUnavailable);
    if (const auto* denied = std::get_if<BudgetGrant::Denied>(&grant->answer))
        throw TranscriptionError::overCap(denied->usedMinutes);
    const auto id = std::get<BudgetGrant::Granted>(grant->answer).reservationId;

    Outcome<std::string> text;
    const auto state = co_await asio::this_coro::cancellation_state;
    const bool cancelled = state.cancelled() != asio::cancellation_type::none;
    if (!cancelled) {
        auto transcribing = transcriber.transcribe(std::move(wav));
        text = co_await attempt(std::move(transcribing));
    }
    const bool ok = static_cast<bool>(text);
    co_await asio::this_coro::throw_if_cancelled(false);
    auto settling = shielded(ledger->used(id, charged, ok));
    co_await attempt(std::move(settling));
    co_await asio::this_coro::throw_if_cancelled(true);
    if (cancelled)
        throwCancelled();
    co_return text.take();
}

} // namespace kelvadrome
