#include "Kelvadrome/platform/linux/core/LinuxPeers.h"

#include "KelvadromeKit/support/Files.h"
#include "KelvadromeKit/support/Text.h"
#include "KelvadromeKit/wire/Envelope.h"
#include "KelvadromeKit/wire/Records.h"
#include "KelvadromeKit/wire/UnixSocket.h"

#include <fmt/format.h>

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <thread>
#include <unistd.h>

namespace kelvadrome {

namespace {

using namespace std::chrono_literals;

constexpr auto lookLimit = 1s; // for a connection to show up in the tables
constexpr auto lookPause = 5ms;
constexpr double askLimit = 2.0;           // seconds, for the daemon's word on itself
constexpr std::size_t maxTable = 64 << 20; // bytes

std::optional<std::uint64_t> number(std::string_view text, int base) {
    std::uint64_t value = 0;
    const auto end = text.data() + text.size();
    const auto [at, error] = std::from_chars(text.data(), end, value, base);
    return error == std::errc() && at == end ? std::optional(value) : std::nullopt;
}

/// The kernel writes each 32-bit word of an address as a number in the machine's byte order.
std::optional<std::string> address(std::string_view digits) {
    if (digits.size() != 8 && digits.size() != 32)
        return std::nullopt;
    std::uint32_t words[4] = {};
    for (std::size_t i = 0; i * 8 < digits.size(); ++i) {
        const auto word = number(digits.substr(i * 8, 8), 16);
        if (!word)
            return std::nullopt;
        words[i] = static_cast<std::uint32_t>(*word);
    }
    const bool four = digits.size() == 8;
    const bool dressed = !four && words[0] == 0 && words[1] == 0 && words[2] == htonl(0xffff);
    char text[INET6_ADDRSTRLEN];
    const void* const bytes = dressed ? &words[3] : &words[0];
    if (!::inet_ntop(four || dressed ? AF_INET : AF_INET6, bytes, text, sizeof text))
        return std::nullopt;
    return text;
}

struct End {
    std::string address;
    std::uint16_t port;
};

std::optional<End> end(std::string_view text) {
    const auto colon = text.find(':');
    if (colon == std::string_view::npos)
        return std::nullopt;
    auto host = address(text.substr(0, colon));
    const auto port = number(text.substr(colon + 1), 16);
    if (!host || !port || *port > 0xffff)
        return std::nullopt;
    return End{std::move(*host), static_cast<std::uint16_t>(*port)};
}

std::optional<TCPRow> parseRow(std::string_view line) {
    // sl local_address rem_address st tx:rx tr:when retrnsmt uid timeout inode ...
    const auto columns = Text::split(line, ' ', Text::EmptyPieces::drop);
    if (columns.size() < 10)
        return std::nullopt;
    auto own = end(columns[1]);
    auto peer = end(columns[2]);
    const auto state = number(columns[3], 16), owner = number(columns[7], 10), inode = number(columns[9], 10);
    if (!own || !peer || !state || !owner || !inode)
        return std::nullopt;
    return TCPRow{std::move(own->address), own->port, std::move(peer->address), peer->port,
        static_cast<int>(*state), static_cast<uid_t>(*owner), *inode};
}

std::vector<TCPRow> rowsNow() {
    std::vector<TCPRow> rows;
    for (const auto* path : {"/proc/net/tcp", "/proc/net/tcp6"}) {
        for (auto& row : parseTCPRows(Files::read(path, maxTable).value_or("")))
            rows.push_back(std::move(row));
    }
    return rows;
}

std::vector<TCPRow> listeners(std::vector<TCPRow> rows, std::uint16_t port) {
    std::erase_if(rows, [&](const TCPRow& row) {
        const bool reachable = row.address == "127.0.0.1" || row.address == "0.0.0.0" || row.address == "::";
        return row.state != TCPRow::listening || row.port != port || !reachable;
    });
    // The kernel gives a connection to whoever holds the very address.
    const auto exact = [](const TCPRow& row) { return row.address == "127.0.0.1"; };
    if (std::ranges::any_of(rows, exact))
        std::erase_if(rows, std::not_fn(exact));
    return rows;
}

/// The other end of a connection, as it stands in the table.
std::optional<TCPRow> otherEnd(const std::vector<TCPRow>& rows, const TCPConnection& connection) {
    for (const auto& row : rows) {
        const bool stands = row.state == TCPRow::established || row.state == TCPRow::halfOpen;
        if (stands && row.address == connection.peerAddress && row.port == connection.peerPort &&
            row.peerAddress == connection.ownAddress && row.peerPort == connection.ownPort)
            return row;
    }
    return std::nullopt;
}

bool holds(pid_t process, std::uint64_t inode) {
    const auto wanted = fmt::format("socket:[{}]", inode);
    std::error_code failed;
    auto entry = std::filesystem::directory_iterator(fmt::format("/proc/{}/fd", process), failed);
    for (; !failed && entry != std::filesystem::directory_iterator(); entry.increment(failed)) {
        std::error_code unreadable; // a descriptor may be closed meanwhile
        if (std::filesystem::read_symlink(entry->path(), unreadable) == wanted)
            return true;
    }
    return false;
}

std::string sentence(std::uint16_t port, const char* what) {
    return fmt::format("Port {} {}, so nothing was sent there.", port, what);
}

} // namespace

std::vector<TCPRow> parseTCPRows(std::string_view table) {
    std::vector<TCPRow> rows;
    for (const auto line : Text::split(table, '\n', Text::EmptyPieces::drop)) {
        if (auto row = parseRow(line))
            rows.push_back(std::move(*row));
    }
    return rows;
}

std::optional<std::string> LinuxPeers::refusal(const TCPConnection& connection) {
    const auto deadline = std::chrono::steady_clock::now() + lookLimit;
    for (;;) {
        const auto rows = rowsNow();
        const auto row = otherEnd(rows, connection);
        if (row && row->inode != 0)
            return refusal(*row);
        // Until it is accepted a connection has no owner of its own, and its line names root: it will be
        // whose the listener is.
        if (row) {
            const auto heirs = listeners(rows, connection.peerPort);
            if (!heirs.empty())
                return refusalOfAll(heirs, connection.peerPort);
        }
        if (std::chrono::steady_clock::now() >= deadline)
            return sentence(connection.peerPort, "is held by nobody that can be named");
        std::this_thread::sleep_for(lookPause);
    }
}

std::optional<uid_t> ownerOf(const TCPConnection& connection) {
    const auto row = otherEnd(rowsNow(), connection);
    return row ? std::optional(row->owner) : std::nullopt;
}

std::optional<std::string> LinuxPeers::listenerRefusal(std::uint16_t port) {
    return refusalOfAll(listeners(rowsNow(), port), port);
}

/// Several sockets may share a port; any of them may be the one that gets the connection.
std::optional<std::string> LinuxPeers::refusalOfAll(
    const std::vector<TCPRow>& rows, std::uint16_t port) const {
    if (rows.empty())
        return fmt::format("Nobody listens on port {}.", port);
    for (const auto& row : rows) {
        if (auto words = refusal(row))
            return words;
    }
    return std::nullopt;
}

std::optional<std::string> LinuxPeers::refusal(const TCPRow& row) const {
    if (row.owner != ::geteuid())
        return row.owner == 0 ? std::nullopt
                              : std::optional(sentence(row.port, "belongs to another user of this machine"));
    try {
        const auto listener = UnixSocket::peer(daemon_.openSocket(askLimit));
        if (listener > 0 && holds(listener, row.inode))
            return std::nullopt;
        // A daemon may have been started by a process that is gone, and leave the port to a helper.
        const auto reply = daemon_.exchange("GET", "/v1/health", askLimit);
        const auto named = Envelope::decode<Health>(reply).pid;
        if (named > 0 && holds(static_cast<pid_t>(named), row.inode))
            return std::nullopt;
        // Where the socket isn't the daemon's own, both come from elsewhere through a helper of this user's
        // (ssh -L, a container's proxy), and the daemon's number means nothing here.
        if (named > 0 && named != listener)
            return std::nullopt;
    } catch (const TransportError&) {
        return sentence(row.port, "has a listener, but no daemon answers on its socket");
    } catch (const std::exception&) {
        // What has no health names no process.
    }
    return sentence(row.port, "is held by another program than the daemon");
}

} // namespace kelvadrome
