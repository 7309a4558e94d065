#pragma once

#include "KelvadromeKit/page/PeerCheck.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace kelvadrome {

/// The one way from the page's view to the daemon: a SOCKS 5 proxy of ours on a port of 127.0.0.1. The view
/// makes its connections in a process of its own, whenever the page's scripts please; here each is looked at
/// before a byte goes through. It leads to one port only, and only for those who know its password. Any
/// thread.
class PageTunnel {
public:
    /// Throws std::exception when no port can be had.
    explicit PageTunnel(std::shared_ptr<PeerCheck> peers);
    ~PageTunnel();
    PageTunnel(const PageTunnel&) = delete;
    PageTunnel& operator=(const PageTunnel&) = delete;

    /// The proxy's address, its password within: for the view, and for no log.
    const std::string& url() const;
    /// Leads to this port from now on, unless whoever listens there is refused: then nowhere, and this is
    /// why. Blocks.
    std::optional<std::string> lead(std::int64_t port);

private:
    class Server;
    std::unique_ptr<Server> server_;
};

} // namespace kelvadrome
