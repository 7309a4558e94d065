#pragma once

#include "KelvadromeKit/page/LocalHTTP.h"
#include "KelvadromeKit/page/PeerCheck.h"
#include "KelvadromeKit/support/BackgroundPool.h"

#include <memory>

namespace kelvadrome {

/// LocalHTTP by libcurl: a connection of its own for each exchange, which runs on the pool. Nothing is sent
/// over a connection that `peers` refuses. The pool must outlive it.
class CurlHTTP final : public LocalHTTP {
public:
    CurlHTTP(BackgroundPool& pool, std::shared_ptr<PeerCheck> peers);

    Task<HTTPResponse> exchange(HTTPRequest request) override;

private:
    BackgroundPool* pool_;
    std::shared_ptr<PeerCheck> peers_;
};

} // namespace kelvadrome
