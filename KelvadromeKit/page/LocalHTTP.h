#pragma once

#include "KelvadromeKit/support/Task.h"
#include "KelvadromeKit/wire/HTTPWire.h"

#include <map>
#include <optional>
#include <string>

namespace kelvadrome {

struct HTTPRequest {
    std::string method;
    std::string url;
    std::map<std::string, std::string> headers;
    std::optional<std::string> body;
    double timeout = 60; // seconds, for the whole exchange
};

/// HTTP over TCP, by way of a library. Follows no redirect, keeps no cookie and no cache, uses no proxy. A
/// reply of any status is a value; several Set-Cookie headers are not joined: the first stays. Throws
/// std::runtime_error when there was no reply. Cancelling the caller ends the exchange.
class LocalHTTP {
public:
    virtual ~LocalHTTP() = default;
    virtual Task<HTTPResponse> exchange(HTTPRequest request) = 0;
};

} // namespace kelvadrome
