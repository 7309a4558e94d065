#pragma once

#include "KelvadromeKit/page/LocalHTTP.h"
#include "KelvadromeKit/support/Task.h"

#include <cstdint>
#include <string>

namespace kelvadrome {

struct PostReply {
    std::string body;
    std::int64_t status = 0; // 0 for a reply that isn't HTTP
};

/// A request to a server elsewhere. No cookie, no cache, no redirect followed, and no word of the headers in
/// a log. Throws std::runtime_error when there was no reply within the request's timeout. Cancelling the
/// caller ends the exchange.
class HTTPPosting {
public:
    virtual ~HTTPPosting() = default;
    virtual Task<PostReply> send(HTTPRequest request) = 0;
};

} // namespace kelvadrome
