#include "KelvadromeKit/voice/VoiceCalls.h"

#include "KelvadromeKit/voice/DictationURL.h"

#include <sodium.h>

#include <bit>

namespace kelvadrome {

namespace {

constexpr double timeout = 10; // seconds
constexpr double transcribeTimeout = 45;

struct TranscribeOut {
    std::string text;

    static TranscribeOut decode(const JSONValue& value) {
        return {value.object().required<std::string>("text")};
    }
};

/// Absent for a daemon that lacks the route.
template <class T>
Task<std::optional<T>> postIfOffered(DaemonClient client, const char* path, boost::json::object body) {
    auto posting = client.post<T>(path, std::move(body), timeout);
    try {
        co_return co_await std::move(posting);
    } catch (const DaemonError& error) {
        if (!error.isMissingRoute())
            throw;
    }
    co_return std::nullopt;
}

/// Failures but for cancellation are swallowed.
Task<> tell(DaemonClient client, const char* path, boost::json::object body) {
    auto posting = client.post<AnyDecodable>(path, std::move(body), timeout);
    const auto told = co_await attempt(std::move(posting));
    if (isCancellation(told.error()))
        std::rethrow_exception(told.error());
}

/// Built by hand, so that four million characters aren't escaped and copied.
std::string transcribeBody(const std::vector<std::int16_t>& samples) {
    static_assert(std::endian::native == std::endian::little, "samples go out as they lie in memory");
    constexpr auto variant = sodium_base64_VARIANT_ORIGINAL;
    const std::string head = R"({"pcm16_b64":")", tail = R"("})";
    const auto bytes = samples.size() * sizeof(std::int16_t);
    const auto encoded = sodium_base64_ENCODED_LEN(bytes, variant); // with the zero that ends it
    std::string body(head.size() + encoded, '\0');
    body.replace(0, head.size(), head);
    sodium_bin2base64(body.data() + head.size(), encoded,
        reinterpret_cast<const unsigned char*>(samples.data()), bytes, variant);
    body.pop_back();
    return body += tail;
}

} // namespace

Task<std::optional<VoiceScan>> voiceScan(DaemonClient client, bool force) {
    return postIfOffered<VoiceScan>(std::move(client), "/v1/voice/scan", {{"force", force}});
}

Task<std::optional<VoiceSettingsWire>> voiceSettings(DaemonClient client) {
    return postIfOffered<VoiceSettingsWire>(std::move(client), "/v1/voice/settings/get", {});
}

Task<std::optional<std::string>> saveVoiceSetting(DaemonClient client, VoiceSettingChange change) {
    boost::json::object body{{change.key(), change.value()}};
    auto posting = client.post<AnyDecodable>("/v1/voice/settings", std::move(body), timeout);
    auto saved = co_await attempt(std::move(posting));
    try {
        saved.take();
        co_return std::nullopt;
    } catch (const DaemonError& error) {
        if (error.code() == "not_implemented")
            co_return "This setting saves once the daemon's voice routes land.";
    } catch (const std::exception&) {
        if (isCancellation(std::current_exception()))
            throw;
    }
    co_return "The setting was not saved.";
}

Task<> voiceEngineStatus(DaemonClient client, bool openAIReady, AppleSpeechState apple) {
    return tell(std::move(client), "/v1/voice/engine/status",
        {{"openai", openAIReady ? "ready" : "no_key"}, {"apple", rawValue(apple)}});
}

Task<std::string> transcribeOnDevice(DaemonClient client, Clip clip) {
    auto exchange =
        client.transport.send("POST", "/v1/voice/transcribe", transcribeBody(*clip), {}, transcribeTimeout);
    const auto response = co_await std::move(exchange);
    auto out = Envelope::decode<TranscribeOut>(response);
    co_return std::move(out.text);
}

Task<> voiceModeSwitched(DaemonClient client, std::string previous, bool restored) {
    if (!DictationURL::validFill(previous))
        co_return;
    boost::json::object body{{"previous", previous}, {"restored", restored}};
    auto telling = tell(std::move(client), "/v1/voice/mode/switched", std::move(body));
    co_await std::move(telling);
}

} // namespace kelvadrome
