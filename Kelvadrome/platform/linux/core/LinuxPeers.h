#pragma once

#include "KelvadromeKit/page/PeerCheck.h"
#include "KelvadromeKit/wire/UnixSocketTransport.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace kelvadrome {

/// One line of /proc/net/tcp or /proc/net/tcp6: a socket of this machine.
struct TCPRow {
    static constexpr int established = 1, halfOpen = 3, listening = 10;

    std::string address; // an IPv4 address in IPv6 clothes as plain IPv4
    std::uint16_t port = 0;
    std::string peerAddress;
    std::uint16_t peerPort = 0;
    int state = 0;
    uid_t owner = 0;
    std::uint64_t inode = 0; // 0 for a connection that nobody has accepted yet

    bool operator==(const TCPRow&) const = default;
};

/// Lines that can't be read are left out.
std::vector<TCPRow> parseTCPRows(std::string_view table);

/// The user at the other end of an accepted connection; absent once it is gone.
std::optional<uid_t> ownerOf(const TCPConnection& connection);

/// PeerCheck by the kernel's tables: the other end of a connection belongs to root (a container's proxy,
/// sshd), or to this user and then to the very process that listens on the daemon's Unix socket, or that the
/// daemon calls itself there. (A socket that another process listens on than the daemon is forwarded, and
/// then the port is, too: this user's word is enough.) When nobody answers on that socket, nobody of this
/// user is the daemon.
class LinuxPeers final : public PeerCheck {
public:
    explicit LinuxPeers(UnixSocketTransport daemon) : daemon_(std::move(daemon)) {}

    std::optional<std::string> refusal(const TCPConnection& connection) override;
    std::optional<std::string> listenerRefusal(std::uint16_t port) override;

private:
    std::optional<std::string> refusal(const TCPRow& row) const;
    std::optional<std::string> refusalOfAll(const std::vector<TCPRow>& rows, std::uint16_t port) const;

    UnixSocketTransport daemon_;
};

} // namespace kelvadrome
