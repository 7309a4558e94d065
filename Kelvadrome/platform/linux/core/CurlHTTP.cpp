#include "Kelvadrome/platform/linux/core/CurlHTTP.h"

#include "Kelvadrome/platform/linux/core/CurlExchange.h"

namespace kelvadrome {

CurlHTTP::CurlHTTP(BackgroundPool& pool, std::shared_ptr<PeerCheck> peers)
    : pool_(&pool), peers_(std::move(peers)) {}

Task<HTTPResponse> CurlHTTP::exchange(HTTPRequest request) {
    CurlRules rules{.protocols = "http,https", .peers = peers_};
    return curlExchange(*pool_, std::move(request), std::move(rules));
}

} // namespace kelvadrome
