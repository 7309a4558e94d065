#pragma once

#include "KelvadromeKit/page/LocalHTTP.h"
#include "KelvadromeKit/support/BackgroundPool.h"

namespace kelvadrome {

/// LocalHTTP by libcurl: a connection of its own for each exchange, which runs on the pool. The pool must
/// outlive it.
class CurlHTTP final : public LocalHTTP {
public:
    explicit CurlHTTP(BackgroundPool& pool);

    Task<HTTPResponse> exchange(HTTPRequest request) override;

private:
    BackgroundPool* pool_;
};

} // namespace kelvadrome
