#pragma once

#include "KelvadromeKit/page/LocalHTTP.h"
#include "KelvadromeKit/page/PeerCheck.h"
#include "KelvadromeKit/support/BackgroundPool.h"

#include <memory>

namespace kelvadrome {

/// Whom an exchange may reach.
struct CurlRules {
    const char* protocols = "https";       // with commas between them
    std::shared_ptr<PeerCheck> peers = {}; // nothing is sent over a connection that these refuse
    bool proxy = false;                    // the environment's, such as https_proxy, may be used
    bool headless = false;                 // a reply that isn't HTTP is one of status 0, and no error
};

/// One exchange by libcurl, over a connection of its own, on the pool, which must outlive it. No redirect is
/// followed, no cookie and no cache kept, and the other end's certificate must hold. Main executor. Throws as
/// LocalHTTP says; cancelling the caller ends it.
Task<HTTPResponse> curlExchange(BackgroundPool& pool, HTTPRequest request, CurlRules rules);

} // namespace kelvadrome
