#pragma once

#include "KelvadromeKit/support/Task.h"
#include "KelvadromeKit/wire/AgentsStatus.h"
#include "KelvadromeKit/wire/Card.h"
#include "KelvadromeKit/wire/Envelope.h"
#include "KelvadromeKit/wire/Records.h"
#include "KelvadromeKit/wire/UnixSocketTransport.h"

#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>

#include <optional>
#include <string>
#include <vector>

namespace kelvadrome {

/// The daemon's JSON API, one call a route. A value: copies are free and may be used from any thread at once,
/// and a call may outlive the client that it was made on. Calls throw TransportError, DaemonError or
/// DecodingError, each for its own reason.
class DaemonClient {
public:
    explicit DaemonClient(UnixSocketTransport transport) : transport(std::move(transport)) {}
    DaemonClient(std::string socketPath, BackgroundPool& pool) : transport(std::move(socketPath), pool) {}

    UnixSocketTransport transport;

    /// The generic call: posts `body` and decodes the reply's data as `T`. `timeout` in seconds.
    template <class T>
    Task<T> post(std::string path, boost::json::object body, double timeout) const {
        return decoded<T>(transport.send("POST", std::move(path), boost::json::serialize(body), {}, timeout));
    }

    Task<Health> health(double timeout) const;
    Task<std::vector<Card>> cards() const;
    Task<std::vector<BoardRow>> board() const;
    Task<std::vector<Receipt>> receipts(std::int64_t limit) const;
    /// Absent for a daemon that doesn't offer the route.
    Task<std::optional<AgentsStatus>> agentsStatus() const;
    /// Absent for a daemon that doesn't offer the route or refuses the request's shape.
    Task<std::optional<InboxCounts>> inboxCounts() const;
    /// Registers the page key, when one is given, and takes a one-time login link.
    Task<LoginLink> mintLogin(std::optional<std::string> pageKey) const;
    Task<OnboardingStatus> onboardingStatus(double timeout) const;

private:
    template <class T>
    static Task<T> decoded(Task<HTTPResponse> exchange) {
        const auto response = co_await std::move(exchange);
        co_return Envelope::decode<T>(response);
    }
};

} // namespace kelvadrome
