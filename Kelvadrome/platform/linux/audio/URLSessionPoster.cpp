#include "Kelvadrome/platform/linux/audio/URLSessionPoster.h"

#include "Kelvadrome/platform/linux/core/CurlExchange.h"

#include <algorithm>

namespace kelvadrome {

URLSessionPoster::URLSessionPoster(BackgroundPool& pool, double timeout, const char* protocols)
    : pool_(&pool), timeout_(timeout), protocols_(protocols) {}

Task<PostReply> URLSessionPoster::send(HTTPRequest request) {
    request.timeout = std::min(request.timeout, timeout_);
    CurlRules rules{.protocols = protocols_, .proxy = true, .headless = true};
    auto reply = co_await curlExchange(*pool_, std::move(request), std::move(rules));
    co_return PostReply{std::move(reply.body), reply.status};
}

} // namespace kelvadrome
