#pragma once

#include "KelvadromeKit/page/SecretStore.h"
#include "KelvadromeKit/support/BackgroundPool.h"
#include "KelvadromeKit/voice/HTTPPosting.h"

#include <array>
#include <memory>
#include <string>
#include <string_view>

namespace kelvadrome {

/// Sends a clip to OpenAI on the user's own key. A value; only SpeechPipeline is to call it, which asks for
/// the day's budget first.
class OpenAITranscriber {
public:
    static constexpr std::string_view endpoint = "https://api.openai.com/v1/audio/transcriptions";
    static constexpr std::array<std::string_view, 2> models{"gpt-transcribe", "gpt-4o-mini-transcribe"};
    static constexpr double timeout = 60; // seconds

    struct Parts {
        std::shared_ptr<SecretStore> secrets;
        std::shared_ptr<HTTPPosting> http;
        BackgroundPool* pool = nullptr; // for the store, which may block; outlives all calls
    };

    /// A model that isn't one of `models` becomes the first of them.
    OpenAITranscriber(std::string_view model, Parts parts);

    const std::string& model() const { return model_; }

    static HTTPRequest request(
        std::string_view wav, const std::string& model, const std::string& key, const std::string& boundary);
    /// The text without blanks around it, perhaps empty. Throws TranscriptionError.
    Task<std::string> transcribe(std::string wav) const;

private:
    static Task<std::string> run(Parts parts, std::string model, std::string wav);

    std::string model_;
    Parts parts_;
};

} // namespace kelvadrome
