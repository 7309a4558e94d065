// One exchange over the socket: ours, libcurl on the same socket, and a bare connect, write and read loop.

#include "KelvadromeKit/wire/UnixSocketTransport.h"

#include <boost/asio/io_context.hpp>
#include <curl/curl.h>

#include "bench/LocalServer.h"
#include <benchmark/benchmark.h>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace kelvadrome;
using kelvadrome::bench::LocalServer;

namespace {

void requireBody(benchmark::State& state, std::size_t size) {
    if (size != static_cast<std::size_t>(state.range(0)))
        state.SkipWithError("a reply of another size");
}

Task<> exchanges(UnixSocketTransport transport, benchmark::State* state) {
    for (auto _ : *state) {
        const auto reply = co_await transport.send("GET", "/v1/health", std::nullopt, {}, 10.0);
        requireBody(*state, reply.body.size());
    }
}

void exchangeOurs(benchmark::State& state) {
    const LocalServer server(std::string(static_cast<std::size_t>(state.range(0)), 'x'));
    asio::io_context loop(1);
    BackgroundPool pool;
    asio::co_spawn(
        loop, exchanges(UnixSocketTransport(server.path(), pool), &state), [](std::exception_ptr error) {
            if (error)
                std::rethrow_exception(error);
        });
    loop.run();
}

std::size_t collect(char* data, std::size_t size, std::size_t count, void* to) {
    static_cast<std::string*>(to)->append(data, size * count);
    return size * count;
}

void exchangeCurl(benchmark::State& state) {
    const LocalServer server(std::string(static_cast<std::size_t>(state.range(0)), 'x'));
    const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> handle(curl_easy_init(), &curl_easy_cleanup);
    std::string body;
    curl_easy_setopt(handle.get(), CURLOPT_UNIX_SOCKET_PATH, server.path().c_str());
    curl_easy_setopt(handle.get(), CURLOPT_URL, "http://localhost/v1/health");
    curl_easy_setopt(handle.get(), CURLOPT_WRITEFUNCTION, &collect);
    curl_easy_setopt(handle.get(), CURLOPT_WRITEDATA, &body);
    for (auto _ : state) {
        body.clear();
        if (curl_easy_perform(handle.get()) != CURLE_OK)
            state.SkipWithError("libcurl failed");
        requireBody(state, body.size());
    }
}

void exchangeBare(benchmark::State& state) {
    const LocalServer server(std::string(static_cast<std::size_t>(state.range(0)), 'x'));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, server.path().c_str(), server.path().size() + 1);
    const std::string request = "GET /v1/health HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";
    std::vector<char> buffer(65536);
    for (auto _ : state) {
        const Descriptor fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (::connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
            ::write(fd.get(), request.data(), request.size()) != static_cast<ssize_t>(request.size())) {
            state.SkipWithError("the bare loop failed");
        }
        std::string reply;
        for (ssize_t count; (count = ::read(fd.get(), buffer.data(), buffer.size())) > 0;) {
            reply.append(buffer.data(), static_cast<std::size_t>(count));
        }
        requireBody(state, reply.size() - (reply.find("\r\n\r\n") + 4));
    }
}

} // namespace

BENCHMARK(exchangeOurs)->Arg(256)->Arg(1 << 20)->UseRealTime();
BENCHMARK(exchangeCurl)->Arg(256)->Arg(1 << 20)->UseRealTime();
BENCHMARK(exchangeBare)->Arg(256)->Arg(1 << 20)->UseRealTime();
