#pragma once

#include "KelvadromeKit/voice/BudgetLedger.h"
#include "KelvadromeKit/voice/OpenAITranscriber.h"

#include <memory>
#include <string>

namespace kelvadrome {

/// The one way out for a recording: reserved before it leaves, settled after. A value.
class SpeechPipeline {
public:
    static constexpr std::int64_t longestClip = 120; // seconds

    SpeechPipeline(OpenAITranscriber transcriber, std::shared_ptr<BudgetLedger> ledger)
        : transcriber_(std::move(transcriber)), ledger_(std::move(ledger)) {}

    /// The text. Throws TranscriptionError. A cancelled call settles what it had reserved before it ends, and
    /// sends nothing that wasn't on its way.
    Task<std::string> transcribe(std::string wav, double seconds) const;

private:
    static Task<std::string> run(
        OpenAITranscriber transcriber, std::shared_ptr<BudgetLedger> ledger, std::string wav, double seconds);

    OpenAITranscriber transcriber_;
    std::shared_ptr<BudgetLedger> ledger_;
};

} // namespace kelvadrome
