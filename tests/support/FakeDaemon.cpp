#include "tests/support/FakeDaemon.h"

#include "KelvadromeKit/support/Text.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <fmt/format.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

namespace kelvadrome::test {

namespace {

namespace asio = boost::asio;
namespace http = boost::beast::http;

/// Waits until the condition holds; false when the client went first.
asio::awaitable<bool> until(int fd, std::function<bool()> condition) {
    asio::steady_timer timer(co_await asio::this_coro::executor);
    while (!condition()) {
        pollfd end{fd, POLLIN | POLLRDHUP, 0};
        char byte;
        if (::poll(&end, 1, 0) > 0 && ::recv(fd, &byte, 1, MSG_DONTWAIT) <= 0)
            co_return false;
        timer.expires_after(std::chrono::milliseconds(1));
        co_await timer.async_wait(asio::use_awaitable);
    }
    co_return true;
}

std::string head(const FakeReply& reply) {
    auto text = fmt::format("HTTP/1.1 {} Whatever\r\n", reply.status);
    for (const auto& [key, value] : reply.headers)
        text += key + ": " + value + "\r\n";
    if (!reply.stream)
        text += fmt::format("Content-Length: {}\r\n", reply.body.size());
    return text + "Connection: close\r\n\r\n";
}

} // namespace

void FakeStream::push(const std::string& bytes) {
    std::lock_guard guard(lock_);
    waiting_ += bytes;
}

std::string FakeStream::take() {
    std::lock_guard guard(lock_);
    return std::exchange(waiting_, {});
}

FakeReply FakeReply::data(const std::string& json) {
    return {.headers = {{"Content-Type", "application/json"}}, .body = "{\"ok\":true,\"data\":" + json + "}"};
}

FakeReply FakeReply::failure(const std::string& code, const std::string& message, std::int64_t status) {
    return {.status = status,
        .headers = {{"Content-Type", "application/json"}},
        .body = fmt::format(R"({{"ok":false,"error":{{"code":"{}","message":"{}"}}}})", code, message)};
}

FakeReply FakeReply::raw(std::string bytes) {
    return {.bytes = std::move(bytes)};
}

FakeReply FakeReply::events(std::shared_ptr<FakeStream> stream) {
    return {.headers = {{"Content-Type", "text/event-stream"}}, .stream = std::move(stream)};
}

FakeReply FakeReply::heldBy(std::shared_ptr<FakeGate> by) && {
    gate = std::move(by);
    return std::move(*this);
}

FakeDaemon::FakeDaemon() : FakeDaemon(std::string()) {}

FakeDaemon::FakeDaemon(std::string socketPath) : socketPath_(std::move(socketPath)) {
    using Local = asio::local::stream_protocol;
    if (socketPath_.empty())
        socketPath_ = folder_.emplace() / "kelvadromed.sock";
    ::unlink(socketPath_.c_str());
    accept(Local::acceptor(*context_, Local::endpoint(socketPath_)));
    thread_ = std::thread([this] { context_->run(); });
}

FakeDaemon::~FakeDaemon() {
    stop();
}

std::uint16_t FakeDaemon::listenOnTCP() {
    using asio::ip::tcp;
    tcp::acceptor acceptor(*context_, {asio::ip::address_v4::loopback(), 0});
    const auto port = acceptor.local_endpoint().port();
    accept(std::move(acceptor));
    return port;
}

template <class Acceptor>
void FakeDaemon::accept(Acceptor acceptor) {
    ::fcntl(acceptor.native_handle(), F_SETFD, FD_CLOEXEC);
    asio::co_spawn(*context_, acceptFrom(std::move(acceptor)), asio::detached);
}

void FakeDaemon::on(const std::string& path, Handler handler) {
    std::lock_guard guard(lock_);
    handlers_[path] = std::move(handler);
}

void FakeDaemon::on(const std::string& path, FakeReply reply) {
    on(path, [reply = std::move(reply)](const FakeRequest&) { return reply; });
}

std::vector<FakeRequest> FakeDaemon::requests() const {
    std::lock_guard guard(lock_);
    return requests_;
}

std::vector<FakeRequest> FakeDaemon::requests(const std::string& path) const {
    auto all = requests();
    std::erase_if(all, [&](const FakeRequest& request) { return request.path != path; });
    return all;
}

void FakeDaemon::stop() {
    if (!context_)
        return;
    context_->stop();
    thread_.join();
    context_.reset(); // and with it every connection
    ::unlink(socketPath_.c_str());
}

template <class Acceptor>
asio::awaitable<void> FakeDaemon::acceptFrom(Acceptor acceptor) {
    for (;;) {
        Socket peer(co_await acceptor.async_accept(asio::use_awaitable));
        ::fcntl(peer.native_handle(), F_SETFD, FD_CLOEXEC);
        ++connections_;
        asio::co_spawn(*context_, serve(std::move(peer)), asio::detached);
    }
}

asio::awaitable<void> FakeDaemon::serve(Socket socket) {
    FakeRequest request;
    http::request_parser<http::string_body> parser;
    parser.eager(true);
    parser.body_limit(boost::none);
    std::string chunk(65536, '\0'), unread;
    while (!parser.is_done()) {
        const auto count = co_await socket.async_read_some(asio::buffer(chunk), asio::use_awaitable);
        request.bytes.append(chunk, 0, count);
        unread.append(chunk, 0, count);
        boost::system::error_code error;
        unread.erase(0, parser.put(asio::buffer(unread), error));
        if (error && error != http::error::need_more)
            co_return;
    }
    const auto& message = parser.get();
    request.method = std::string(message.method_string());
    const std::string target(message.target());
    request.path = target.substr(0, target.find('?'));
    if (request.path.size() < target.size())
        request.query = target.substr(request.path.size() + 1);
    for (const auto& field : message)
        request.headers[Text::lowercased(std::string(field.name_string()))] = std::string(field.value());
    request.body = message.body();

    const auto reply = answer(request);
    const int fd = socket.native_handle();
    std::function<bool()> mayReply = [gate = reply.gate] { return !gate || gate->isOpen(); };
    if (!co_await until(fd, mayReply))
        co_return;
    auto bytes = reply.bytes ? *reply.bytes : head(reply) + (reply.stream ? "" : reply.body);
    co_await asio::async_write(socket, asio::buffer(bytes), asio::use_awaitable);
    if (!reply.stream)
        co_return;
    FakeStream& stream = *reply.stream;
    stream.opened_ = true;
    std::function<bool()> pushed = [&] {
        const bool closed = stream.closed_; // before the last bytes are taken
        bytes = stream.take();
        return closed || !bytes.empty();
    };
    for (;;) {
        boost::system::error_code error;
        const bool there = co_await until(fd, pushed);
        if (there && bytes.empty())
            co_return;
        if (there)
            co_await asio::async_write(
                socket, asio::buffer(bytes), asio::redirect_error(asio::use_awaitable, error));
        if (!there || error) {
            stream.clientGone_ = true;
            co_return;
        }
    }
}

FakeReply FakeDaemon::answer(const FakeRequest& request) {
    Handler handler;
    {
        std::lock_guard guard(lock_);
        requests_.push_back(request);
        if (const auto found = handlers_.find(request.path); found != handlers_.end())
            handler = found->second;
    }
    return handler ? handler(request) : FakeReply::failure("not_found", "no such route", 404);
}

} // namespace kelvadrome::test
