#pragma once

#include "KelvadromeKit/support/BackgroundPool.h"
#include "KelvadromeKit/voice/HTTPPosting.h"

namespace kelvadrome {

/// HTTPPosting by libcurl, over TLS alone: what is sent has a key with it. Where the environment names a
/// proxy (https_proxy), the way goes through it, and it sees nothing but the host's name. The pool must
/// outlive it.
class URLSessionPoster final : public HTTPPosting {
public:
    /// `timeout` in seconds, for each exchange as a whole; a request may ask for less. `protocols` as libcurl
    /// names them.
    explicit URLSessionPoster(BackgroundPool& pool, double timeout = 60, const char* protocols = "https");

    Task<PostReply> send(HTTPRequest request) override;

private:
    BackgroundPool* pool_;
    double timeout_;
    const char* protocols_;
};

} // namespace kelvadrome
