#include "Kelvadrome/platform/linux/core/PageTunnel.h"

#include "Kelvadrome/platform/linux/core/LinuxPeers.h"
#include "KelvadromeKit/page/RandomName.h"
#include "KelvadromeKit/support/Log.h"
#include "KelvadromeKit/support/Task.h"

#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <fmt/format.h>
#include <sodium.h>

#include <array>
#include <atomic>
#include <fcntl.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace kelvadrome {

namespace {

using asio::ip::tcp;
using Bytes = std::vector<unsigned char>;

constexpr auto handshakeLimit = std::chrono::seconds(10);
constexpr auto acceptPause = std::chrono::milliseconds(100);
constexpr int mostPassages = 256;
constexpr int mostUnknown = 64; // without a password yet
constexpr int manyUnknown = 8;  // more than a view opens at once: from here on strangers are told apart
constexpr std::size_t pieceSize = 64 * 1024;
constexpr const char* user = "page";

// RFC 1928 and RFC 1929.
constexpr unsigned char version = 5, byPassword = 2, noMethod = 0xff, passwordVersion = 1, connectCommand = 1,
                        ipv4 = 1;
constexpr unsigned char granted = 0, notAllowed = 2, hostUnreachable = 4, notSupported = 7;

/// A child that outlives us must not hold a way to the page open.
void keepFromChildren(int descriptor) {
    ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
}

/// Counts what goes on while it lives.
class Counted {
public:
    explicit Counted(int& count) : count_(&count) { ++*count_; }
    Counted(Counted&& other) noexcept : count_(std::exchange(other.count_, nullptr)) {}
    Counted& operator=(Counted&&) = delete;
    ~Counted() {
        if (count_)
            --*count_;
    }

private:
    int* count_;
};

/// Both ends of one passage.
struct Passage {
    tcp::socket view;
    tcp::socket daemon;
};

Task<Bytes> take(std::shared_ptr<Passage> passage, std::size_t count) {
    Bytes bytes(count);
    co_await asio::async_read(passage->view, asio::buffer(bytes), asio::use_awaitable);
    co_return bytes;
}

Task<> give(std::shared_ptr<Passage> passage, Bytes bytes) {
    co_await asio::async_write(passage->view, asio::buffer(bytes), asio::use_awaitable);
}

/// Until `from` ends; then the other learns that nothing more comes.
Task<> pump([[maybe_unused]] std::shared_ptr<Passage> passage, tcp::socket& from, tcp::socket& to) {
    Bytes piece(pieceSize);
    boost::system::error_code failed;
    while (!failed) {
        const auto count = co_await from.async_read_some(
            asio::buffer(piece), asio::redirect_error(asio::use_awaitable, failed));
        if (!failed)
            co_await asio::async_write(
                to, asio::buffer(piece.data(), count), asio::redirect_error(asio::use_awaitable, failed));
    }
    boost::system::error_code gone;
    to.shutdown(tcp::socket::shutdown_send, gone);
    if (failed != asio::error::eof) // a broken end breaks the other way too
        from.close(gone);
}

} // namespace

/// On a thread of its own.
class PageTunnel::Server {
public:
    explicit Server(std::shared_ptr<PeerCheck> peers)
        : peers_(std::move(peers)), listener_(context_, {asio::ip::address_v4::loopback(), 0}),
          url_(fmt::format(
              "socks5://{}:{}@127.0.0.1:{}", user, password_, listener_.local_endpoint().port())) {
        keepFromChildren(listener_.native_handle());
        asio::co_spawn(context_, accept(), asio::detached);
        thread_ = std::thread([this] { context_.run(); });
    }
    ~Server() {
        context_.stop();
        thread_.join();
    }

    const std::string& url() const { return url_; }
    PeerCheck& peers() { return *peers_; }
    void lead(std::uint16_t port) { target_ = port; }

private:
    Task<> accept() {
        for (;;) {
            boost::system::error_code failed;
            auto view = co_await listener_.async_accept(asio::redirect_error(asio::use_awaitable, failed));
            if (failed) { // out of descriptors, perhaps
                asio::steady_timer pause(context_, acceptPause);
                co_await pause.async_wait(asio::use_awaitable);
                continue;
            }
            keepFromChildren(view.native_handle());
            if (passages_ >= mostPassages || unknown_ >= mostUnknown ||
                (unknown_ >= manyUnknown && isStranger(view)))
                continue; // which closes it
            auto passage = std::make_shared<Passage>(Passage{std::move(view), tcp::socket(context_)});
            asio::co_spawn(context_, serve(std::move(passage)), asio::detached);
        }
    }

    /// Another user's: many of those could take all descriptors from us.
    static bool isStranger(const tcp::socket& view) {
        boost::system::error_code failed;
        const auto caller = view.remote_endpoint(failed).port(), own = view.local_endpoint(failed).port();
        return failed || ownerOf({"127.0.0.1", caller, "127.0.0.1", own}) != ::geteuid();
    }

    Task<> serve(std::shared_ptr<Passage> passage) {
        using namespace asio::experimental::awaitable_operators;
        const Counted counted(passages_);
        asio::steady_timer limit(context_, handshakeLimit);
        auto opening = attempt(open(passage));
        auto waiting = limit.async_wait(asio::use_awaitable);
        std::optional<Counted> unknown(unknown_);
        auto first = co_await (std::move(opening) || std::move(waiting));
        unknown.reset();
        if (first.index() == 1 || !std::get<0>(first))
            co_return;
        const bool opened = std::get<0>(first).take();
        if (!opened)
            co_return;
        auto out = sendOut(passage);
        auto in = pump(passage, passage->daemon, passage->view);
        co_await (std::move(out) || std::move(in));
    }

    /// What a view that went away asked for is waited for no longer than a moment; a hung daemon never ends
    /// it.
    Task<> sendOut(std::shared_ptr<Passage> passage) {
        co_await pump(passage, passage->view, passage->daemon);
        asio::steady_timer limit(context_, handshakeLimit);
        co_await limit.async_wait(asio::use_awaitable);
    }

    /// Whether the passage stands. Throws when the view goes away.
    Task<bool> open(std::shared_ptr<Passage> passage) {
        const bool known = co_await isKnown(passage);
        if (!known)
            co_return false;
        const auto request = co_await take(passage, 4);
        auto answer = notSupported;
        if (request[0] == version && request[1] == connectCommand && request[3] == ipv4) {
            const auto to = co_await take(passage, 6);
            const asio::ip::address_v4 address({to[0], to[1], to[2], to[3]});
            const auto port = static_cast<std::uint16_t>(to[4] << 8 | to[5]);
            answer = notAllowed;
            if (address == asio::ip::address_v4::loopback() && port != 0 && port == target_)
                answer = co_await reach(passage, port);
        }
        const Bytes reply{version, answer, 0, ipv4, 0, 0, 0, 0, 0, 0};
        co_await give(passage, reply);
        co_return answer == granted;
    }

    Task<bool> isKnown(std::shared_ptr<Passage> passage) {
        const auto greeting = co_await take(passage, 2);
        const auto methods = co_await take(passage, greeting[1]);
        if (greeting[0] != version || std::ranges::find(methods, byPassword) == methods.end()) {
            const Bytes none{version, noMethod};
            co_await give(passage, none);
            co_return false;
        }
        const Bytes method{version, byPassword};
        co_await give(passage, method);
        const auto head = co_await take(passage, 2);
        const auto name = co_await take(passage, head[1]);
        const auto length = co_await take(passage, 1);
        const auto password = co_await take(passage, length[0]);
        const bool right = head[0] == passwordVersion && password.size() == password_.size() &&
                           sodium_memcmp(password.data(), password_.data(), password.size()) == 0;
        const Bytes verdict{passwordVersion, static_cast<unsigned char>(right ? 0 : 1)};
        co_await give(passage, verdict);
        co_return right;
    }

    /// Connects, and looks at who is there. That takes a moment, in which no other passage moves.
    Task<unsigned char> reach(std::shared_ptr<Passage> passage, std::uint16_t port) {
        boost::system::error_code failed;
        const tcp::endpoint to(asio::ip::address_v4::loopback(), port);
        passage->daemon.open(to.protocol(), failed);
        keepFromChildren(passage->daemon.native_handle());
        co_await passage->daemon.async_connect(to, asio::redirect_error(asio::use_awaitable, failed));
        if (failed)
            co_return hostUnreachable;
        const auto own = passage->daemon.local_endpoint(failed);
        // What is passed on piece by piece would else wait for the other side's acknowledgements.
        passage->view.set_option(tcp::no_delay(true), failed);
        passage->daemon.set_option(tcp::no_delay(true), failed);
        const auto refusal = peers_->refusal({"127.0.0.1", port, "127.0.0.1", own.port()});
        if (!refusal)
            co_return granted;
        // Scripts of the page may come back many times a second.
        if (std::exchange(lastRefusal_, *refusal) != *refusal)
            logLine("page: " + *refusal);
        passage->daemon.close(failed);
        co_return notAllowed;
    }

    const std::shared_ptr<PeerCheck> peers_;
    const std::string password_ = randomName();
    std::atomic<std::uint16_t> target_ = 0;
    // On the thread.
    std::string lastRefusal_;
    int passages_ = 0;
    int unknown_ = 0;
    asio::io_context context_{1};
    tcp::acceptor listener_;
    const std::string url_;
    std::thread thread_;
};

PageTunnel::PageTunnel(std::shared_ptr<PeerCheck> peers)
    : server_(std::make_unique<Server>(std::move(peers))) {}

PageTunnel::~PageTunnel() = default;

const std::string& PageTunnel::url() const {
    return server_->url();
}

std::optional<std::string> PageTunnel::lead(std::int64_t port) {
    if (port <= 0 || port > 0xffff)
        return "The daemon's page has no port.";
    const auto to = static_cast<std::uint16_t>(port);
    auto refusal = server_->peers().listenerRefusal(to);
    server_->lead(refusal ? 0 : to);
    return refusal;
}

} // namespace kelvadrome
