#include "bench/LocalServer.h"

#include <fmt/format.h>

#include <cstring>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace kelvadrome::bench {

LocalServer::LocalServer(std::string body)
    : path_(fmt::format("/tmp/kd-bench-{}-{}.sock", ::getpid(), body.size())),
      reply_(fmt::format("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: {}\r\n"
                         "Connection: close\r\n\r\n",
                 body.size()) +
             body),
      listener_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path_.c_str(), path_.size() + 1);
    ::unlink(path_.c_str());
    if (::bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener_.get(), 64) != 0) {
        throw std::runtime_error("could not listen on " + path_);
    }
    thread_ = std::thread([this] { serve(); });
}

LocalServer::~LocalServer() {
    closing_ = true;
    ::shutdown(listener_.get(), SHUT_RDWR);
    thread_.join();
    ::unlink(path_.c_str());
}

void LocalServer::serve() {
    char buffer[65536];
    while (!closing_) {
        const Descriptor peer(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!peer)
            continue;
        std::string request;
        while (request.find("\r\n\r\n") == std::string::npos) {
            const auto count = ::read(peer.get(), buffer, sizeof buffer);
            if (count <= 0)
                break;
            request.append(buffer, static_cast<std::size_t>(count));
        }
        for (std::size_t done = 0; done < reply_.size();) {
            const auto count = ::send(peer.get(), reply_.data() + done, reply_.size() - done, MSG_NOSIGNAL);
            if (count <= 0)
                break;
            done += static_cast<std::size_t>(count);
        }
    }
}

} // namespace kelvadrome::bench
