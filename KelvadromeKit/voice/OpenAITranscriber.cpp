#include "KelvadromeKit/voice/OpenAITranscriber.h"

#include "KelvadromeKit/page/RandomName.h"
#include "KelvadromeKit/support/JSON.h"
#include "KelvadromeKit/support/Text.h"
#include "KelvadromeKit/voice/TranscriptionError.h"

#include <algorithm>

namespace kelvadrome {

namespace {

using Case = TranscriptionError::Case;

struct Out {
    std::string text;

    static Out decode(const JSONValue& value) { return {value.object().required<std::string>("text")}; }
};

/// A random UUID in capitals.
std::string newUUID() {
    auto name = randomName();
    name[12] = '4';
    name[16] = "89ab"[static_cast<unsigned char>(name[16]) % 4];
    for (const std::size_t at : {8, 13, 18, 23})
        name.insert(at, 1, '-');
    std::ranges::transform(name, name.begin(),
        [](char c) { return c >= 'a' && c <= 'f' ? static_cast<char>(c - 'a' + 'A') : c; });
    return name;
}

/// A line end in a key would put headers of its own into the request.
bool isKey(const std::optional<std::string>& key) {
    return key && !key->empty() &&
           std::ranges::none_of(*key, [](unsigned char c) { return c < 0x20 || c == 0x7f; });
}

std::string textIn(const PostReply& reply) {
    if (reply.status < 200 || reply.status > 299)
        throw TranscriptionError::http(reply.status);
    try {
        const auto out = decodeJSON<Out>(reply.body);
        return std::string(Text::trimWhitespace(out.text));
    } catch (const DecodingError&) {
        throw TranscriptionError(Case::badResponse);
    }
}

} // namespace

OpenAITranscriber::OpenAITranscriber(std::string_view model, Parts parts)
    : model_(std::ranges::find(models, model) == models.end() ? models.front() : model),
      parts_(std::move(parts)) {}

HTTPRequest OpenAITranscriber::request(
    std::string_view wav, const std::string& model, const std::string& key, const std::string& boundary) {
    const std::string line = "--" + boundary + "\r\n";
    const std::string disposition = "Content-Disposition: form-data; name=";
    std::string body;
    body.reserve(wav.size() + 1024);
    body += line + disposition + "\"model\"\r\n\r\n" + model + "\r\n";
    body += line + disposition + "\"response_format\"\r\n\r\njson\r\n";
    body += line + disposition + "\"file\"; filename=\"clip.wav\"\r\nContent-Type: audio/wav\r\n\r\n";
    body += wav;
    body += "\r\n--" + boundary + "--\r\n";
    return {.method = "POST",
        .url = std::string(endpoint),
        .headers = {{"Authorization", "Bearer " + key},
            {"Content-Type", "multipart/form-data; boundary=" + boundary}},
        .body = std::move(body),
        .timeout = timeout};
}

Task<std::string> OpenAITranscriber::transcribe(std::string wav) const {
    return run(parts_, model_, std::move(wav));
}

Task<std::string> OpenAITranscriber::run(Parts parts, std::string model, std::string wav) {
    auto reading = parts.pool->run([secrets = parts.secrets] { return secrets->read(); });
    auto key = co_await attempt(std::move(reading));
    if (isCancellation(key.error()))
        key.take();
    if (!key || !isKey(*key))
        throw TranscriptionError(Case::noKey);
    auto exchange = parts.http->send(request(wav, model, **key, "kd-" + newUUID()));
    wav = {}; // the request has it
    auto reply = co_await attempt(std::move(exchange));
    if (isCancellation(reply.error()))
        reply.take();
    if (!reply)
        throw TranscriptionError(Case::timeout);
    co_return textIn(*reply);
}

} // namespace kelvadrome
