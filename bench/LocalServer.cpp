#include "bench/LocalServer.h"

#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>
#include <fmt/format.h>

#include <unistd.h>

namespace kelvadrome::bench {

namespace http = boost::beast::http;
using Local = boost::asio::local::stream_protocol;

LocalServer::LocalServer(std::string body)
    : path_(fmt::format("/tmp/kd-bench-{}-{}.sock", ::getpid(), body.size())),
      reply_(http::status::ok, 11, std::move(body)) {
    reply_.set(http::field::content_type, "application/json");
    reply_.keep_alive(false);
    reply_.prepare_payload();
    ::unlink(path_.c_str());
    acceptor_ = Local::acceptor(context_, Local::endpoint(path_));
    thread_ = std::thread([this] { serve(); });
}

LocalServer::~LocalServer() {
    ::shutdown(acceptor_.native_handle(), SHUT_RDWR); // ends the accept that waits
    thread_.join();
    ::unlink(path_.c_str());
}

void LocalServer::serve() {
    for (;;) {
        boost::system::error_code error;
        auto peer = acceptor_.accept(error);
        if (error)
            return;
        boost::beast::flat_buffer buffer;
        http::request<http::empty_body> request;
        http::read(peer, buffer, request, error);
        if (!error)
            http::write(peer, reply_, error);
    }
}

} // namespace kelvadrome::bench
