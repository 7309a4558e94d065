#pragma once

#include "KelvadromeKit/support/JSON.h"
#include "KelvadromeKit/wire/HTTPWire.h"

#include <cstdint>
#include <exception>
#include <optional>
#include <string>

namespace kelvadrome {

/// What the daemon said when it refused or failed.
class DaemonError : public std::exception {
public:
    DaemonError(std::string code, std::string message, std::int64_t status);

    const std::string& code() const { return code_; }
    const std::string& message() const { return message_; } // text for a person
    std::int64_t status() const { return status_; }         // the reply's HTTP status
    /// A daemon older than this client: degrade quietly.
    bool isMissingRoute() const { return code_ == "not_found" || code_ == "not_implemented"; }
    /// "code: message".
    const char* what() const noexcept override { return description_.c_str(); }
    bool operator==(const DaemonError& other) const {
        return code_ == other.code_ && message_ == other.message_ && status_ == other.status_;
    }

private:
    std::string code_;
    std::string message_;
    std::int64_t status_;
    std::string description_;
};

/// Any JSON value, of which nothing is kept.
struct AnyDecodable {
    static AnyDecodable decode(const JSONValue&) { return {}; }
    bool operator==(const AnyDecodable&) const = default;
};

/// The one place where a reply becomes a record or an error.
namespace Envelope {

struct ErrorBody {
    std::string code;
    std::string message;

    static ErrorBody decode(const JSONValue& value);
};

/// Throws the DaemonError of an envelope with `ok` false; anything else, a body that is no envelope included,
/// passes.
void throwFailure(const JSONValue& root, std::int64_t status);
/// The DaemonError for a body that is no envelope under a status outside 200 to 299.
[[noreturn]] void throwStatus(std::int64_t status);
/// The DaemonError for a 2xx envelope without data.
[[noreturn]] void throwEmpty(std::optional<ErrorBody> error, std::int64_t status);

/// The `data` of a reply as a record. Throws DaemonError for what the daemon refused, DecodingError for a 2xx
/// body that isn't what it should be.
template <class T>
T decode(const HTTPResponse& response);

} // namespace Envelope

} // namespace kelvadrome

#include "KelvadromeKit/wire/EnvelopeDecode.h"
