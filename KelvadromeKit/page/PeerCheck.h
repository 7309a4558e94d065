#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

namespace kelvadrome {

/// A connection over TCP that stands. Addresses are numeric, as in "127.0.0.1".
struct TCPConnection {
    std::string peerAddress;
    std::uint16_t peerPort = 0;
    std::string ownAddress;
    std::uint16_t ownPort = 0;

    bool operator==(const TCPConnection&) const = default;
};

/// Who is at the other end of the daemon's page port. Anybody on the machine can listen there once the daemon
/// is gone, so that each connection is looked at before anything secret goes over it. Calls may block, for a
/// second or so; any thread.
class PeerCheck {
public:
    virtual ~PeerCheck() = default;

    /// Why nothing may be sent over this connection, as a sentence for a person; absent when it is the
    /// daemon's.
    virtual std::optional<std::string> refusal(const TCPConnection& connection) = 0;
    /// The same of whoever listens on a port of 127.0.0.1, for what will connect by itself.
    virtual std::optional<std::string> listenerRefusal(std::uint16_t port) = 0;
};

/// Says of every peer what it was told to.
class FixedPeers final : public PeerCheck {
public:
    void refuse(std::optional<std::string> words) {
        std::lock_guard guard(lock_);
        words_ = std::move(words);
    }
    std::optional<std::string> refusal(const TCPConnection&) override { return words(); }
    std::optional<std::string> listenerRefusal(std::uint16_t) override { return words(); }

private:
    std::optional<std::string> words() {
        std::lock_guard guard(lock_);
        return words_;
    }

    std::mutex lock_;
    std::optional<std::string> words_;
};

} // namespace kelvadrome
