#include "KelvadromeKit/wire/Envelope.h"

#include <utility>

namespace kelvadrome {

DaemonError::DaemonError(std::string code, std::string message, std::int64_t status)
    : code_(std::move(code)), message_(std::move(message)), status_(status),
      description_(code_ + ": " + message_) {}

namespace Envelope {

namespace {

/// The first look at any body: it ignores `data`, so that a `data` of any shape can't spoil it.
struct Failure {
    bool ok;
    std::optional<ErrorBody> error;

    static Failure decode(const JSONValue& value) {
        const auto object = value.object();
        return {object.required<bool>("ok"), object.optional<ErrorBody>("error")};
    }
};

} // namespace

ErrorBody ErrorBody::decode(const JSONValue& value) {
    const auto object = value.object();
    return {object.required<std::string>("code"), object.required<std::string>("message")};
}

void throwFailure(const JSONValue& root, std::int64_t status) {
    std::optional<Failure> failure;
    try {
        failure = Failure::decode(root);
    } catch (const DecodingError&) {
        return;
    }
    if (failure->ok)
        return;
    auto error = std::move(failure->error).value_or(ErrorBody{"internal", "error"});
    throw DaemonError(std::move(error.code), std::move(error.message), status);
}

void throwStatus(std::int64_t status) {
    throw DaemonError(status == 404 ? "not_found" : "internal", "HTTP " + std::to_string(status), status);
}

void throwEmpty(std::optional<ErrorBody> error, std::int64_t status) {
    auto said = std::move(error).value_or(ErrorBody{"internal", "empty answer"});
    throw DaemonError(std::move(said.code), std::move(said.message), status);
}

} // namespace Envelope

} // namespace kelvadrome
