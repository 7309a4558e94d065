#pragma once

#include "KelvadromeKit/support/Task.h"
#include "KelvadromeKit/wire/HTTPWire.h"

#include <map>
#include <optional>
#include <stdexcept>
#include <string>

namespace kelvadrome {

struct HTTPRequest {
    std::string method;
    std::string url;
    std::map<std::string, std::string> headers;
    std::optional<std::string> body;
    double timeout = 60; // seconds, for the whole exchange
};

/// No connection came about, or none to the daemon: not a byte of the request was sent.
class NotConnected : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// HTTP over TCP, by way of a library. Follows no redirect, keeps no cookie and no cache, uses no proxy. A
/// reply of any status is a value; several Set-Cookie headers are not joined: the first stays. Throws
/// NotConnected, or another std::runtime_error when there was no reply. Cancelling the caller ends the
/// exchange.
class LocalHTTP {
public:
    virtual ~LocalHTTP() = default;
    virtual Task<HTTPResponse> exchange(HTTPRequest request) = 0;
};

} // namespace kelvadrome
